#include "library/camera/controls/register_reading.h"

#include "driver/sensor/registers/register_requests.h"
#include "platform/kernel.h"

namespace lidcam::app {
namespace {

// Raised ahead of the look at the other flag: the exposure control begins no access then.
void TakeRegisters(CameraContext& camera) {
  camera.AppRegisterBusy = 1;
  while (camera.DriverRegisterBusy != 0) YieldProcessor();
}

}  // namespace

std::optional<std::uint8_t> ReadRegisterOfStream(CameraContext& camera, Chip chip,
                                                 RegisterAddress address) {
  TakeRegisters(camera);
  std::uint32_t length = 0;
  static_cast<void>(camera.WriteRequest(camera.TransportContext, kRequestWrite, kSelectRegister,
                                        SelectForRead(chip), nullptr, &length));
  std::uint8_t value = 0;
  length = 1;
  const Status status = camera.ReadRequest(camera.TransportContext, kRequestRead, address,
                                           kReadRequestValue, &value, &length);
  camera.AppRegisterBusy = 0;
  if (status != 0) return std::nullopt;
  return value;
}

}  // namespace lidcam::app
