#include "tests/on_wine/ks/kernel_gaps.h"

#include <ntimage.h>

#include <cstring>

#include "platform/host/ks/objects/pool_object.h"

namespace lidcam::wine {
namespace {

// ---- IoAllocateDriverObjectExtension() and IoGetDriverObjectExtension() are stubs that fail.

struct DriverExtension {
  DriverExtension* Next;
  PDRIVER_OBJECT Driver;
  PVOID Id;
};

constinit DriverExtension* g_extensions = nullptr;  ///< drivers are loaded one at a time

NTSTATUS NTAPI AllocateDriverExtension(PDRIVER_OBJECT driver, PVOID id, ULONG size,
                                       PVOID* extension) {
  auto* const made = host::AllocateObject<DriverExtension>(size);
  *extension = nullptr;
  if (made == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  *made = {g_extensions, driver, id};
  g_extensions = made;
  *extension = made + 1;
  return STATUS_SUCCESS;
}

PVOID NTAPI GetDriverExtension(PDRIVER_OBJECT driver, PVOID id) {
  for (DriverExtension* one = g_extensions; one != nullptr; one = one->Next) {
    if (one->Driver == driver && one->Id == id) return one + 1;
  }
  return nullptr;
}

// ---- Files can't be opened by names that begin with "\SystemRoot".

constexpr WCHAR kSystemRoot[] = L"\\SystemRoot\\";
constexpr WCHAR kSystemFolder[] = L"\\??\\C:\\windows\\";
constexpr USHORT kSystemRootLength = sizeof(kSystemRoot) - sizeof(WCHAR);
constexpr USHORT kSystemFolderLength = sizeof(kSystemFolder) - sizeof(WCHAR);

bool IsInSystemRoot(const UNICODE_STRING& name) {
  return name.Length >= kSystemRootLength &&
         std::memcmp(name.Buffer, kSystemRoot, kSystemRootLength) == 0;
}

NTSTATUS NTAPI CreateFileInSystemRoot(PHANDLE file, ACCESS_MASK access,
                                      POBJECT_ATTRIBUTES attributes, PIO_STATUS_BLOCK answer,
                                      PLARGE_INTEGER size, ULONG fileAttributes, ULONG sharing,
                                      ULONG disposition, ULONG options, PVOID extended,
                                      ULONG extendedLength) {
  OBJECT_ATTRIBUTES found = *attributes;
  UNICODE_STRING name{};
  if (IsInSystemRoot(*attributes->ObjectName)) {
    const UNICODE_STRING& asked = *attributes->ObjectName;
    const auto rest = static_cast<USHORT>(asked.Length - kSystemRootLength);
    name.Length = static_cast<USHORT>(kSystemFolderLength + rest);
    name.MaximumLength = name.Length;
    name.Buffer = static_cast<PWSTR>(host::AllocateZeroed(name.Length));
    if (name.Buffer == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
    auto* const text = reinterpret_cast<PUCHAR>(name.Buffer);
    std::memcpy(text, kSystemFolder, kSystemFolderLength);
    std::memcpy(text + kSystemFolderLength,
                reinterpret_cast<const UCHAR*>(asked.Buffer) + kSystemRootLength, rest);
    found.ObjectName = &name;
  }
  const NTSTATUS status = ZwCreateFile(file, access, &found, answer, size, fileAttributes, sharing,
                                       disposition, options, extended, extendedLength);
  if (name.Buffer != nullptr) ExFreePool(name.Buffer);
  return status;
}

// ---- KeSaveFloatingPointState() and KeRestoreFloatingPointState(), which x86 drivers import, are
// missing. Each thread of a process has registers of its own, which a call need not preserve.

NTSTATUS NTAPI KeepFloatingPointState(PKFLOATING_SAVE) {
  return STATUS_SUCCESS;
}

#if !defined(_WIN64)
// ---- KeQueryInterruptTime(), which is a function on x86 only, counts milliseconds.

ULONGLONG NTAPI InterruptTime() {
  constexpr LONGLONG kUnitsPerSecond = 10'000'000;
  LARGE_INTEGER frequency{};
  const LONGLONG count = KeQueryPerformanceCounter(&frequency).QuadPart;
  const LONGLONG seconds = count / frequency.QuadPart;
  const LONGLONG rest = count % frequency.QuadPart;
  return static_cast<ULONGLONG>(seconds * kUnitsPerSecond +
                                rest * kUnitsPerSecond / frequency.QuadPart);
}
#endif

// ---- A driver's imports.

bool IsSameText(const char* one, const char* other) {
  for (; *one != '\0' && *one == *other; ++one, ++other) {
  }
  return *one == *other;
}

void ReplaceImport(PUCHAR image, const IMAGE_IMPORT_DESCRIPTOR& library, const char* function,
                   ULONG_PTR replacement) {
  const auto* name = reinterpret_cast<const IMAGE_THUNK_DATA*>(image + library.OriginalFirstThunk);
  auto* address = reinterpret_cast<IMAGE_THUNK_DATA*>(image + library.FirstThunk);
  for (; name->u1.AddressOfData != 0; ++name, ++address) {
    if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal)) continue;
    const auto* const import =
        reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(image + name->u1.AddressOfData);
    const auto* const text = reinterpret_cast<const char*>(import->Name);
    if (IsSameText(text, function)) address->u1.Function = replacement;
  }
}

}  // namespace

void FillKernelGaps(PDRIVER_OBJECT driver) {
  auto* const image = static_cast<PUCHAR>(driver->DriverStart);
  const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(image);
  const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(image + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& imports =
      headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  const auto* library =
      reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(image + imports.VirtualAddress);
  for (; library->FirstThunk != 0; ++library) {
    ReplaceImport(image, *library, "ZwCreateFile",
                  reinterpret_cast<ULONG_PTR>(CreateFileInSystemRoot));
    ReplaceImport(image, *library, "KeSaveFloatingPointState",
                  reinterpret_cast<ULONG_PTR>(KeepFloatingPointState));
    ReplaceImport(image, *library, "KeRestoreFloatingPointState",
                  reinterpret_cast<ULONG_PTR>(KeepFloatingPointState));
  }
}

void FreeDriverExtensions(PDRIVER_OBJECT driver) {
  DriverExtension** link = &g_extensions;
  while (*link != nullptr) {
    DriverExtension* const one = *link;
    if (one->Driver == driver) {
      *link = one->Next;
      ExFreePool(one);
    } else {
      link = &one->Next;
    }
  }
}

}  // namespace lidcam::wine

// The class calls these through import pointers, which the linker takes from here. On x86 their
// names contain the size of their arguments.
#if defined(_WIN64)
#define IMPORT_NAME(function, bytes) __asm__("__imp_" #function)
#else
#define IMPORT_NAME(function, bytes) __asm__("__imp__" #function "@" #bytes)
#endif

extern "C" {
extern decltype(&IoAllocateDriverObjectExtension)
    const g_allocateDriverExtension IMPORT_NAME(IoAllocateDriverObjectExtension, 16);
extern decltype(&IoGetDriverObjectExtension)
    const g_getDriverExtension IMPORT_NAME(IoGetDriverObjectExtension, 8);

constinit decltype(&IoAllocateDriverObjectExtension) const g_allocateDriverExtension =
    lidcam::wine::AllocateDriverExtension;
constinit decltype(&IoGetDriverObjectExtension) const g_getDriverExtension =
    lidcam::wine::GetDriverExtension;

#if !defined(_WIN64)
extern decltype(&KeQueryInterruptTime)
    const g_queryInterruptTime IMPORT_NAME(KeQueryInterruptTime, 0);

constinit decltype(&KeQueryInterruptTime) const g_queryInterruptTime = lidcam::wine::InterruptTime;
#endif
}
