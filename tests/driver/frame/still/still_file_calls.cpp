#include "tests/driver/frame/still/still_file_calls.h"

namespace lidcam::test {
namespace {

StillFileCalls* g_calls = nullptr;

}  // namespace

StillFileCalls::StillFileCalls() {
  g_calls = this;
}

StillFileCalls::~StillFileCalls() {
  g_calls = nullptr;
}

}  // namespace lidcam::test

using lidcam::test::g_calls;

// The linker makes these names.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" {

BOOLEAN NTAPI __real_IoIsWdmVersionAvailable(UCHAR major, UCHAR minor);
BOOLEAN NTAPI __wrap_IoIsWdmVersionAvailable(UCHAR major, UCHAR minor);
NTSTATUS NTAPI __real_ZwCreateFile(PHANDLE file, ACCESS_MASK access, POBJECT_ATTRIBUTES attributes,
                                   PIO_STATUS_BLOCK status, PLARGE_INTEGER allocationSize,
                                   ULONG fileAttributes, ULONG shareAccess, ULONG disposition,
                                   ULONG options, PVOID extendedAttributes, ULONG extendedLength);
NTSTATUS NTAPI __wrap_ZwCreateFile(PHANDLE file, ACCESS_MASK access, POBJECT_ATTRIBUTES attributes,
                                   PIO_STATUS_BLOCK status, PLARGE_INTEGER allocationSize,
                                   ULONG fileAttributes, ULONG shareAccess, ULONG disposition,
                                   ULONG options, PVOID extendedAttributes, ULONG extendedLength);
NTSTATUS NTAPI __real_ZwWriteFile(HANDLE file, HANDLE event, PIO_APC_ROUTINE routine, PVOID context,
                                  PIO_STATUS_BLOCK status, PVOID buffer, ULONG length,
                                  PLARGE_INTEGER offset, PULONG key);
NTSTATUS NTAPI __wrap_ZwWriteFile(HANDLE file, HANDLE event, PIO_APC_ROUTINE routine, PVOID context,
                                  PIO_STATUS_BLOCK status, PVOID buffer, ULONG length,
                                  PLARGE_INTEGER offset, PULONG key);
NTSTATUS NTAPI __real_ZwClose(HANDLE handle);
NTSTATUS NTAPI __wrap_ZwClose(HANDLE handle);

BOOLEAN NTAPI __wrap_IoIsWdmVersionAvailable(UCHAR major, UCHAR minor) {
  if (g_calls == nullptr) return __real_IoIsWdmVersionAvailable(major, minor);
  g_calls->Levels.emplace_back(major, minor);
  if (g_calls->OnLevel) return g_calls->OnLevel({major, minor}) ? TRUE : FALSE;
  return __real_IoIsWdmVersionAvailable(major, minor);
}

NTSTATUS NTAPI __wrap_ZwCreateFile(PHANDLE file, ACCESS_MASK access, POBJECT_ATTRIBUTES attributes,
                                   PIO_STATUS_BLOCK status, PLARGE_INTEGER allocationSize,
                                   ULONG fileAttributes, ULONG shareAccess, ULONG disposition,
                                   ULONG options, PVOID extendedAttributes, ULONG extendedLength) {
  if (g_calls != nullptr) {
    if (g_calls->OnOpen) g_calls->OnOpen();
    const UNICODE_STRING& name = *attributes->ObjectName;
    g_calls->Opens.push_back({{name.Buffer, name.Length / sizeof(WCHAR)},
                              attributes->Length,
                              attributes->RootDirectory,
                              attributes->Attributes,
                              access,
                              allocationSize != nullptr,
                              fileAttributes,
                              shareAccess,
                              disposition,
                              options,
                              extendedAttributes,
                              extendedLength});
  }
  return __real_ZwCreateFile(file, access, attributes, status, allocationSize, fileAttributes,
                             shareAccess, disposition, options, extendedAttributes, extendedLength);
}

NTSTATUS NTAPI __wrap_ZwWriteFile(HANDLE file, HANDLE event, PIO_APC_ROUTINE routine, PVOID context,
                                  PIO_STATUS_BLOCK status, PVOID buffer, ULONG length,
                                  PLARGE_INTEGER offset, PULONG key) {
  if (g_calls != nullptr) {
    std::optional<LONGLONG> from;
    if (offset != nullptr) from = offset->QuadPart;
    g_calls->Writes.push_back({file, event != nullptr, routine != nullptr, buffer, length, from});
  }
  return __real_ZwWriteFile(file, event, routine, context, status, buffer, length, offset, key);
}

NTSTATUS NTAPI __wrap_ZwClose(HANDLE handle) {
  if (g_calls != nullptr) g_calls->Closes.push_back(handle);
  return __real_ZwClose(handle);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
