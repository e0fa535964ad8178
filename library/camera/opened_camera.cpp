#include "library/camera/opened_camera.h"

#include <memory>
#include <string>

#include "library/base/command_error.h"
#include "library/camera/bring_up/camera_identity.h"
#include "library/camera/bring_up/virtual_time.h"
#include "library/camera/source/plugged_camera.h"
#include "platform/host/nt/system/status_words.h"
#include "testbed/worlds.h"

namespace lidcam::app {
namespace {

void StartCamera(testbed::InstalledTestbed& camera, const bus::UsbDeviceInfo& device) {
  const NTSTATUS status = camera.Start();
  if (NT_SUCCESS(status)) return;
  const std::string failure = "camera " + IdentityText(device) + " did not come up: ";
  if (camera.End() == testbed::BusEnd::Unplugged) {
    throw CommandError(failure + "it was unplugged", Failure::Unplugged);
  }
  throw CommandError(failure + host::StatusText(status));
}

}  // namespace

bool IsInRealTime(const CameraChoice& choice) {
  if (IsPluggedIn(choice.Camera)) return true;
  return !choice.IsFast && !CaptureFileOf(choice.Camera);
}

void RunInTimeOf(const CameraChoice& choice, const std::function<void()>& body) {
  if (IsInRealTime(choice)) {
    testbed::RunInRealTime(body);
  } else {
    RunInVirtualTime(body);
  }
}

OpenedCamera::OpenedCamera(testbed::InstalledTestbed& installed, const client::Camera& camera,
                           const bus::UsbDeviceInfo& device, CameraGates& gates)
    : installed_(installed), camera_(camera), device_(device), gates_(gates) {
  WithContext([this](const CameraContext& context) { sensorType_ = context.SensorType; });
}

void OpenedCamera::TellGone() {
  if (isToldGone_) return;
  isToldGone_ = true;
  installed_.SurpriseRemove();
}

void WithOpenedCamera(bus::UsbBus& bus, const std::function<void(OpenedCamera& opened)>& use,
                      const DriverKeyChoice& key) {
  bus::UsbDeviceInfo device;
  try {
    device = bus::EnumerateDevice(bus);
  } catch (const bus::EnumerationError& error) {
    throw CommandError(error.what());
  }
  CameraGates gates(bus);
  testbed::InstalledTestbed installed(gates.Setting,
                                      {.DriverKey = key ? key(device) : DriverKeyOf(device)});
  const auto open = [&] {
    StartCamera(installed, device);
    const client::Camera camera = client::Camera::Open(installed.TopDevice());
    OpenedCamera opened(installed, camera, device, gates);
    testbed::RunThenEnd([&] { use(opened); },
                        [&] {
                          if (opened.End() != testbed::BusEnd::None) opened.TellGone();
                        });
  };
  testbed::RunThenEnd(open, [&] { installed.Close(); });
}

void WithOpenedCameraOf(CameraChoice choice, const std::function<void(OpenedCamera& opened)>& use) {
  choice.IsFast = true;
  const std::unique_ptr<bus::UsbBus> bus = OpenCamera(choice);
  RunInTimeOf(choice, [&] { WithOpenedCamera(*bus, use); });
}

}  // namespace lidcam::app
