// Files that applications open on a pin's clock.

#include "platform/host/ks/pin/requests/clock_requests.h"

#include "platform/host/ks/declarations/guid_of.h"
#include "platform/host/ks/pin/pin_answer.h"
#include "platform/host/ks/pin/pin_block.h"

namespace lidcam::host {
namespace {

constexpr ULONG kClockFileTag = 0x6643534B;  // "KSCf"

/// An opened clock. The time is shared with the pin, which may be destroyed first.
struct ClockBlock : ObjectHead {
  PinClock* Clock;
};

PinClock& ClockOf(PIRP irp) {
  PVOID const head = IoGetCurrentIrpStackLocation(irp)->FileObject->FsContext;
  return *static_cast<ClockBlock*>(static_cast<ObjectHead*>(head))->Clock;
}

NTSTATUS NTAPI GetTime(PIRP irp, PKSIDENTIFIER, PVOID data) {
  return AnswerWith(irp, data, ClockOf(irp).GetTime());
}

NTSTATUS NTAPI GetResolution(PIRP irp, PKSIDENTIFIER, PVOID data) {
  KSRESOLUTION resolution{};
  ClockOf(irp).GetResolution(&resolution);
  return AnswerWith(irp, data, resolution);
}

NTSTATUS NTAPI GetClockState(PIRP irp, PKSIDENTIFIER, PVOID data) {
  KSSTATE state = KSSTATE_STOP;
  ClockOf(irp).GetState(&state);
  return AnswerWith(irp, data, state);
}

constexpr KSPROPERTY_ITEM Item(ULONG id, PFNKSHANDLER get, ULONG size) {
  KSPROPERTY_ITEM item{};
  item.PropertyId = id;
  item.GetPropertyHandler = get;
  item.MinProperty = sizeof(KSPROPERTY);
  item.MinData = size;
  return item;
}

constexpr KSPROPERTY_ITEM kClockItems[] = {
    Item(KSPROPERTY_CLOCK_TIME, GetTime, sizeof(LONGLONG)),
    Item(KSPROPERTY_CLOCK_RESOLUTION, GetResolution, sizeof(KSRESOLUTION)),
    Item(KSPROPERTY_CLOCK_STATE, GetClockState, sizeof(KSSTATE)),
};

constexpr GUID kClockSet = GuidOf(STATIC_KSPROPSETID_Clock);
constexpr KSPROPERTY_SET kClockSets[] = {
    {&kClockSet, static_cast<ULONG>(sizeof(kClockItems) / sizeof(KSPROPERTY_ITEM)), kClockItems, 0,
     nullptr},
};

constexpr KSAUTOMATION_TABLE kClockAutomation = {
    .PropertySetsCount = 1,
    .PropertyItemSize = sizeof(KSPROPERTY_ITEM),
    .PropertySets = kClockSets,
    .MethodSetsCount = 0,
    .MethodItemSize = 0,
    .MethodSets = nullptr,
    .EventSetsCount = 0,
    .EventItemSize = 0,
    .EventSets = nullptr,
};

// The headers of mingw-w64 declare the imported variable with one level of pointers too many.
POBJECT_TYPE FileObjectType() {
  return reinterpret_cast<POBJECT_TYPE>(IoFileObjectType);
}

bool IsClockOf(const FILE_OBJECT& file, const FILE_OBJECT& sibling) {
  return file.Type == IO_TYPE_FILE && file.DeviceObject == sibling.DeviceObject &&
         file.FsContext != nullptr &&
         static_cast<ObjectHead*>(file.FsContext)->Kind == KsObjectKind::Clock;
}

}  // namespace

NTSTATUS CreateClock(ObjectHead& pin, PIRP irp) {
  auto* const clock = static_cast<ClockBlock*>(
      ExAllocatePoolWithTag(NonPagedPool, sizeof(ClockBlock), kClockFileTag));
  if (clock == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  *clock = {{KsObjectKind::Clock, pin.Device}, PinOf(pin).Clock};
  clock->Clock->AddRef();
  IoGetCurrentIrpStackLocation(irp)->FileObject->FsContext = static_cast<ObjectHead*>(clock);
  return STATUS_SUCCESS;
}

void CloseClock(ObjectHead& head) {
  auto& clock = static_cast<ClockBlock&>(head);
  clock.Clock->Release();
  ExFreePool(&clock);
}

NTSTATUS DispatchClockControl(ObjectHead&, PIRP irp) {
  irp->IoStatus.Information = 0;
  const ULONG code = IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl.IoControlCode;
  if (code != IOCTL_KS_PROPERTY) return CompleteRequest(irp, STATUS_INVALID_DEVICE_REQUEST);
  constexpr const KSAUTOMATION_TABLE* kTables[] = {&kClockAutomation};
  return CompleteRequest(irp, AnswerProperty(irp, kTables, 1));
}

NTSTATUS ReferenceClockOfFile(const FILE_OBJECT& file, const FILE_OBJECT& sibling,
                              IKsReferenceClock** clock) {
  if (!IsClockOf(file, sibling)) return STATUS_INVALID_PARAMETER;
  auto& opened = *static_cast<ClockBlock*>(static_cast<ObjectHead*>(file.FsContext));
  opened.Clock->AddRef();
  *clock = opened.Clock;
  return STATUS_SUCCESS;
}

NTSTATUS ReferenceClockOfHandle(HANDLE handle, KPROCESSOR_MODE mode, const FILE_OBJECT& sibling,
                                IKsReferenceClock** clock) {
  PVOID object = nullptr;
  NTSTATUS status = ObReferenceObjectByHandle(handle, 0, FileObjectType(), mode, &object, nullptr);
  if (!NT_SUCCESS(status)) return status;
  status = ReferenceClockOfFile(*static_cast<const FILE_OBJECT*>(object), sibling, clock);
  ObDereferenceObject(object);
  return status;
}

}  // namespace lidcam::host
