#pragma once

// Published kernel interfaces, declared for builds without the platform's headers.
//
// Names, values and layouts are the platform's: LONG and ULONG are 32 bits, WCHAR is 16 bits, so
// that a 64-bit build has the layouts of 64-bit Windows and a 32-bit build those of 32-bit Windows
// (platform/layout_checks.cpp asserts both).

#include <cstddef>
#include <cstdint>

using VOID = void;
using CHAR = char;
using UCHAR = unsigned char;
using SHORT = std::int16_t;
using USHORT = std::uint16_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using ULONG_PTR = std::uintptr_t;
using SIZE_T = std::size_t;
using BOOLEAN = std::uint8_t;
using WCHAR = char16_t;
using CCHAR = char;
using PVOID = void*;
using PCHAR = CHAR*;
using PCSTR = const CHAR*;
using PUCHAR = UCHAR*;
using PULONG = ULONG*;
using PWSTR = WCHAR*;
using PCWSTR = const WCHAR*;
using HANDLE = void*;
using PHANDLE = HANDLE*;
using NTSTATUS = LONG;
using ACCESS_MASK = ULONG;
using KPRIORITY = LONG;

// 64-bit Windows has one calling convention. With it the host kernel serves a driver compiled here and the
// shipped image alike.
#if defined(__x86_64__) && !defined(_WIN32)
#define NTAPI __attribute__((ms_abi))
#else
#define NTAPI
#endif
#define FASTCALL NTAPI
#define TRUE 1
#define FALSE 0

#define NT_SUCCESS(Status) (static_cast<NTSTATUS>(Status) >= 0)

#define STATUS_SUCCESS (static_cast<NTSTATUS>(0x00000000))
#define STATUS_TIMEOUT (static_cast<NTSTATUS>(0x00000102))
#define STATUS_BUFFER_OVERFLOW (static_cast<NTSTATUS>(0x80000005))
#define STATUS_UNSUCCESSFUL (static_cast<NTSTATUS>(0xC0000001))
#define STATUS_NOT_IMPLEMENTED (static_cast<NTSTATUS>(0xC0000002))
#define STATUS_INVALID_HANDLE (static_cast<NTSTATUS>(0xC0000008))
#define STATUS_INVALID_PARAMETER (static_cast<NTSTATUS>(0xC000000D))
#define STATUS_END_OF_FILE (static_cast<NTSTATUS>(0xC0000011))
#define STATUS_ACCESS_DENIED (static_cast<NTSTATUS>(0xC0000022))
#define STATUS_BUFFER_TOO_SMALL (static_cast<NTSTATUS>(0xC0000023))
#define STATUS_OBJECT_TYPE_MISMATCH (static_cast<NTSTATUS>(0xC0000024))
#define STATUS_OBJECT_NAME_INVALID (static_cast<NTSTATUS>(0xC0000033))
#define STATUS_OBJECT_NAME_NOT_FOUND (static_cast<NTSTATUS>(0xC0000034))
#define STATUS_OBJECT_NAME_COLLISION (static_cast<NTSTATUS>(0xC0000035))
#define STATUS_OBJECT_PATH_NOT_FOUND (static_cast<NTSTATUS>(0xC000003A))
#define STATUS_OBJECT_PATH_SYNTAX_BAD (static_cast<NTSTATUS>(0xC000003B))
#define STATUS_SHARING_VIOLATION (static_cast<NTSTATUS>(0xC0000043))
#define STATUS_DISK_FULL (static_cast<NTSTATUS>(0xC000007F))
#define STATUS_INSUFFICIENT_RESOURCES (static_cast<NTSTATUS>(0xC000009A))
#define STATUS_DEVICE_DATA_ERROR (static_cast<NTSTATUS>(0xC000009C))
#define STATUS_REGISTRY_IO_FAILED (static_cast<NTSTATUS>(0xC000014D))
#define STATUS_FILE_IS_A_DIRECTORY (static_cast<NTSTATUS>(0xC00000BA))
#define STATUS_UNEXPECTED_IO_ERROR (static_cast<NTSTATUS>(0xC00000E9))

union LARGE_INTEGER {
  struct {
    ULONG LowPart;
    LONG HighPart;
  } u;
  LONGLONG QuadPart;
};
using PLARGE_INTEGER = LARGE_INTEGER*;

struct LIST_ENTRY {
  LIST_ENTRY* Flink;
  LIST_ENTRY* Blink;
};
using PLIST_ENTRY = LIST_ENTRY*;

struct UNICODE_STRING {
  USHORT Length;         // bytes, without a terminator
  USHORT MaximumLength;  // bytes
  PWSTR Buffer;
};
using PUNICODE_STRING = UNICODE_STRING*;
using PCUNICODE_STRING = const UNICODE_STRING*;

struct OBJECT_ATTRIBUTES {
  ULONG Length;
  HANDLE RootDirectory;
  PUNICODE_STRING ObjectName;
  ULONG Attributes;
  PVOID SecurityDescriptor;
  PVOID SecurityQualityOfService;
};
using POBJECT_ATTRIBUTES = OBJECT_ATTRIBUTES*;

#define OBJ_CASE_INSENSITIVE 0x00000040U
#define OBJ_OPENIF 0x00000080U
#define OBJ_KERNEL_HANDLE 0x00000200U

inline void InitializeObjectAttributes(POBJECT_ATTRIBUTES attributes, PUNICODE_STRING name,
                                       ULONG flags, HANDLE root, PVOID security) {
  *attributes = {sizeof(OBJECT_ATTRIBUTES), root, name, flags, security, nullptr};
}

struct IO_STATUS_BLOCK {
  union {
    NTSTATUS Status;
    PVOID Pointer;
  };
  ULONG_PTR Information;
};
using PIO_STATUS_BLOCK = IO_STATUS_BLOCK*;
using PIO_APC_ROUTINE = void(NTAPI*)(PVOID context, PIO_STATUS_BLOCK status, ULONG reserved);

#define FILE_READ_DATA 0x0001U
#define FILE_WRITE_DATA 0x0002U
#define FILE_ATTRIBUTE_NORMAL 0x00000080U
#define FILE_SHARE_READ 0x00000001U
#define FILE_SHARE_WRITE 0x00000002U
#define FILE_OPEN 0x00000001U
#define FILE_OVERWRITE_IF 0x00000005U
#define FILE_OPENED 0x00000001U
#define FILE_CREATED 0x00000002U
#define FILE_OVERWRITTEN 0x00000003U
#define FILE_SYNCHRONOUS_IO_NONALERT 0x00000020U

#define KEY_ALL_ACCESS 0x000F003FU
#define PLUGPLAY_REGKEY_DRIVER 2U
#define REG_DWORD 4U
#define REG_OPTION_NON_VOLATILE 0U
#define REG_CREATED_NEW_KEY 1U
#define REG_OPENED_EXISTING_KEY 2U

enum KEY_VALUE_INFORMATION_CLASS {
  KeyValueBasicInformation = 0,
  KeyValueFullInformation = 1,
  KeyValuePartialInformation = 2,
};

struct KEY_VALUE_FULL_INFORMATION {
  ULONG TitleIndex;
  ULONG Type;
  ULONG DataOffset;
  ULONG DataLength;
  ULONG NameLength;
  WCHAR Name[1];
};
using PKEY_VALUE_FULL_INFORMATION = KEY_VALUE_FULL_INFORMATION*;

struct DISPATCHER_HEADER {
  UCHAR Type;
  UCHAR Absolute;
  UCHAR Size;
  UCHAR Inserted;
  LONG SignalState;
  LIST_ENTRY WaitListHead;
};

struct KEVENT {
  DISPATCHER_HEADER Header;
};
using PKEVENT = KEVENT*;
using PRKEVENT = KEVENT*;

enum EVENT_TYPE { NotificationEvent = 0, SynchronizationEvent = 1 };
enum KWAIT_REASON { Executive = 0 };
enum MODE { KernelMode = 0, UserMode = 1 };
using KPROCESSOR_MODE = CCHAR;

enum POOL_TYPE { NonPagedPool = 0, PagedPool = 1 };

// On 64-bit targets the platform saves every thread's registers itself.
struct KFLOATING_SAVE {
#if UINTPTR_MAX > 0xFFFFFFFF
  ULONG Dummy;
#else
  ULONG ControlWord;
  ULONG StatusWord;
  ULONG ErrorOffset;
  ULONG ErrorSelector;
  ULONG DataOffset;
  ULONG DataSelector;
  ULONG Cr0NpxState;
  ULONG Spare1;
#endif
};
using PKFLOATING_SAVE = KFLOATING_SAVE*;

struct DEVICE_OBJECT;
using PDEVICE_OBJECT = DEVICE_OBJECT*;

extern "C" {

PVOID NTAPI ExAllocatePoolWithTag(POOL_TYPE type, SIZE_T size, ULONG tag);
void NTAPI ExFreePool(PVOID memory);

void NTAPI KeInitializeEvent(PRKEVENT event, EVENT_TYPE type, BOOLEAN state);
LONG NTAPI KeSetEvent(PRKEVENT event, KPRIORITY increment, BOOLEAN wait);
NTSTATUS NTAPI KeWaitForSingleObject(PVOID object, KWAIT_REASON reason, KPROCESSOR_MODE mode,
                                     BOOLEAN alertable, PLARGE_INTEGER timeout);

NTSTATUS NTAPI KeSaveFloatingPointState(PKFLOATING_SAVE state);
NTSTATUS NTAPI KeRestoreFloatingPointState(PKFLOATING_SAVE state);

BOOLEAN NTAPI IoIsWdmVersionAvailable(UCHAR major, UCHAR minor);

ULONG NTAPI DbgPrint(PCSTR format, ...) __attribute__((format(printf, 1, 2)));

void NTAPI RtlInitUnicodeString(PUNICODE_STRING destination, PCWSTR source);
NTSTATUS NTAPI RtlAppendUnicodeToString(PUNICODE_STRING destination, PCWSTR source);

NTSTATUS NTAPI ZwCreateFile(PHANDLE file, ACCESS_MASK access, POBJECT_ATTRIBUTES attributes,
                            PIO_STATUS_BLOCK status, PLARGE_INTEGER allocationSize,
                            ULONG fileAttributes, ULONG shareAccess, ULONG disposition,
                            ULONG options, PVOID extendedAttributes, ULONG extendedLength);
NTSTATUS NTAPI ZwReadFile(HANDLE file, HANDLE event, PIO_APC_ROUTINE routine, PVOID context,
                          PIO_STATUS_BLOCK status, PVOID buffer, ULONG length,
                          PLARGE_INTEGER offset, PULONG key);
NTSTATUS NTAPI ZwWriteFile(HANDLE file, HANDLE event, PIO_APC_ROUTINE routine, PVOID context,
                           PIO_STATUS_BLOCK status, PVOID buffer, ULONG length,
                           PLARGE_INTEGER offset, PULONG key);
NTSTATUS NTAPI ZwClose(HANDLE handle);

NTSTATUS NTAPI ZwCreateKey(PHANDLE key, ACCESS_MASK access, POBJECT_ATTRIBUTES attributes,
                           ULONG titleIndex, PUNICODE_STRING className, ULONG options,
                           PULONG disposition);
NTSTATUS NTAPI ZwQueryValueKey(HANDLE key, PUNICODE_STRING name,
                               KEY_VALUE_INFORMATION_CLASS informationClass, PVOID information,
                               ULONG length, PULONG resultLength);
NTSTATUS NTAPI ZwSetValueKey(HANDLE key, PUNICODE_STRING name, ULONG titleIndex, ULONG type,
                             PVOID data, ULONG length);
NTSTATUS NTAPI IoOpenDeviceRegistryKey(PDEVICE_OBJECT device, ULONG type, ACCESS_MASK access,
                                       PHANDLE key);

}  // extern "C"

namespace lidcam::host {

/// One turn of a spin loop, reported to the calling thread's scheduler: another thread may have to
/// run before the loop can end.
void SpinOnce();

}  // namespace lidcam::host

/// A hint to the processor that the caller spins.
inline void YieldProcessor() {
  lidcam::host::SpinOnce();
}

#include "platform/host/nt/declarations/io_declarations.h"
#include "platform/host/nt/declarations/scheduling_declarations.h"
