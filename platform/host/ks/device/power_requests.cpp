// Power of a device. On the way up the device below comes first, on the way down the driver.

#include "platform/host/ks/device/device_block.h"
#include "platform/host/ks/device/device_requests.h"

namespace lidcam::host {
namespace {

void SetPower(DeviceBlock& device, PIRP irp, DEVICE_POWER_STATE to, DEVICE_POWER_STATE from) {
  const PFNKSDEVICESETPOWER setPower = EntriesOf(device).SetPower;
  const DeviceCall call(device, ClassCall::SetPower);
  if (setPower != nullptr) setPower(&device, irp, to, from);
  static_cast<KSDEVICE&>(device).DevicePowerState = to;
}

NTSTATUS SetDevicePower(DeviceBlock& device, PIRP irp, DEVICE_POWER_STATE to) {
  const DEVICE_POWER_STATE from = device.DevicePowerState;
  irp->IoStatus.Status = STATUS_SUCCESS;
  if (to >= from) {
    SetPower(device, irp, to, from);
    return Forward(device, irp);
  }
  const NTSTATUS status = ForwardAndWait(device, irp);
  if (NT_SUCCESS(status)) SetPower(device, irp, to, from);
  return CompleteRequest(irp, status);
}

NTSTATUS SetSystemPower(DeviceBlock& device, PIRP irp, SYSTEM_POWER_STATE to) {
  device.SystemPowerState = to;
  irp->IoStatus.Status = STATUS_SUCCESS;
  return Forward(device, irp);
}

NTSTATUS QueryPower(DeviceBlock& device, PIRP irp) {
  const auto& power = IoGetCurrentIrpStackLocation(irp)->Parameters.Power;
  const PFNKSDEVICEQUERYPOWER query = EntriesOf(device).QueryPower;
  DEVICE_POWER_STATE deviceTo = device.DevicePowerState;
  SYSTEM_POWER_STATE systemTo = device.SystemPowerState;
  if (power.Type == DevicePowerState) {
    deviceTo = power.State.DeviceState;
  } else {
    systemTo = power.State.SystemState;
  }
  NTSTATUS status = STATUS_SUCCESS;
  if (query != nullptr) {
    const DeviceCall call(device, ClassCall::QueryPower);
    status = query(&device, irp, deviceTo, device.DevicePowerState, systemTo,
                   device.SystemPowerState, power.ShutdownType);
  }
  if (!NT_SUCCESS(status)) return CompleteRequest(irp, status);
  irp->IoStatus.Status = STATUS_SUCCESS;
  return Forward(device, irp);
}

NTSTATUS AnswerPower(DeviceBlock& device, PIRP irp) {
  const IO_STACK_LOCATION& location = *IoGetCurrentIrpStackLocation(irp);
  const auto& power = location.Parameters.Power;
  if (location.MinorFunction == IRP_MN_QUERY_POWER) return QueryPower(device, irp);
  if (location.MinorFunction != IRP_MN_SET_POWER) return Forward(device, irp);
  if (power.Type == DevicePowerState) {
    return SetDevicePower(device, irp, power.State.DeviceState);
  }
  return SetSystemPower(device, irp, power.State.SystemState);
}

}  // namespace

NTSTATUS NTAPI DispatchPower(PDEVICE_OBJECT functionalDevice, PIRP irp) {
  DeviceBlock& device = BlockOf(functionalDevice);
  BeginRequest(device);
  const NTSTATUS status = IsSet(device.IsRemoved) ? CompleteRequest(irp, STATUS_DELETE_PENDING)
                                                  : AnswerPower(device, irp);
  EndRequest(device);
  return status;
}

}  // namespace lidcam::host
