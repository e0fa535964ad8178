#include "tests/on_wine/bus/bus_device.h"

#include <chrono>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

#include "tests/on_wine/bus_requests.h"

namespace lidcam::wine {
namespace {

constexpr wchar_t kDeviceName[] = L"\\Device\\LidcamBus";
constexpr wchar_t kLinkName[] = L"\\DosDevices\\LidcamBus";
constexpr ULONG kPoolTag = 0x6263694C;  // "Licb"

UNICODE_STRING TextOf(const wchar_t* text) {
  UNICODE_STRING result{};
  RtlInitUnicodeString(&result, text);
  return result;
}

/// The text of a buffered request.
std::string_view InputOf(PIRP irp) {
  return {static_cast<const char*>(irp->AssociatedIrp.SystemBuffer),
          IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl.InputBufferLength};
}

/// Requests of user mode are processed one at a time: this is the longest wait.
constexpr std::chrono::seconds kPatience{10};

NTSTATUS AskForUnload(std::string_view service) {
  std::wstring key = L"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\";
  key.append(service.begin(), service.end());
  UNICODE_STRING text = TextOf(key.c_str());
  return ZwUnloadDriver(&text);
}

}  // namespace

BusDevice::BusDevice(PDRIVER_OBJECT driver, PDEVICE_OBJECT physicalDevice)
    : driver_(driver), physicalDevice_(physicalDevice) {
  device_ = CreateDevice(driver, kDeviceName, FILE_DEVICE_BUS_EXTENDER, 0);
  below_ = IoAttachDeviceToDeviceStack(device_, physicalDevice);
  if (below_ == nullptr) {
    IoDeleteDevice(device_);
    throw std::runtime_error("the bus can't be attached to its physical device");
  }
  device_->Flags &= ~static_cast<ULONG>(DO_DEVICE_INITIALIZING);
}

BusDevice::~BusDevice() {
  camera_.reset();
  if (hasLink_) {
    UNICODE_STRING link = TextOf(kLinkName);
    IoDeleteSymbolicLink(&link);
  }
  IoDetachDevice(below_);
  IoDeleteDevice(device_);
}

NTSTATUS BusDevice::Forward(PIRP irp) {
  IoSkipCurrentIrpStackLocation(irp);
  return IofCallDriver(below_, irp);
}

NTSTATUS BusDevice::Power(PIRP irp) {
  PoStartNextPowerIrp(irp);
  IoSkipCurrentIrpStackLocation(irp);
  return PoCallDriver(below_, irp);
}

NTSTATUS BusDevice::PlugAndPlay(PIRP irp) {
  const IO_STACK_LOCATION& location = *IoGetCurrentIrpStackLocation(irp);
  switch (location.MinorFunction) {
    case IRP_MN_START_DEVICE:
      return Start(irp);
    case IRP_MN_QUERY_DEVICE_RELATIONS:
      if (location.Parameters.QueryDeviceRelations.Type != BusRelations) return Forward(irp);
      return TellChildren(irp);
    case IRP_MN_REMOVE_DEVICE:
      return Remove(irp);
    case IRP_MN_SURPRISE_REMOVAL:
    case IRP_MN_QUERY_REMOVE_DEVICE:
    case IRP_MN_CANCEL_REMOVE_DEVICE:
    case IRP_MN_QUERY_STOP_DEVICE:
    case IRP_MN_CANCEL_STOP_DEVICE:
    case IRP_MN_STOP_DEVICE:
      irp->IoStatus.Status = STATUS_SUCCESS;
      return Forward(irp);
    default:
      return Forward(irp);
  }
}

// The kernel itself made the device below: there is no hardware to wait for.
NTSTATUS BusDevice::Start(PIRP irp) {
  UNICODE_STRING link = TextOf(kLinkName);
  UNICODE_STRING name = TextOf(kDeviceName);
  if (!hasLink_) {
    const NTSTATUS status = IoCreateSymbolicLink(&link, &name);
    if (!NT_SUCCESS(status)) return Complete(irp, status);
    hasLink_ = true;
  }
  irp->IoStatus.Status = STATUS_SUCCESS;
  return Forward(irp);
}

NTSTATUS BusDevice::TellChildren(PIRP irp) {
  auto* const relations = static_cast<PDEVICE_RELATIONS>(
      ExAllocatePoolWithTag(PagedPool, sizeof(DEVICE_RELATIONS), kPoolTag));
  if (relations == nullptr) return Complete(irp, STATUS_INSUFFICIENT_RESOURCES);
  relations->Count = 0;
  {
    const std::lock_guard lock(mutex_);
    ++timesTold_;
    progress_.notify_all();
    if (isPresent_) {
      isKnown_ = true;
      relations->Objects[relations->Count++] = camera_->PhysicalDevice();
      ObReferenceObject(camera_->PhysicalDevice());
    }
  }
  irp->IoStatus.Information = reinterpret_cast<ULONG_PTR>(relations);
  irp->IoStatus.Status = STATUS_SUCCESS;
  return Forward(irp);
}

NTSTATUS BusDevice::Remove(PIRP irp) {
  irp->IoStatus.Status = STATUS_SUCCESS;
  const NTSTATUS status = Forward(irp);
  delete this;
  return status;
}

NTSTATUS BusDevice::DeviceControl(PIRP irp) {
  irp->IoStatus.Information = 0;
  switch (IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl.IoControlCode) {
    case kPlugIn:
      return Complete(irp, PlugIn(InputOf(irp)));
    case kPullOut:
      return Complete(irp, PullOut());
    case kUnloadDriver:
      return Complete(irp, UnloadDriver(InputOf(irp)));
    default:
      return Complete(irp, STATUS_INVALID_DEVICE_REQUEST);
  }
}

NTSTATUS BusDevice::PlugIn(std::string_view options) {
  {
    const std::lock_guard lock(mutex_);
    if (camera_ != nullptr) return STATUS_DEVICE_BUSY;
    try {
      camera_ = std::make_unique<CameraDevice>(driver_, *this, options);
    } catch (const std::exception& error) {
      DbgPrint("camera_bus: %s\n", error.what());
      return STATUS_INVALID_PARAMETER;
    }
    isPresent_ = true;
    isKnown_ = false;
  }
  IoInvalidateDeviceRelations(physicalDevice_, BusRelations);
  return STATUS_SUCCESS;
}

NTSTATUS BusDevice::PullOut() {
  std::unique_ptr<CameraDevice> unseen;
  {
    const std::lock_guard lock(mutex_);
    if (!isPresent_) return STATUS_NO_SUCH_DEVICE;
    isPresent_ = false;
    camera_->PullPlug();
    if (!isKnown_) unseen = std::move(camera_);
  }
  unseen.reset();
  IoInvalidateDeviceRelations(physicalDevice_, BusRelations);
  return STATUS_SUCCESS;
}

std::unique_ptr<CameraDevice> BusDevice::TakePulledOut() {
  const std::lock_guard lock(mutex_);
  if (isPresent_) return nullptr;
  progress_.notify_all();
  return std::move(camera_);
}

// After the last request to the camera's device, the drivers above are still at work. The kernel
// queries the children on the thread of its removals: when it does, the previous removal is over.
bool BusDevice::WaitForRemoval() {
  std::uint64_t told = 0;
  {
    std::unique_lock lock(mutex_);
    if (!progress_.wait_for(lock, kPatience, [this] { return camera_ == nullptr; })) return false;
    told = timesTold_;
  }
  IoInvalidateDeviceRelations(physicalDevice_, BusRelations);
  std::unique_lock lock(mutex_);
  return progress_.wait_for(lock, kPatience, [this, told] { return timesTold_ != told; });
}

NTSTATUS BusDevice::UnloadDriver(std::string_view service) {
  {
    const std::lock_guard lock(mutex_);
    if (isPresent_) return STATUS_DEVICE_BUSY;
  }
  return WaitForRemoval() ? AskForUnload(service) : STATUS_IO_TIMEOUT;
}

}  // namespace lidcam::wine
