#include "platform/host/ks/pin/requests/pin_properties.h"

#include "platform/host/ks/declarations/guid_of.h"
#include "platform/host/ks/formats/data_format.h"
#include "platform/host/ks/pin/pin_answer.h"
#include "platform/host/ks/pin/requests/clock_requests.h"
#include "platform/host/ks/pin/requests/pin_state.h"

namespace lidcam::host {
namespace {

NTSTATUS NTAPI GetState(PIRP irp, PKSIDENTIFIER, PVOID data) {
  return AnswerWith(irp, data, PinOf(irp).DeviceState);
}

NTSTATUS NTAPI SetState(PIRP irp, PKSIDENTIFIER, PVOID data) {
  // Read as a number: the application may have sent any.
  const ULONG state = *static_cast<const ULONG*>(data);
  if (state > KSSTATE_RUN) return STATUS_INVALID_PARAMETER;
  PinBlock& pin = PinOf(irp);
  pin.ClientState = static_cast<KSSTATE>(state);
  return SetPinState(pin, pin.ClientState);
}

NTSTATUS NTAPI GetPriority(PIRP irp, PKSIDENTIFIER, PVOID data) {
  return AnswerWith(irp, data, PinOf(irp).ConnectionPriority);
}

NTSTATUS NTAPI GetFormat(PIRP irp, PKSIDENTIFIER, PVOID data) {
  const KSDATAFORMAT& format = *PinOf(irp).ConnectionFormat;
  return AnswerWithBytes(irp, data, &format, format.FormatSize);
}

// The driver is called with the new format in place; a refusal restores the old one.
NTSTATUS NTAPI SetFormat(PIRP irp, PKSIDENTIFIER, PVOID data) {
  const ULONG bytes =
      IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl.OutputBufferLength;
  const auto* const proposed = static_cast<const KSDATAFORMAT*>(data);
  if (proposed == nullptr || !IsWholeFormat(*proposed, bytes)) return STATUS_INVALID_BUFFER_SIZE;
  PKSDATAFORMAT const format = CopyFormat(*proposed);
  if (format == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  PinBlock& pin = PinOf(irp);
  PKSDATAFORMAT const oldFormat = pin.ConnectionFormat;
  pin.ConnectionFormat = format;
  const NTSTATUS status = ChooseRange(pin, oldFormat);
  if (!NT_SUCCESS(status)) pin.ConnectionFormat = oldFormat;
  ExFreePool(NT_SUCCESS(status) ? oldFormat : format);
  return status;
}

NTSTATUS NTAPI GetFraming(PIRP irp, PKSIDENTIFIER, PVOID data) {
  const KSALLOCATOR_FRAMING_EX* const framing = PinOf(irp).Descriptor->AllocatorFraming;
  if (framing == nullptr) return STATUS_NOT_FOUND;
  const ULONG size = static_cast<ULONG>(offsetof(KSALLOCATOR_FRAMING_EX, FramingItem)) +
                     framing->CountItems * static_cast<ULONG>(sizeof(KS_FRAMING_ITEM));
  return AnswerWithBytes(irp, data, framing, size);
}

// Returns the handle as it was given, for the application to compare: it may have been closed
// since.
NTSTATUS NTAPI GetMasterClock(PIRP irp, PKSIDENTIFIER, PVOID data) {
  return AnswerWith(irp, data, PinOf(irp).MasterClockHandle);
}

NTSTATUS NTAPI SetMasterClock(PIRP irp, PKSIDENTIFIER, PVOID data) {
  PinBlock& pin = PinOf(irp);
  if (pin.DeviceState != KSSTATE_STOP) return STATUS_INVALID_DEVICE_STATE;
  HANDLE const handle = *static_cast<const HANDLE*>(data);
  IKsReferenceClock* clock = nullptr;
  if (handle != nullptr) {
    const NTSTATUS status = ReferenceClockOfHandle(handle, irp->RequestorMode, *pin.File, &clock);
    if (!NT_SUCCESS(status)) return status;
  }
  UseMasterClock(pin, clock, handle);
  return STATUS_SUCCESS;
}

constexpr KSPROPERTY_ITEM Item(ULONG id, PFNKSHANDLER get, ULONG minimumData, PFNKSHANDLER set) {
  KSPROPERTY_ITEM item{};
  item.PropertyId = id;
  item.GetPropertyHandler = get;
  item.SetPropertyHandler = set;
  item.MinProperty = sizeof(KSPROPERTY);
  item.MinData = minimumData;
  return item;
}

constexpr KSPROPERTY_ITEM kConnectionItems[] = {
    Item(KSPROPERTY_CONNECTION_STATE, GetState, sizeof(KSSTATE), SetState),
    Item(KSPROPERTY_CONNECTION_PRIORITY, GetPriority, sizeof(KSPRIORITY), nullptr),
    Item(KSPROPERTY_CONNECTION_DATAFORMAT, GetFormat, 0, SetFormat),
    Item(KSPROPERTY_CONNECTION_ALLOCATORFRAMING_EX, GetFraming, 0, nullptr),
};

constexpr KSPROPERTY_ITEM kStreamItems[] = {
    Item(KSPROPERTY_STREAM_MASTERCLOCK, GetMasterClock, sizeof(HANDLE), SetMasterClock),
};

constexpr GUID kConnectionSet = GuidOf(STATIC_KSPROPSETID_Connection);
constexpr GUID kStreamSet = GuidOf(STATIC_KSPROPSETID_Stream);

constexpr KSPROPERTY_SET kPinSets[] = {
    {&kConnectionSet, static_cast<ULONG>(sizeof(kConnectionItems) / sizeof(KSPROPERTY_ITEM)),
     kConnectionItems, 0, nullptr},
    {&kStreamSet, static_cast<ULONG>(sizeof(kStreamItems) / sizeof(KSPROPERTY_ITEM)), kStreamItems,
     0, nullptr},
};

}  // namespace

void UseMasterClock(PinBlock& pin, IKsReferenceClock* clock, HANDLE handle) {
  if (pin.MasterClock != nullptr) pin.MasterClock->Release();
  pin.MasterClock = clock;
  pin.MasterClockHandle = handle;
}

constinit const KSAUTOMATION_TABLE kPinAutomation = {
    .PropertySetsCount = static_cast<ULONG>(sizeof(kPinSets) / sizeof(KSPROPERTY_SET)),
    .PropertyItemSize = sizeof(KSPROPERTY_ITEM),
    .PropertySets = kPinSets,
    .MethodSetsCount = 0,
    .MethodItemSize = 0,
    .MethodSets = nullptr,
    .EventSetsCount = 0,
    .EventItemSize = 0,
    .EventSets = nullptr,
};

}  // namespace lidcam::host
