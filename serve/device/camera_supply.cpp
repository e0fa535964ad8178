#include "serve/device/camera_supply.h"

#include <utility>

namespace lidcam::serve {

CameraSupply::CameraSupply(Options options)
    : options_(std::move(options)), device_(bus::EnumerateDevice(*options_.Plug())) {}

std::unique_ptr<CameraSupply::Lease> CameraSupply::Take() {
  if (++taken_ > options_.Limit) {
    --taken_;
    return nullptr;
  }
  try {
    return std::make_unique<Lease>(
        *this, std::make_unique<ServedCamera>(options_.Plug(), device_, options_.Faults));
  } catch (...) {
    --taken_;
    throw;
  }
}

}  // namespace lidcam::serve
