#include "library/camera/bring_up/started_camera.h"

#include "library/base/command_error.h"
#include "library/camera/bring_up/camera_identity.h"
#include "library/camera/gates/bus_gates.h"
#include "platform/host/nt/system/status_words.h"
#include "testbed/transport_testbed.h"

namespace lidcam::app {
namespace {

bus::UsbDeviceInfo Enumerate(bus::UsbBus& bus) {
  try {
    return bus::EnumerateDevice(bus);
  } catch (const bus::EnumerationError& error) {
    throw CommandError(error.what());
  }
}

}  // namespace

void WithStartedCamera(bus::UsbBus& bus, const std::function<void(CameraContext& camera)>& use,
                       const std::u16string& driverKey) {
  const bus::UsbDeviceInfo device = Enumerate(bus);
  RecordedDevice plugged(bus);
  testbed::WithTransportTestbed(
      plugged, {.DriverKey = driverKey.empty() ? DriverKeyOf(device) : driverKey},
      [&](testbed::TransportTestbed& camera) {
        const NTSTATUS status = camera.Start();
        if (!NT_SUCCESS(status)) {
          throw CommandError("camera " + IdentityText(device) +
                             " did not come up: " + host::StatusText(status));
        }
        camera.WithCamera(use);
      });
}

}  // namespace lidcam::app
