#include "platform/host/usbd/device/usb_device_stack.h"

#include <exception>
#include <stdexcept>

#include "platform/host/nt/scheduling/scheduler.h"

namespace lidcam::host {
namespace {

UsbDeviceStack*& StackOf(PDEVICE_OBJECT device) {
  return *static_cast<UsbDeviceStack**>(device->DeviceExtension);
}

NTSTATUS CompleteWith(PIRP irp, NTSTATUS status) {
  irp->IoStatus.Status = status;
  IofCompleteRequest(irp, IO_NO_INCREMENT);
  return status;
}

// Eight frames from one completion to the next with transfers of four, as between the interrupts of a host controller at
// its highest threshold.
constexpr LONGLONG kCompletionDelay = 4 * kFrameTime;

// A driver names a start frame some milliseconds ahead. On a kernel its thread is there in time; on a busy
// machine a thread is not, and the refusal would leave the stream without pictures. There each wake-up of a thread is a
// cost as well.
UsbStackOptions ForWorld(UsbStackOptions options) {
  if (CurrentWorld().IsPunctual()) return options;
  options.LooksAtEachRequest = false;
  options.CompletionDelay = kCompletionDelay;
  if (options.Frames == FrameRule::Strict) options.Frames = FrameRule::AsSoonAsPossible;
  return options;
}

}  // namespace

UsbDeviceStack::UsbDeviceStack(bus::UsbBus& bus, const UsbStackOptions& options)
    : server_(bus, ForWorld(options), Cancel) {
  InitializeDriverObject(driver_);
  driver_.MajorFunction[IRP_MJ_INTERNAL_DEVICE_CONTROL] = Dispatch;
  driver_.MajorFunction[IRP_MJ_PNP] = AnswerPlugAndPlay;
  driver_.MajorFunction[IRP_MJ_POWER] = AnswerPower;
  if (!NT_SUCCESS(IoCreateDevice(&driver_, sizeof(UsbDeviceStack*), nullptr, FILE_DEVICE_UNKNOWN, 0,
                                 FALSE, &physicalDevice_))) {
    throw std::runtime_error("the kernel gives no device object for the USB device");
  }
  StackOf(physicalDevice_) = this;
  physicalDevice_->Flags &= ~DO_DEVICE_INITIALIZING;
  try {
    server_.Start();
  } catch (const std::runtime_error&) {
    IoDeleteDevice(physicalDevice_);
    throw;
  }
}

UsbDeviceStack::~UsbDeviceStack() noexcept(false) {
  if (std::uncaught_exceptions() != 0) return;
  server_.Stop();
  IoDeleteDevice(physicalDevice_);
}

// The device exists as long as the stack itself: these requests all succeed. Data that only a
// driver above can fill in is left unchanged.
NTSTATUS UsbDeviceStack::AnswerPlugAndPlay(PDEVICE_OBJECT, PIRP irp) {
  switch (IoGetCurrentIrpStackLocation(irp)->MinorFunction) {
    case IRP_MN_START_DEVICE:
    case IRP_MN_QUERY_REMOVE_DEVICE:
    case IRP_MN_REMOVE_DEVICE:
    case IRP_MN_CANCEL_REMOVE_DEVICE:
    case IRP_MN_STOP_DEVICE:
    case IRP_MN_QUERY_STOP_DEVICE:
    case IRP_MN_CANCEL_STOP_DEVICE:
    case IRP_MN_QUERY_CAPABILITIES:
    case IRP_MN_SURPRISE_REMOVAL:
      return CompleteWith(irp, STATUS_SUCCESS);
    default:
      return CompleteWith(irp, irp->IoStatus.Status);
  }
}

NTSTATUS UsbDeviceStack::AnswerPower(PDEVICE_OBJECT, PIRP irp) {
  return CompleteWith(irp, STATUS_SUCCESS);
}

NTSTATUS UsbDeviceStack::Dispatch(PDEVICE_OBJECT device, PIRP irp) {
  return StackOf(device)->server_.Dispatch(irp);
}

void UsbDeviceStack::Cancel(PDEVICE_OBJECT device, PIRP irp) {
  StackOf(device)->server_.Cancel(irp);
}

}  // namespace lidcam::host
