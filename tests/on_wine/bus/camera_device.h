#pragma once

#include <memory>
#include <string_view>

#include "camera_model/bus_adapter/simulated_bus.h"
#include "platform/host/usbd/device/usb_request_server.h"
#include "tests/on_wine/bus/device_role.h"
#include "tests/on_wine/bus/device_texts.h"

namespace lidcam::wine {

class BusDevice;

/// A simulated camera on the bus: the physical device that the camera's driver stands on.
///
/// Its time passes only while the driver reads from it, so that no frame depends on how busy the
/// machine is; what is read is handed over no faster than a real camera would.
class CameraDevice final : public DeviceRole {
 public:
  /// @param options  as camera_model::ParseCameraOptions() reads them; empty: the default camera
  /// @throws std::invalid_argument, std::runtime_error with a text for the user
  CameraDevice(PDRIVER_OBJECT driver, BusDevice& bus, std::string_view options);

  /// Drivers have detached from it.
  ~CameraDevice() override;

  [[nodiscard]] PDEVICE_OBJECT PhysicalDevice() const { return device_; }

  /// All requests that are out end with USBD_STATUS_DEVICE_GONE, and so do those that still come.
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
