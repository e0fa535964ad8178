#include "tests/on_wine/ks/interface_state.h"

#include "platform/host/ks/objects/pool_object.h"

namespace lidcam::wine {
namespace {

constexpr WCHAR kClasses[] =
    L"\\Registry\\Machine\\System\\CurrentControlSet\\Control\\DeviceClasses\\";
constexpr USHORT kPrefixLetters = 4;  ///< of "\??\"
constexpr USHORT kGuidLetters = 38;
constexpr USHORT kMoreBytes = 64;  ///< longer than the total of its parts
constexpr ULONG kLongestDeviceName = 256;

UNICODE_STRING Part(const UNICODE_STRING& text, USHORT from, USHORT to) {
  const auto bytes = static_cast<USHORT>((to - from) * sizeof(WCHAR));
  return {bytes, bytes, text.Buffer + from};
}

USHORT LettersOf(const UNICODE_STRING& text) {
  return static_cast<USHORT>(text.Length / sizeof(WCHAR));
}

/// Position of the backslash ahead of the reference string.
USHORT ReferenceAt(const UNICODE_STRING& link) {
  USHORT at = kPrefixLetters;
  while (at < LettersOf(link) && link.Buffer[at] != '\\') ++at;
  return at;
}

OBJECT_ATTRIBUTES Named(UNICODE_STRING& name, HANDLE root = nullptr) {
  OBJECT_ATTRIBUTES attributes{};
  InitializeObjectAttributes(&attributes, &name, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, root,
                             nullptr);
  return attributes;
}

NTSTATUS MakeDirectory(EnabledInterface& one) {
  UNICODE_STRING name = Part(one.Link, 0, ReferenceAt(one.Link));
  OBJECT_ATTRIBUTES attributes = Named(name);
  return ZwCreateDirectoryObject(&one.Directory, DIRECTORY_ALL_ACCESS, &attributes);
}

NTSTATUS MakeLink(EnabledInterface& one, PDEVICE_OBJECT physicalDevice) {
  auto* const text = static_cast<PWSTR>(host::AllocateZeroed(kLongestDeviceName));
  if (text == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  ULONG length = 0;
  NTSTATUS status = IoGetDeviceProperty(physicalDevice, DevicePropertyPhysicalDeviceObjectName,
                                        kLongestDeviceName, text, &length);
  if (NT_SUCCESS(status)) {
    UNICODE_STRING target{};
    RtlInitUnicodeString(&target, text);
    status = IoCreateSymbolicLink(&one.Link, &target);
  }
  ExFreePool(text);
  return status;
}

/// For "\??\usb#...#{class}\{reference}" appends "...\{class}\##?#usb#...#{class}\#{reference}".
void AppendKeyName(UNICODE_STRING& name, const UNICODE_STRING& link) {
  const USHORT reference = ReferenceAt(link);
  const auto category = static_cast<USHORT>(reference - kGuidLetters);
  const UNICODE_STRING parts[] = {Part(link, category, reference),
                                  Part(link, kPrefixLetters, reference),
                                  Part(link, reference + 1, LettersOf(link))};
  RtlAppendUnicodeToString(&name, kClasses);
  RtlAppendUnicodeStringToString(&name, &parts[0]);
  RtlAppendUnicodeToString(&name, L"\\##?#");
  RtlAppendUnicodeStringToString(&name, &parts[1]);
  RtlAppendUnicodeToString(&name, L"\\#");
  RtlAppendUnicodeStringToString(&name, &parts[2]);
}

NTSTATUS OpenKey(const UNICODE_STRING& link, HANDLE& key) {
  const auto room = static_cast<USHORT>(sizeof(kClasses) + 2 * link.Length + kMoreBytes);
  UNICODE_STRING name{0, room, static_cast<PWSTR>(host::AllocateZeroed(room))};
  if (name.Buffer == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  AppendKeyName(name, link);
  OBJECT_ATTRIBUTES attributes = Named(name);
  const NTSTATUS status = ZwOpenKey(&key, KEY_CREATE_SUB_KEY, &attributes);
  ExFreePool(name.Buffer);
  return status;
}

NTSTATUS Mark(const UNICODE_STRING& link, ULONG isLinked) {
  HANDLE parent = nullptr;
  NTSTATUS status = OpenKey(link, parent);
  if (!NT_SUCCESS(status)) return status;
  UNICODE_STRING name{};
  RtlInitUnicodeString(&name, L"Control");
  OBJECT_ATTRIBUTES attributes = Named(name, parent);
  HANDLE key = nullptr;
  status = ZwCreateKey(&key, KEY_SET_VALUE, &attributes, 0, nullptr, REG_OPTION_VOLATILE, nullptr);
  ZwClose(parent);
  if (!NT_SUCCESS(status)) return status;
  RtlInitUnicodeString(&name, L"Linked");
  status = ZwSetValueKey(key, &name, 0, REG_DWORD, &isLinked, sizeof(isLinked));
  ZwClose(key);
  return status;
}

}  // namespace

NTSTATUS EnableInterface(EnabledInterface& one, PDEVICE_OBJECT physicalDevice) {
  NTSTATUS status = MakeDirectory(one);
  if (NT_SUCCESS(status)) status = MakeLink(one, physicalDevice);
  return NT_SUCCESS(status) ? Mark(one.Link, TRUE) : status;
}

void DisableInterface(EnabledInterface& one) {
  Mark(one.Link, FALSE);
  IoDeleteSymbolicLink(&one.Link);
  if (one.Directory != nullptr) ZwClose(one.Directory);
  one.Directory = nullptr;
}

}  // namespace lidcam::wine
