#include "platform/host/nt/io/plug_and_play.h"

#include "platform/host/nt/declarations/io_declarations.h"
#include "platform/host/nt/io/device_file.h"

namespace lidcam::host {
namespace {

IO_STACK_LOCATION PlugAndPlay(UCHAR minor) {
  IO_STACK_LOCATION location{};
  location.MajorFunction = IRP_MJ_PNP;
  location.MinorFunction = minor;
  return location;
}

NTSTATUS Tell(PDEVICE_OBJECT device, UCHAR minor) {
  return SendAndWait(device, PlugAndPlay(minor));
}

}  // namespace

NTSTATUS StartDevice(PDEVICE_OBJECT device) {
  return Tell(device, IRP_MN_START_DEVICE);
}

NTSTATUS QueryStopDevice(PDEVICE_OBJECT device) {
  return Tell(device, IRP_MN_QUERY_STOP_DEVICE);
}

NTSTATUS StopDevice(PDEVICE_OBJECT device) {
  return Tell(device, IRP_MN_STOP_DEVICE);
}

NTSTATUS QueryRemoveDevice(PDEVICE_OBJECT device) {
  return Tell(device, IRP_MN_QUERY_REMOVE_DEVICE);
}

NTSTATUS SurpriseRemoveDevice(PDEVICE_OBJECT device) {
  return Tell(device, IRP_MN_SURPRISE_REMOVAL);
}

NTSTATUS RemoveDevice(PDEVICE_OBJECT device) {
  PDEVICE_OBJECT top = device;
  while (top->AttachedDevice != nullptr) top = top->AttachedDevice;
  CloseToOpenings(top);
  return Tell(device, IRP_MN_REMOVE_DEVICE);
}

NTSTATUS QueryCapabilities(PDEVICE_OBJECT device, DEVICE_CAPABILITIES& capabilities) {
  capabilities.Size = sizeof(capabilities);
  capabilities.Version = 1;
  IO_STACK_LOCATION location = PlugAndPlay(IRP_MN_QUERY_CAPABILITIES);
  location.Parameters.DeviceCapabilities.Capabilities = &capabilities;
  return SendAndWait(device, location);
}

NTSTATUS SetDevicePower(PDEVICE_OBJECT device, DEVICE_POWER_STATE state) {
  IO_STACK_LOCATION location{};
  location.MajorFunction = IRP_MJ_POWER;
  location.MinorFunction = IRP_MN_SET_POWER;
  location.Parameters.Power.Type = DevicePowerState;
  location.Parameters.Power.State.DeviceState = state;
  return SendAndWait(device, location);
}

}  // namespace lidcam::host
