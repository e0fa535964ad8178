#include "bus/usb/usb_host.h"

#include <thread>

namespace lidcam::bus {
namespace {

constexpr const char* kNotBuiltIn = "this lidcam was built without libusb";

}  // namespace

class UsbHost::Session {};

UsbHost::UsbHost() = default;
UsbHost::~UsbHost() = default;

std::string UsbHost::Obstacle() const {
  return kNotBuiltIn;
}

std::vector<PluggedDevice> UsbHost::Devices() const {
  return {};
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): with libusb, the options are moved
std::unique_ptr<UsbBus> UsbHost::Open(const PluggedDevice&, UsbPortOptions) {
  throw UsbError(UsbObstacle::NotBuiltIn, kNotBuiltIn);
}

bool UsbHost::WaitForChange(std::chrono::milliseconds limit) {
  std::this_thread::sleep_for(limit);
  return false;
}

}  // namespace lidcam::bus
