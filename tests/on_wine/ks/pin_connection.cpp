#include "tests/on_wine/ks/pin_connection.h"

#include <cstring>

#include "platform/host/ks/objects/pool_object.h"
#include "platform/host/ks/pin/pin_block.h"
#include "platform/host/ks/pin/requests/clock_requests.h"
#include "platform/host/ks/pin/requests/pin_properties.h"
#include "tests/on_wine/ks/inner_request.h"

namespace lidcam::wine {
namespace {

constexpr WCHAR kPinKind[] = L"{146F1A80-4791-11D0-A5D6-28DB04C10000}\\";
constexpr WCHAR kClockKind[] = L"{53172480-4791-11D0-A5D6-28DB04C10000}";
constexpr ULONG kPinKindLength = sizeof(kPinKind) - sizeof(WCHAR);
constexpr USHORT kClockKindLength = sizeof(kClockKind) - sizeof(WCHAR);
constexpr ULONG kLongestName = 0xFFFE;

/// The name of a pin in the pool: its kind, and the connection after it.
NTSTATUS MakePinName(const VOID* connect, ULONG bytes, UNICODE_STRING& name) {
  if (bytes > kLongestName - kPinKindLength) return STATUS_INVALID_BUFFER_SIZE;
  auto* const text = static_cast<PUCHAR>(host::AllocateZeroed(kPinKindLength + bytes));
  if (text == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  std::memcpy(text, kPinKind, kPinKindLength);
  std::memcpy(text + kPinKindLength, connect, bytes);
  const auto length = static_cast<USHORT>(kPinKindLength + bytes);
  name = {length, length, reinterpret_cast<PWSTR>(text)};
  return STATUS_SUCCESS;
}

UNICODE_STRING ClockName(WCHAR (&text)[sizeof(kClockKind) / sizeof(WCHAR)]) {
  std::memcpy(text, kClockKind, sizeof(kClockKind));
  return {kClockKindLength, kClockKindLength, text};
}

bool IsOpen(const FILE_OBJECT& file) {
  return file.FsContext != nullptr;
}

}  // namespace

PinConnection::PinConnection(PDEVICE_OBJECT device, FILE_OBJECT& filter)
    : device_(device), filter_(filter) {
  KeInitializeEvent(&framesAreBack_, NotificationEvent, FALSE);
}

NTSTATUS PinConnection::Open(PDEVICE_OBJECT device, FILE_OBJECT& filter, const VOID* connect,
                             ULONG bytes, PinConnection** connection) {
  PVOID const memory = host::AllocateZeroed(sizeof(PinConnection));
  if (memory == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  auto* const made = ::new (memory) PinConnection(device, filter);
  UNICODE_STRING name{};
  NTSTATUS status = MakePinName(connect, bytes, name);
  if (NT_SUCCESS(status)) status = made->OpenFile(made->pin_, filter, name);
  if (name.Buffer != nullptr) ExFreePool(name.Buffer);
  if (NT_SUCCESS(status)) {
    *connection = made;
  } else {
    ExFreePool(made);
  }
  return status;
}

void PinConnection::Close() {
  if (IsOpen(clock_)) {
    InnerRequest(device_, clock_, IRP_MJ_CLEANUP).Send();
    InnerRequest(device_, clock_, IRP_MJ_CLOSE).Send();
  }
  InnerRequest(device_, pin_, IRP_MJ_CLEANUP).Send();
  EndFrame();
  KeWaitForSingleObject(&framesAreBack_, Executive, KernelMode, FALSE, nullptr);
  InnerRequest(device_, pin_, IRP_MJ_CLOSE).Send();
  ExFreePool(this);
}

NTSTATUS PinConnection::UseClock() {
  if (IsOpen(clock_)) return STATUS_INVALID_DEVICE_STATE;
  WCHAR text[sizeof(kClockKind) / sizeof(WCHAR)];
  const NTSTATUS status = OpenFile(clock_, pin_, ClockName(text));
  return NT_SUCCESS(status) ? SetMasterClock() : status;
}

FILE_OBJECT* PinConnection::FileOf(Target target) {
  FILE_OBJECT& file = target == Target::Clock ? clock_ : pin_;
  return IsOpen(file) ? &file : nullptr;
}

void PinConnection::BeginFrame() {
  InterlockedIncrement(&frames_);
}

void PinConnection::EndFrame() {
  if (InterlockedDecrement(&frames_) != 0) return;
  KeSetEvent(&framesAreBack_, IO_NO_INCREMENT, FALSE);
}

NTSTATUS PinConnection::OpenFile(FILE_OBJECT& file, FILE_OBJECT& related, UNICODE_STRING name) {
  file.Type = IO_TYPE_FILE;
  file.Size = sizeof(FILE_OBJECT);
  file.DeviceObject = filter_.DeviceObject;
  file.RelatedFileObject = &related;
  file.FileName = name;
  InnerRequest create(device_, file, IRP_MJ_CREATE);
  const NTSTATUS status = create.IsMade() ? create.Send() : STATUS_INSUFFICIENT_RESOURCES;
  file.RelatedFileObject = nullptr;
  file.FileName = {};
  return status;
}

// Sets the class's property, but without a handle: the file has none.
NTSTATUS PinConnection::SetMasterClock() {
  host::PinBlock& pin = host::PinOf(*static_cast<host::ObjectHead*>(pin_.FsContext));
  IKsReferenceClock* clock = nullptr;
  NTSTATUS status = host::ReferenceClockOfFile(clock_, pin_, &clock);
  if (!NT_SUCCESS(status)) return status;
  KsAcquireControl(&pin.Filter->Filter);
  if (pin.DeviceState == KSSTATE_STOP) {
    host::UseMasterClock(pin, clock, nullptr);
  } else {
    clock->Release();
    status = STATUS_INVALID_DEVICE_STATE;
  }
  KsReleaseControl(&pin.Filter->Filter);
  return status;
}

}  // namespace lidcam::wine
