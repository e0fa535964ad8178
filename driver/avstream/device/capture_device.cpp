#include "driver/avstream/device/capture_device.h"

#include <new>

#include "driver/avstream/descriptors/filter_descriptors.h"
#include "driver/avstream/properties/property_requests.h"
#include "driver/core/base/camera_memory.h"
#include "driver/core/base/camera_trace.h"
#include "driver/core/control/camera_lifecycle.h"
#include "driver/core/record/timed_wait.h"

namespace lidcam {
namespace {

// A camera record that a failed start has left is freed with the object.
void NTAPI DestroyCaptureDevice(PVOID object) {
  CameraContext* const camera = static_cast<CaptureDevice*>(object)->Camera;
  if (camera != nullptr) DestroyCameraContext(camera);
  ExFreePool(object);
}

struct PlatformLevel {
  UCHAR Major;
  UCHAR Minor;
  std::int32_t WdmLevel;
};

// Queried in this order; the first supported level counts.
constexpr PlatformLevel kPlatformLevels[] = {{1, 0x20, 4}, {1, 0x10, 3}, {1, 5, 2}, {1, 0, 1}};
constexpr std::int32_t kUnknownPlatformLevel = 5;

// Below this level the hardware can't start before the platform has finished the start itself.
constexpr std::int32_t kStartsInStart = 3;

std::int32_t QueryPlatformLevel() {
  for (const PlatformLevel& level : kPlatformLevels) {
    if (IoIsWdmVersionAvailable(level.Major, level.Minor) != FALSE) return level.WdmLevel;
  }
  return kUnknownPlatformLevel;
}

PropertyBuffer BufferOf(PIRP irp, void* data) {
  const IO_STACK_LOCATION& location = *IoGetCurrentIrpStackLocation(irp);
  const ULONG length = location.Parameters.DeviceIoControl.OutputBufferLength;
  return {data, data != nullptr ? length : 0, &irp->IoStatus.Information};
}

using PropertyOperation = NTSTATUS (*)(CameraContext& camera, const KSIDENTIFIER& request,
                                       const PropertyBuffer& buffer);

NTSTATUS AnswerProperty(CaptureDevice& device, PropertyOperation operation, PIRP irp,
                        const void* request, void* data) {
  if (device.HardwareStarted == 0) return STATUS_UNSUCCESSFUL;
  const CameraHold hold(device);
  if (hold.Camera() == nullptr) return STATUS_UNSUCCESSFUL;
  return operation(*hold.Camera(), *static_cast<const KSIDENTIFIER*>(request), BufferOf(irp, data));
}

constexpr std::uint32_t kRemoved = 0;
constexpr std::uint32_t kSurpriseRemoved = 3;

}  // namespace

CaptureDevice::CaptureDevice(PKSDEVICE device) : KsDevice(device) {
  KeInitializeSpinLock(&frameMemoryLock_);
}

NTSTATUS CaptureDevice::Bind(PKSDEVICE device) {
  KsAcquireDevice(device);
  const NTSTATUS status = KsAddItemToObjectBag(device->Bag, this, DestroyCaptureDevice);
  KsReleaseDevice(device);
  if (!NT_SUCCESS(status)) return status;
  device->Context = this;
  WdmLevel = QueryPlatformLevel();
  return status;
}

// A block that the bag refuses has no owner: it is freed here.
NTSTATUS CaptureDevice::PublishFilter(PKSDEVICE device) {
  const NTSTATUS status = KsAddItemToObjectBag(device->Bag, FilterDescriptor, nullptr);
  if (!NT_SUCCESS(status)) {
    FreeCameraMemory(FilterDescriptor);
    FilterDescriptor = nullptr;
    return status;
  }
  const FilterEntries& filter = *Filter;
  FillFilterDescriptor(*filter.Dispatch, *filter.AutomationTable, *FilterDescriptor);
  return KsCreateFilterFactory(device->FunctionalDeviceObject, FilterDescriptor, nullptr, nullptr,
                               KSCREATE_ITEM_FREEONSTOP, nullptr, nullptr, nullptr);
}

NTSTATUS CaptureDevice::StartAndNote(PKSDEVICE device) {
  const NTSTATUS status = StartHardware(device);
  HardwareStarted = NT_SUCCESS(status) ? 1 : 0;
  return status;
}

NTSTATUS CaptureDevice::PnpStart(PKSDEVICE device, PIRP, PCM_RESOURCE_LIST, PCM_RESOURCE_LIST) {
  if (device->Started != FALSE) return STATUS_DEVICE_DATA_ERROR;
  void* const memory = AllocateCameraMemory(sizeof(KSFILTER_DESCRIPTOR));
  if (memory == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  FilterDescriptor = ::new (memory) KSFILTER_DESCRIPTOR{};
  KsAcquireDevice(device);
  const NTSTATUS status = PublishFilter(device);
  KsReleaseDevice(device);
  TraceCamera(nullptr, "device filter -> %08X", static_cast<unsigned>(status));
  return WdmLevel < kStartsInStart ? status : StartAndNote(device);
}

NTSTATUS CaptureDevice::PnpPostStart(PKSDEVICE device) {
  return WdmLevel < kStartsInStart ? StartAndNote(device) : STATUS_SUCCESS;
}

NTSTATUS CaptureDevice::PnpQueryStop(PKSDEVICE, PIRP) {
  return STATUS_SUCCESS;
}

void CaptureDevice::PnpCancelStop(PKSDEVICE, PIRP) {}

void CaptureDevice::PnpStop(PKSDEVICE, PIRP) {}

NTSTATUS CaptureDevice::PnpQueryRemove(PKSDEVICE, PIRP) {
  return STATUS_SUCCESS;
}

void CaptureDevice::PnpCancelRemove(PKSDEVICE, PIRP) {}

// A failed restart of the hardware may have left a recovery of the previous start.
void CaptureDevice::PnpRemove(PKSDEVICE, PIRP) {
  if (HardwareStarted == 0) {
    WaitForWorkItems();
    return;
  }
  HardwareStarted = 0;
  OnDeviceGone(kRemoved);
  StopHardware();
}

void CaptureDevice::PnpSurpriseRemoval(PKSDEVICE, PIRP) {
  HardwareStarted = 0;
  OnDeviceGone(kSurpriseRemoved);
  StopHardware();
}

NTSTATUS CaptureDevice::PnpQueryCapabilities(PKSDEVICE, PIRP, PDEVICE_CAPABILITIES capabilities) {
  capabilities->Removable = 1;
  capabilities->SurpriseRemovalOK = 1;
  return STATUS_SUCCESS;
}

NTSTATUS CaptureDevice::PnpQueryInterface(PKSDEVICE, PIRP) {
  return STATUS_SUCCESS;
}

NTSTATUS CaptureDevice::PowerQuery(PKSDEVICE, PIRP, DEVICE_POWER_STATE, DEVICE_POWER_STATE,
                                   SYSTEM_POWER_STATE, SYSTEM_POWER_STATE, POWER_ACTION) {
  return STATUS_SUCCESS;
}

void CaptureDevice::PowerSet(PKSDEVICE, PIRP, DEVICE_POWER_STATE to, DEVICE_POWER_STATE from) {
  const DEVICE_POWER_STATE current = DevicePowerState;
  if (to == current || HardwareStarted == 0) return;
  if (to == PowerDeviceD0 && current == PowerDeviceD3) PowerUp(to, from, StreamVideoInfo);
  if (to == PowerDeviceD3) PowerDown(to, from);
  DevicePowerState = to;
  TraceCamera(nullptr, "device power D%d", static_cast<int>(to) - static_cast<int>(PowerDeviceD0));
}

NTSTATUS CaptureDevice::SetCameraProperty(PIRP irp, void* request, void* data) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  return AnswerProperty(*this, lidcam::SetCameraProperty, irp, request, data);
}

NTSTATUS CaptureDevice::GetCameraProperty(PIRP irp, void* request, void* data) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  return AnswerProperty(*this, lidcam::GetCameraProperty, irp, request, data);
}

NTSTATUS CaptureDevice::AcquireStreamSlot(PKSPIN, PKS_VIDEOINFOHEADER videoInfo) {
  if (InterlockedCompareExchange(&StreamSlot, 1, 0) != 0) return STATUS_SHARING_VIOLATION;
  StreamVideoInfo = videoInfo;
  return STATUS_SUCCESS;
}

void CaptureDevice::ReleaseStreamSlot() {
  StreamVideoInfo = nullptr;
  InterlockedExchange(&StreamSlot, 0);
}

CameraContext* CaptureDevice::HoldCamera() {
  RequireLevelAtMost(DISPATCH_LEVEL);
  if (!cameraUse_.Enter()) return nullptr;
  CameraContext* const camera = Camera;
  if (camera == nullptr) cameraUse_.Leave();
  return camera;
}

void CaptureDevice::LetGoOfCamera() {
  RequireLevelAtMost(DISPATCH_LEVEL);
  cameraUse_.Leave();
}

void CaptureDevice::AbandonCamera() {
  RequireLevelAtMost(PASSIVE_LEVEL);
  cameraUse_.Abandon();
}

CameraContext* CaptureDevice::TakeCamera() {
  RequireLevelAtMost(PASSIVE_LEVEL);
  cameraUse_.Close();
  CameraContext* const camera = Camera;
  Camera = nullptr;
  cameraUse_.Open();
  return camera;
}

void CaptureDevice::WaitForWorkItems() {
  RequireLevelAtMost(PASSIVE_LEVEL);
  while (InterlockedCompareExchange(&workItems_, 0, 0) != 0) SleepOnePoll();
}

std::uint8_t* CaptureDevice::HoldRawFrame(std::uint32_t& size, ReferenceCountedMemory*& memory) {
  RequireLevelAtMost(DISPATCH_LEVEL);
  memory = nullptr;
  KIRQL before = 0;
  KeAcquireSpinLock(&frameMemoryLock_, &before);
  ReferenceCountedMemory* const held = frameMemory_;
  std::uint8_t* const frame = GetRawFrame(size);
  if (held != nullptr && frame != nullptr) Hold(*held);
  KeReleaseSpinLock(&frameMemoryLock_, before);
  if (held == nullptr || frame == nullptr) return nullptr;
  // A frame published by the previous stream lies in other memory.
  const auto begin = reinterpret_cast<std::uintptr_t>(held->Block);
  const auto at = reinterpret_cast<std::uintptr_t>(frame);
  if (at < begin || at - begin >= held->Size) {
    LetGo(*held);
    return nullptr;
  }
  memory = held;
  return frame;
}

void CaptureDevice::SetFrameMemory(ReferenceCountedMemory* memory) {
  RequireLevelAtMost(DISPATCH_LEVEL);
  KIRQL before = 0;
  KeAcquireSpinLock(&frameMemoryLock_, &before);
  frameMemory_ = memory;
  KeReleaseSpinLock(&frameMemoryLock_, before);
}

}  // namespace lidcam
