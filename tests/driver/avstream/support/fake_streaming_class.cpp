#include "tests/driver/avstream/support/fake_streaming_class.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace lidcam::test {
namespace {

FakeStreamingClass* g_class = nullptr;

bool IsTurn(int& countdown) {
  return countdown > 0 && --countdown == 0;
}

FakeBag& BagOf(KSOBJECT_BAG bag) {
  return *static_cast<FakeBag*>(bag);
}

}  // namespace

void FakeBag::Empty() {
  while (!items_.empty()) {
    const auto [item, free] = items_.back();
    items_.pop_back();
    if (free != nullptr) {
      free(item);
    } else {
      ExFreePool(item);
    }
  }
}

bool FakeBag::Has(const void* item) const {
  return std::any_of(items_.begin(), items_.end(),
                     [item](const auto& entry) { return entry.first == item; });
}

ULONG FakeClock::AddRef() {
  ++References;
  MostReferences = std::max(MostReferences, References);
  return static_cast<ULONG>(References);
}

ULONG FakeClock::Release() {
  if (OnRelease) OnRelease();
  return static_cast<ULONG>(--References);
}

LONGLONG FakeClock::GetCorrelatedTime(LONGLONG* systemTime) {
  if (OnRead) OnRead();
  ++Reads;
  *systemTime = 77;
  const LONGLONG time = Times.front();
  if (Times.size() > 1) Times.pop_front();
  return time;
}

FakeFrame::FakeFrame(ULONG extent, ULONG headerSize)
    : headerBytes_(headerSize, kFresh), picture_(extent, kFresh) {
  KSSTREAM_HEADER& stream = Header();
  stream.Size = headerSize;
  stream.TypeSpecificFlags = 0x1234;
  stream.FrameExtent = extent;
  stream.Data = picture_.data();
  stream.OptionsFlags = 0;
  Pointer.StreamHeader = &stream;
  if (headerSize >= kWholeHeader)
    static_cast<KS_FRAME_INFO*>(static_cast<void*>(&stream + 1))->ExtendedHeaderSize = 72;
}

KS_FRAME_INFO FakeFrame::Info() const {
  KS_FRAME_INFO info{};
  std::memcpy(&info, headerBytes_.data() + sizeof(KSSTREAM_HEADER), sizeof(info));
  return info;
}

bool FakeFrame::IsUntouched() const {
  return std::all_of(picture_.begin(), picture_.end(),
                     [](std::uint8_t byte) { return byte == kFresh; });
}

FakeStreamingClass::FakeStreamingClass() {
  EXPECT_EQ(g_class, nullptr);
  g_class = this;
  Device.Bag = &DeviceBag;
}

FakeStreamingClass::~FakeStreamingClass() {
  DeviceBag.Empty();
  EXPECT_EQ(DeviceMutex, 0);
  EXPECT_EQ(ControlMutex, 0);
  g_class = nullptr;
}

FakeStreamingClass& FakeStreamingClass::The() {
  return *g_class;
}

}  // namespace lidcam::test

using lidcam::test::FakeFrame;
using lidcam::test::FakeStreamingClass;

extern "C" {

void NTAPI KsAcquireDevice(PKSDEVICE) {
  ++FakeStreamingClass::The().DeviceMutex;
  FakeStreamingClass::The().Note("acquire device");
}

void NTAPI KsReleaseDevice(PKSDEVICE) {
  --FakeStreamingClass::The().DeviceMutex;
  FakeStreamingClass::The().Note("release device");
}

NTSTATUS NTAPI KsAddItemToObjectBag(KSOBJECT_BAG bag, PVOID item, PFNKSFREE free) {
  FakeStreamingClass& ks = FakeStreamingClass::The();
  ks.Note("bag");
  if (lidcam::test::IsTurn(ks.FailBagAt)) return ks.Failure;
  lidcam::test::BagOf(bag).Add(item, free);
  return STATUS_SUCCESS;
}

ULONG NTAPI KsRemoveItemFromObjectBag(KSOBJECT_BAG, PVOID, BOOLEAN) {
  ADD_FAILURE() << "unexpected removal from a bag";
  return 0;
}

NTSTATUS NTAPI _KsEdit(KSOBJECT_BAG bag, PVOID* item, ULONG newSize, ULONG oldSize, ULONG tag) {
  FakeStreamingClass& ks = FakeStreamingClass::The();
  char letters[5] = {};
  std::memcpy(letters, &tag, sizeof(tag));
  ks.Note("edit " + std::to_string(newSize) + " " + std::to_string(oldSize) + " " + letters);
  if (lidcam::test::IsTurn(ks.FailEditAt)) return ks.Failure;
  void* const copy = ExAllocatePoolWithTag(NonPagedPool, newSize, tag);
  if (copy == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  std::memcpy(copy, *item, oldSize);
  lidcam::test::BagOf(bag).Add(copy, nullptr);
  *item = copy;
  return STATUS_SUCCESS;
}

void NTAPI KsPinAttemptProcessing(PKSPIN, BOOLEAN) {
  FakeStreamingClass::The().Note("attempt");
}

NTSTATUS NTAPI KsInitializeDriver(PDRIVER_OBJECT, PUNICODE_STRING,
                                  const KSDEVICE_DESCRIPTOR* descriptor) {
  FakeStreamingClass& ks = FakeStreamingClass::The();
  ks.Note("driver");
  ks.DeviceDescriptor = descriptor;
  return ks.DriverStatus;
}

NTSTATUS NTAPI KsCreateFilterFactory(PDEVICE_OBJECT device, const KSFILTER_DESCRIPTOR* descriptor,
                                     PWSTR reference, PVOID security, ULONG flags,
                                     PFNKSFILTERFACTORYPOWER sleepCallback,
                                     PFNKSFILTERFACTORYPOWER wakeCallback,
                                     PKSFILTERFACTORY* factory) {
  FakeStreamingClass& ks = FakeStreamingClass::The();
  ks.Note("factory " + std::to_string(flags));
  EXPECT_EQ(ks.DeviceMutex, 1);
  EXPECT_EQ(device, ks.Device.FunctionalDeviceObject);
  EXPECT_EQ(reference, nullptr);
  EXPECT_EQ(security, nullptr);
  EXPECT_TRUE(sleepCallback == nullptr && wakeCallback == nullptr);
  EXPECT_EQ(factory, nullptr);
  ks.FilterDescriptor = descriptor;
  return ks.FactoryStatus;
}

PKSDEVICE NTAPI KsGetDevice(PVOID) {
  FakeStreamingClass& ks = FakeStreamingClass::The();
  return ks.HasDevice ? &ks.Device : nullptr;
}

void NTAPI KsAcquireControl(PVOID) {
  ++FakeStreamingClass::The().ControlMutex;
  FakeStreamingClass::The().Note("acquire control");
}

void NTAPI KsReleaseControl(PVOID) {
  --FakeStreamingClass::The().ControlMutex;
  FakeStreamingClass::The().Note("release control");
}

NTSTATUS NTAPI KsFilterCreatePinFactory(PKSFILTER, const KSPIN_DESCRIPTOR_EX* descriptor,
                                        PULONG pinId) {
  FakeStreamingClass& ks = FakeStreamingClass::The();
  ks.Note("pin factory");
  EXPECT_EQ(ks.ControlMutex, 1);
  EXPECT_NE(pinId, nullptr);
  ks.PinDescriptor = *descriptor;
  return ks.PinFactoryStatus;
}

PKSFILTER NTAPI KsGetFilterFromIrp(PIRP) {
  return FakeStreamingClass::The().RequestFilter;
}

PKSPIN NTAPI KsGetPinFromIrp(PIRP) {
  return FakeStreamingClass::The().RequestPin;
}

PKSSTREAM_POINTER NTAPI KsPinGetLeadingEdgeStreamPointer(PKSPIN, KSSTREAM_POINTER_STATE state) {
  FakeStreamingClass& ks = FakeStreamingClass::The();
  ks.Note("edge");
  if (ks.OnEdge) ks.OnEdge();
  EXPECT_EQ(state, KSSTREAM_POINTER_STATE_LOCKED);
  if (ks.Frames.empty()) return nullptr;
  FakeFrame& frame = *ks.Frames.front();
  EXPECT_FALSE(frame.IsLocked);
  frame.IsLocked = true;
  return &frame.Pointer;
}

void NTAPI KsStreamPointerUnlock(PKSSTREAM_POINTER pointer, BOOLEAN eject) {
  FakeStreamingClass& ks = FakeStreamingClass::The();
  ks.Note("unlock");
  if (ks.OnUnlock) ks.OnUnlock();
  EXPECT_EQ(eject, TRUE);
  FakeFrame& frame = *ks.Frames.front();
  EXPECT_EQ(pointer, &frame.Pointer);
  EXPECT_TRUE(frame.IsLocked);
  frame.IsLocked = false;
  frame.IsEjected = true;
  ks.Frames.pop_front();
}

NTSTATUS NTAPI KsPinGetReferenceClockInterface(PKSPIN, PIKSREFERENCECLOCK* clock) {
  FakeStreamingClass& ks = FakeStreamingClass::The();
  ks.Note("clock");
  if (ks.Clock == nullptr) return STATUS_UNSUCCESSFUL;
  ks.Clock->AddRef();
  *clock = ks.Clock;
  return STATUS_SUCCESS;
}

}  // extern "C"
