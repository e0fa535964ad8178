#include "tests/on_wine/bus/device_role.h"

#include <stdexcept>

namespace lidcam::wine {

NTSTATUS Complete(PIRP irp, NTSTATUS status) {
  irp->IoStatus.Status = status;
  IofCompleteRequest(irp, IO_NO_INCREMENT);
  return status;
}

PDEVICE_OBJECT DeviceRole::CreateDevice(PDRIVER_OBJECT driver, const wchar_t* name,
                                        DEVICE_TYPE type, ULONG characteristics) {
  UNICODE_STRING text{};
  RtlInitUnicodeString(&text, name);
  PDEVICE_OBJECT device = nullptr;
  if (!NT_SUCCESS(IoCreateDevice(driver, sizeof(DeviceRole*), name == nullptr ? nullptr : &text,
                                 type, characteristics, FALSE, &device))) {
    throw std::runtime_error("the kernel gives no device object");
  }
  *static_cast<DeviceRole**>(device->DeviceExtension) = this;
  return device;
}

}  // namespace lidcam::wine
