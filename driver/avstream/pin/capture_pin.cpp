#include "driver/avstream/pin/capture_pin.h"

#include <cstring>
#include <new>

#include "driver/avstream/pin/capture_pin_formats.h"
#include "driver/avstream/pin/capture_pin_locks.h"
#include "driver/core/base/camera_memory.h"
#include "driver/core/base/camera_trace.h"

namespace lidcam {
namespace {

constexpr ULONG kPinTag = 0x774E434B;   // "KCNw"
constexpr ULONG kEditTag = 0x56417251;  // "QrAV"

// A pin may be closed without the stop that follows a refused acquire: slot and clock, if not
// released here, would be lost to every later pin.
void NTAPI DestroyCapturePin(PVOID object) {
  static_cast<CapturePin*>(object)->GiveUpStream();
  ExFreePool(object);
}

CapturePin& PinOf(PKSPIN pin) {
  return *static_cast<CapturePin*>(pin->Context);
}

// Replaces a record that the platform has set in the pin by the pin's own copy.
template <typename T>
NTSTATUS MakeOwn(KSOBJECT_BAG bag, const T*& record) {
  PVOID item = const_cast<T*>(record);
  const NTSTATUS status = _KsEdit(bag, &item, sizeof(T), sizeof(T), kEditTag);
  record = static_cast<const T*>(item);
  return status;
}

// ---- Entries.

// The bag frees the object once it owns it.
NTSTATUS NTAPI CreatePin(PKSPIN pin, PIRP irp) {
  void* const memory = ExAllocatePoolWithTag(NonPagedPool, sizeof(CapturePin), kPinTag);
  if (memory == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  auto* const object = ::new (memory) CapturePin(pin, CaptureDeviceOf(KsGetDevice(pin)));
  const NTSTATUS status = object->Create(pin, irp);
  if (!NT_SUCCESS(status) && pin->Context != object) DestroyCapturePin(object);
  TraceCamera(nullptr, "pin create -> %08X", static_cast<unsigned>(status));
  return status;
}

NTSTATUS NTAPI ProcessPin(PKSPIN pin) {
  return PinOf(pin).Process(pin);
}

// A format for a pin that is being created is only checked: the pin copies it after its creation.
NTSTATUS ChangeFormat(PKSPIN pin, PKSDATAFORMAT oldFormat, PKSMULTIPLE_ITEM oldAttributes,
                      const KSDATARANGE* dataRange, const KSATTRIBUTE_LIST* attributeRange) {
  const NTSTATUS check = CheckVideoFormat(*pin->ConnectionFormat, *dataRange);
  if (!NT_SUCCESS(check) || oldFormat == nullptr) return check;
  if (pin->DeviceState != KSSTATE_STOP) return STATUS_INVALID_DEVICE_STATE;
  return PinOf(pin).SetDataFormat(pin, oldFormat, oldAttributes, dataRange, attributeRange);
}

NTSTATUS NTAPI SetPinFormat(PKSPIN pin, PKSDATAFORMAT oldFormat, PKSMULTIPLE_ITEM oldAttributes,
                            const KSDATARANGE* dataRange, const KSATTRIBUTE_LIST* attributeRange) {
  const NTSTATUS status = ChangeFormat(pin, oldFormat, oldAttributes, dataRange, attributeRange);
  TraceCamera(nullptr, "pin format %s -> %08X", oldFormat != nullptr ? "change" : "check",
              static_cast<unsigned>(status));
  return status;
}

NTSTATUS NTAPI SetPinState(PKSPIN pin, KSSTATE to, KSSTATE from) {
  return PinOf(pin).SetDeviceState(pin, to, from);
}

NTSTATUS NTAPI GetPinDroppedFrames(PIRP irp, PKSIDENTIFIER request, PVOID data) {
  PKSPIN const pin = KsGetPinFromIrp(irp);
  return pin != nullptr ? PinOf(pin).GetDroppedFrames(irp, request, data) : STATUS_UNSUCCESSFUL;
}

NTSTATUS NTAPI AddPinEvent(PIRP irp, PKSEVENTDATA eventData, KSEVENT_ENTRY* eventEntry) {
  PKSPIN const pin = KsGetPinFromIrp(irp);
  return pin != nullptr ? PinOf(pin).AddEvent(irp, eventData, eventEntry) : STATUS_UNSUCCESSFUL;
}

NTSTATUS NTAPI IntersectPin(PVOID, PIRP, PKSP_PIN, PKSDATARANGE callerRange,
                            PKSDATARANGE descriptorRange, ULONG bufferSize, PVOID data,
                            PULONG dataSize) {
  return IntersectVideoFormats(*callerRange, *descriptorRange, bufferSize, data, *dataSize);
}

std::uint8_t IsPinProcessing(PKSPIN pin) {
  return PinOf(pin).IsProcessing();
}

NTSTATUS ApplyPinFormat(PKSPIN pin) {
  return SetPinFormat(pin, pin->ConnectionFormat, nullptr, pin->ConnectionFormat, nullptr);
}

constexpr KSPIN_DISPATCH CapturePinDispatch =
    PinDispatchOf(CreatePin, ProcessPin, SetPinFormat, SetPinState);
constexpr PinAutomation kPinAutomation{GetPinDroppedFrames, AddPinEvent};

}  // namespace

constinit const PinEntries kPinEntries{&CapturePinDispatch, &kPinAutomation.Table, IntersectPin};
constinit const PinOperations kPinOperations{IsPinProcessing, ApplyPinFormat};

CapturePin::CapturePin(PKSPIN pin, CaptureDevice* device) : Pin(pin), Device(device) {
  KeInitializeSpinLock(&numbersLock_);
}

// Earlier copies stay in the bag: a frame under way may still read the previous one.
KS_VIDEOINFOHEADER* CapturePin::CopyVideoInfo() {
  const KSDATAFORMAT& format = *Pin->ConnectionFormat;
  const ULONG bytes = VideoHeaderBytes(format);
  const std::size_t size = bytes < sizeof(KS_VIDEOINFOHEADER) ? sizeof(KS_VIDEOINFOHEADER) : bytes;
  void* const memory = AllocateCameraMemory(size);
  if (memory == nullptr) return nullptr;
  if (!NT_SUCCESS(KsAddItemToObjectBag(Pin->Bag, memory, nullptr))) {
    FreeCameraMemory(memory);
    return nullptr;
  }
  ZeroCameraMemory(memory, size);
  std::memcpy(memory, &format + 1, bytes);
  VideoInfo = static_cast<PKS_VIDEOINFOHEADER>(memory);
  return VideoInfo;
}

NTSTATUS CapturePin::CreateFrameCounter() {
  void* const memory = AllocateCameraMemory(sizeof(LONGLONG));
  if (memory == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  const NTSTATUS status = KsAddItemToObjectBag(Pin->Bag, memory, nullptr);
  if (!NT_SUCCESS(status)) {
    FreeCameraMemory(memory);
    return status;
  }
  FrameCounter = ::new (memory) LONGLONG{0};
  return status;
}

NTSTATUS CapturePin::EditDescriptor() {
  NTSTATUS status = MakeOwn(Pin->Bag, Pin->Descriptor);
  if (!NT_SUCCESS(status)) return status;
  auto& descriptor = const_cast<KSPIN_DESCRIPTOR_EX&>(*Pin->Descriptor);
  status = MakeOwn(Pin->Bag, descriptor.AllocatorFraming);
  if (!NT_SUCCESS(status)) return status;
  const PKS_VIDEOINFOHEADER video = VideoInfo;
  FitFraming(video->bmiHeader.biSizeImage,
             const_cast<KSALLOCATOR_FRAMING_EX&>(*descriptor.AllocatorFraming));
  return status;
}

NTSTATUS CapturePin::Create(PKSPIN pin, PIRP) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  NTSTATUS status = KsAddItemToObjectBag(pin->Bag, this, DestroyCapturePin);
  if (!NT_SUCCESS(status)) return status;
  pin->Context = this;
  if (CopyVideoInfo() == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  Camera = Device->Camera;
  status = CreateFrameCounter();
  if (!NT_SUCCESS(status)) return status;
  pin->StreamHeaderSize = sizeof(KSSTREAM_HEADER) + sizeof(KS_FRAME_INFO);
  return EditDescriptor();
}

std::uint8_t CapturePin::IsProcessing() {
  return static_cast<std::uint8_t>(InterlockedCompareExchange(&ProcessingCount, 0, 0) & 0xFF);
}

NTSTATUS CapturePin::Close(PKSPIN, PIRP) {
  return STATUS_SUCCESS;
}

void CapturePin::Reset(PKSPIN) {}

NTSTATUS CapturePin::SetDataFormat(PKSPIN, PKSDATAFORMAT, PKSMULTIPLE_ITEM, const KSDATARANGE*,
                                   const KSATTRIBUTE_LIST*) {
  return CopyVideoInfo() != nullptr ? STATUS_SUCCESS : STATUS_INSUFFICIENT_RESOURCES;
}

NTSTATUS CapturePin::SetProperty(PIRP, PKSIDENTIFIER, PVOID) {
  return STATUS_NOT_SUPPORTED;
}

NTSTATUS CapturePin::GetDroppedFrames(PIRP, PKSIDENTIFIER request, PVOID data) {
  const bool isDroppedFrames = IsSameGuid(request->Set, kDroppedFramesSet) &&
                               request->Id == KSPROPERTY_DROPPEDFRAMES_CURRENT;
  if (!isDroppedFrames) return STATUS_NOT_SUPPORTED;
  auto& reply = *static_cast<KSPROPERTY_DROPPEDFRAMES_CURRENT_S*>(data);
  const PKS_VIDEOINFOHEADER video = VideoInfo;
  reply.AverageFrameSize = video->bmiHeader.biSizeImage;
  const NumbersLock lock(*this);
  reply.PictureNumber = FrameInfo.PictureNumber;
  reply.DropCount = FrameInfo.DropCount;
  return STATUS_SUCCESS;
}

NTSTATUS CapturePin::AddEvent(PIRP, PKSEVENTDATA, KSEVENT_ENTRY*) {
  return STATUS_NOT_SUPPORTED;
}

}  // namespace lidcam
