#pragma once

#include "platform/kernel.h"

namespace lidcam::wine {

/// Completes a request packet, which must not be touched afterwards.
/// @return `status`
NTSTATUS Complete(PIRP irp, NTSTATUS status);

/// The function of a device object of this driver. Each gets the requests for its device, completes
/// them or passes them down, and returns their status.
class DeviceRole {
 public:
  DeviceRole() = default;
  DeviceRole(const DeviceRole&) = delete;
  DeviceRole& operator=(const DeviceRole&) = delete;
  virtual ~DeviceRole() = default;

  virtual NTSTATUS PlugAndPlay(PIRP irp) = 0;
  virtual NTSTATUS Power(PIRP irp) = 0;
  virtual NTSTATUS SystemControl(PIRP irp) = 0;
  /// Requests from user mode.
  virtual NTSTATUS DeviceControl(PIRP irp) { return Complete(irp, STATUS_INVALID_DEVICE_REQUEST); }
  /// Requests from drivers above.
  virtual NTSTATUS InternalDeviceControl(PIRP irp) {
    return Complete(irp, STATUS_INVALID_DEVICE_REQUEST);
  }

  /// The role of a device that CreateDevice() has made.
  [[nodiscard]] static DeviceRole& Of(PDEVICE_OBJECT device) {
    return **static_cast<DeviceRole**>(device->DeviceExtension);
  }

 protected:
  /// Makes a device object with this role; it has no name if `name` is null.
  /// @throws std::runtime_error if the kernel can't make one
  [[nodiscard]] PDEVICE_OBJECT CreateDevice(PDRIVER_OBJECT driver, const wchar_t* name,
                                            DEVICE_TYPE type, ULONG characteristics);
};

}  // namespace lidcam::wine
