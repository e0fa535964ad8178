// Creation and destruction of a pin for an application.

#include <new>

#include "platform/host/ks/device/device_block.h"
#include "platform/host/ks/formats/data_format.h"
#include "platform/host/ks/pin/pin_block.h"
#include "platform/host/ks/pin/requests/pin_state.h"

namespace lidcam::host {
namespace {

constexpr ULONG kPinTag = 0x6E50534B;  // "KSPn"

bool IsAmong(const KSIDENTIFIER& wanted, const KSIDENTIFIER* list, ULONG count) {
  for (ULONG i = 0; i < count; ++i) {
    if (IsSameGuid(wanted.Set, list[i].Set) && wanted.Id == list[i].Id) return true;
  }
  return false;
}

const KSDATAFORMAT& FormatBehind(const KSPIN_CONNECT& connect) {
  return *reinterpret_cast<const KSDATAFORMAT*>(&connect + 1);
}

NTSTATUS CheckConnection(const PinFactoryBlock& factory, const KSPIN_CONNECT& connect,
                         ULONG formatBytes) {
  const KSPIN_DESCRIPTOR& descriptor = factory.Descriptor.PinDescriptor;
  if (factory.CurrentPins >= factory.Descriptor.InstancesPossible) {
    return STATUS_CONNECTION_REFUSED;
  }
  if (!IsAmong(connect.Interface, descriptor.Interfaces, descriptor.InterfacesCount) ||
      !IsAmong(connect.Medium, descriptor.Mediums, descriptor.MediumsCount)) {
    return STATUS_NO_MATCH;
  }
  // Applications read the frames; a connection to another filter's pin is unsupported.
  if (connect.PinToHandle != nullptr) return STATUS_CONNECTION_REFUSED;
  return formatBytes >= sizeof(KSDATAFORMAT) && IsWholeFormat(FormatBehind(connect), formatBytes)
             ? STATUS_SUCCESS
             : STATUS_INVALID_BUFFER_SIZE;
}

void FillPin(PinBlock& pin, FilterBlock& filter, PinFactoryBlock& factory,
             const KSPIN_CONNECT& connect) {
  const KSPIN_DESCRIPTOR_EX& descriptor = factory.Descriptor;
  pin.Filter = &filter;
  pin.Factory = &factory;
  pin.Descriptor = &descriptor;
  pin.Id = factory.Id;
  pin.Communication = KSPIN_COMMUNICATION_SINK;
  pin.ConnectionIsExternal = TRUE;
  pin.ConnectionInterface = connect.Interface;
  pin.ConnectionMedium = connect.Medium;
  pin.ConnectionPriority = connect.Priority;
  pin.DataFlow = descriptor.PinDescriptor.DataFlow;
  pin.Process = descriptor.Dispatch != nullptr ? descriptor.Dispatch->Process : nullptr;
  pin.ProcessesWithoutFrames =
      (descriptor.Flags & KSPIN_FLAG_FRAMES_NOT_REQUIRED_FOR_PROCESSING) != 0;
  pin.ProcessesFrom =
      (descriptor.Flags & KSPIN_FLAG_PROCESS_IN_RUN_STATE_ONLY) != 0 ? KSSTATE_RUN : KSSTATE_PAUSE;
}

NTSTATUS GiveResources(PinBlock& pin, const KSDATAFORMAT& format) {
  pin.Clock = PinClock::Make();
  pin.ConnectionFormat = CopyFormat(format);
  if (pin.Clock == nullptr || pin.ConnectionFormat == nullptr) {
    return STATUS_INSUFFICIENT_RESOURCES;
  }
  return pin.Worker.Start();
}

NTSTATUS LetDriverCreate(PinBlock& pin, PIRP irp) {
  const NTSTATUS status = ChooseRange(pin, nullptr);
  if (!NT_SUCCESS(status)) return status;
  const KSPIN_DISPATCH* const dispatch = DispatchOf(pin);
  return dispatch != nullptr && dispatch->Create != nullptr ? dispatch->Create(&pin, irp)
                                                            : STATUS_SUCCESS;
}

// A device's removal finds its pins by this list.
void LinkToDevice(PinBlock& pin) {
  AcquireMutex(*pin.Device);
  InsertTailList(&pin.Device->Pins, &pin.InDevice.Entry);
  ReleaseMutex(*pin.Device);
}

void UnlinkFromDevice(PinBlock& pin) {
  AcquireMutex(*pin.Device);
  RemoveEntryList(&pin.InDevice.Entry);
  ReleaseMutex(*pin.Device);
}

void FreePin(PinBlock& pin) {
  pin.Worker.End();
  pin.Items.Empty();
  if (pin.MasterClock != nullptr) pin.MasterClock->Release();
  if (pin.Clock != nullptr) pin.Clock->Release();
  if (pin.ConnectionFormat != nullptr) ExFreePool(pin.ConnectionFormat);
  ExFreePool(&pin);
}

NTSTATUS MakePin(FilterBlock& filter, PinFactoryBlock& factory, PIRP irp,
                 const KSPIN_CONNECT& connect) {
  PVOID const memory = ExAllocatePoolWithTag(NonPagedPool, sizeof(PinBlock), kPinTag);
  if (memory == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  PinBlock& pin = *new (memory) PinBlock(*filter.Head.Device);
  FillPin(pin, filter, factory, connect);
  pin.File = IoGetCurrentIrpStackLocation(irp)->FileObject;
  pin.File->FsContext = static_cast<ObjectHead*>(&pin);
  ++factory.CurrentPins;
  NTSTATUS status = GiveResources(pin, FormatBehind(connect));
  if (NT_SUCCESS(status)) status = LetDriverCreate(pin, irp);
  if (NT_SUCCESS(status)) {
    LinkToDevice(pin);
    return status;
  }
  --factory.CurrentPins;
  pin.File->FsContext = nullptr;
  FreePin(pin);
  return status;
}

}  // namespace

PinBlock::PinBlock(DeviceBlock& device)
    : ObjectHead{KsObjectKind::Pin, &device},
      KSPIN{},
      Items(device.Device.Mutex),
      Frames(this),
      Worker(*this) {
  Bag = &Items;
  DeviceState = KSSTATE_STOP;
  ClientState = KSSTATE_STOP;
  ResetState = KSRESET_END;
}

NTSTATUS ChooseRange(PinBlock& pin, PKSDATAFORMAT oldFormat) {
  const KSPIN_DESCRIPTOR& descriptor = pin.Descriptor->PinDescriptor;
  const KSPIN_DISPATCH* const dispatch = DispatchOf(pin);
  NTSTATUS status = STATUS_NO_MATCH;
  for (ULONG i = 0; i < descriptor.DataRangesCount; ++i) {
    const KSDATARANGE* const range = descriptor.DataRanges[i];
    if (range == nullptr || !FitsRange(*pin.ConnectionFormat, *range)) continue;
    status = dispatch != nullptr && dispatch->SetDataFormat != nullptr
                 ? dispatch->SetDataFormat(&pin, oldFormat, nullptr, range, nullptr)
                 : STATUS_SUCCESS;
    // With any other failure the range matched, and the driver refused the connection.
    if (status == STATUS_NO_MATCH) continue;
    if (NT_SUCCESS(status)) pin.Range = range;
    return status;
  }
  return status;
}

NTSTATUS CreatePin(FilterBlock& filter, PIRP irp, const KSPIN_CONNECT& connect,
                   ULONG connectBytes) {
  if (connectBytes < sizeof(KSPIN_CONNECT)) return STATUS_INVALID_BUFFER_SIZE;
  const ControlCall control(filter, ClassCall::PinCreate);
  PinFactoryBlock* const factory = FindPinFactory(filter, connect.PinId);
  NTSTATUS status = STATUS_INVALID_PARAMETER;
  if (factory != nullptr) {
    status = CheckConnection(*factory, connect,
                             connectBytes - static_cast<ULONG>(sizeof(KSPIN_CONNECT)));
    if (NT_SUCCESS(status)) status = MakePin(filter, *factory, irp, connect);
  }
  if (NT_SUCCESS(status)) ReferenceFilter(filter);
  return status;
}

void CleanUpPin(ObjectHead& head) {
  PinBlock& pin = PinOf(head);
  const ControlCall control(*pin.Filter, ClassCall::PinClose);
  StopPin(pin);
}

void ClosePin(ObjectHead& head, PIRP irp) {
  PinBlock& pin = PinOf(head);
  FilterBlock& filter = *pin.Filter;
  UnlinkFromDevice(pin);
  {
    const ControlCall control(filter, ClassCall::PinClose);
    StopPin(pin);
    const KSPIN_DISPATCH* const dispatch = DispatchOf(pin);
    if (dispatch != nullptr && dispatch->Close != nullptr) dispatch->Close(&pin, irp);
    --pin.Factory->CurrentPins;
    pin.File->FsContext = nullptr;
    FreePin(pin);
  }
  ReleaseFilter(filter);
}

FilterBlock& FilterOfPin(ObjectHead& head) {
  return *PinOf(head).Filter;
}

}  // namespace lidcam::host

void KsPinAttemptProcessing(PKSPIN pin, BOOLEAN) {
  lidcam::host::PinOf(pin).Worker.Attempt();
}

PKSSTREAM_POINTER KsPinGetLeadingEdgeStreamPointer(PKSPIN pin, KSSTREAM_POINTER_STATE state) {
  return lidcam::host::PinOf(pin).Frames.LeadingEdge(state);
}

void KsStreamPointerUnlock(PKSSTREAM_POINTER pointer, BOOLEAN eject) {
  lidcam::host::PinOf(pointer->Pin).Frames.Unlock(eject != FALSE);
}

NTSTATUS KsPinGetReferenceClockInterface(PKSPIN pin, PIKSREFERENCECLOCK* clock) {
  IKsReferenceClock* const master = lidcam::host::PinOf(pin).MasterClock;
  *clock = master;
  if (master == nullptr) return STATUS_UNSUCCESSFUL;
  master->AddRef();
  return STATUS_SUCCESS;
}
