#pragma once

#include <memory>
#include <string_view>

#include "camera_model/bus_adapter/simulated_bus.h"
#include "platform/host/usbd/device/usb_request_server.h"
#include "tests/on_wine/bus/device_role.h"
#include "tests/on_wine/bus/device_texts.h"

namespace lidcam::wine {

class BusDevice;

/// A simulated camera on the bus: the physical device below the camera's driver.
///
/// Its time advances only while the driver reads from it, so that no frame depends on the machine's
/// load; reads are completed no faster than by a real camera.
class CameraDevice final : public DeviceRole {
 public:
  /// @param options  as camera_model::ParseCameraOptions() reads them; empty: the default camera
  /// @throws std::invalid_argument, std::runtime_error with a text for the user
  CameraDevice(PDRIVER_OBJECT driver, BusDevice& bus, std::string_view options);

  /// Drivers must have detached from it.
  ~CameraDevice() override;

  [[nodiscard]] PDEVICE_OBJECT PhysicalDevice() const { return device_; }

  /// All pending and later requests end with USBD_STATUS_DEVICE_GONE.
  void PullPlug() { server_.Unplug(); }

  NTSTATUS PlugAndPlay(PIRP irp) override;
  NTSTATUS Power(PIRP irp) override;
  NTSTATUS SystemControl(PIRP irp) override { return Complete(irp, irp->IoStatus.Status); }
  NTSTATUS InternalDeviceControl(PIRP irp) override { return server_.Dispatch(irp); }

 private:
  static void NTAPI Cancel(PDEVICE_OBJECT device, PIRP irp);

  NTSTATUS TellText(PIRP irp, const std::wstring& text) const;
  NTSTATUS TellId(PIRP irp) const;
  NTSTATUS TellDeviceText(PIRP irp) const;
  NTSTATUS TellCapabilities(PIRP irp) const;
  NTSTATUS TellBus(PIRP irp) const;
  NTSTATUS TellTargetRelation(PIRP irp) const;
  NTSTATUS Remove(PIRP irp);

  BusDevice& bus_;
  const std::unique_ptr<bus::UsbBus> camera_;
  const DeviceTexts texts_;
  host::UsbRequestServer server_;
  PDEVICE_OBJECT device_ = nullptr;
};

}  // namespace lidcam::wine
