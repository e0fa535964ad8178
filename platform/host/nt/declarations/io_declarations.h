#pragma once

// Published kernel interfaces of devices, drivers and I/O request packets. Included by
// nt_declarations.h, whose types they use.

#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/host/nt/declarations/power_declarations.h"
#include "platform/host/nt/declarations/scheduling_declarations.h"

using CSHORT = std::int16_t;
using LONG64 = std::int64_t;
using PIRP = struct IRP*;
using PDRIVER_OBJECT = struct DRIVER_OBJECT*;

struct DEVICE_CAPABILITIES;
using PDEVICE_CAPABILITIES = DEVICE_CAPABILITIES*;
using PFILE_OBJECT = struct FILE_OBJECT*;

// Drivers see the names only.
struct CM_RESOURCE_LIST;
using PCM_RESOURCE_LIST = CM_RESOURCE_LIST*;
struct IO_SECURITY_CONTEXT;
using PIO_SECURITY_CONTEXT = IO_SECURITY_CONTEXT*;
struct SECTION_OBJECT_POINTERS;
using PSECTION_OBJECT_POINTERS = SECTION_OBJECT_POINTERS*;
struct IO_COMPLETION_CONTEXT;
using PIO_COMPLETION_CONTEXT = IO_COMPLETION_CONTEXT*;
struct MDL;
using PMDL = MDL*;
struct VPB;
using PVPB = VPB*;
struct IO_TIMER;
using PIO_TIMER = IO_TIMER*;
struct FAST_IO_DISPATCH;

#define IO_TYPE_DEVICE 3
#define IO_TYPE_DRIVER 4
#define IO_TYPE_FILE 5
#define IO_TYPE_IRP 6
#define IO_TYPE_DEVICE_OBJECT_EXTENSION 13

#define IRP_MJ_CREATE 0x00
#define IRP_MJ_CREATE_NAMED_PIPE 0x01
#define IRP_MJ_CLOSE 0x02
#define IRP_MJ_READ 0x03
#define IRP_MJ_WRITE 0x04
#define IRP_MJ_QUERY_INFORMATION 0x05
#define IRP_MJ_SET_INFORMATION 0x06
#define IRP_MJ_FLUSH_BUFFERS 0x09
#define IRP_MJ_DEVICE_CONTROL 0x0E
#define IRP_MJ_INTERNAL_DEVICE_CONTROL 0x0F
#define IRP_MJ_SHUTDOWN 0x10
#define IRP_MJ_CLEANUP 0x12
#define IRP_MJ_POWER 0x16
#define IRP_MJ_SYSTEM_CONTROL 0x17
#define IRP_MJ_PNP 0x1B
#define IRP_MJ_MAXIMUM_FUNCTION 0x1B

#define IRP_MN_START_DEVICE 0x00
#define IRP_MN_QUERY_REMOVE_DEVICE 0x01
#define IRP_MN_REMOVE_DEVICE 0x02
#define IRP_MN_CANCEL_REMOVE_DEVICE 0x03
#define IRP_MN_STOP_DEVICE 0x04
#define IRP_MN_QUERY_STOP_DEVICE 0x05
#define IRP_MN_CANCEL_STOP_DEVICE 0x06
#define IRP_MN_QUERY_INTERFACE 0x08
#define IRP_MN_QUERY_CAPABILITIES 0x09
#define IRP_MN_SURPRISE_REMOVAL 0x17

#define IRP_MN_SET_POWER 0x02
#define IRP_MN_QUERY_POWER 0x03

#define SL_PENDING_RETURNED 0x01
#define SL_ERROR_RETURNED 0x02
#define SL_INVOKE_ON_CANCEL 0x20
#define SL_INVOKE_ON_SUCCESS 0x40
#define SL_INVOKE_ON_ERROR 0x80

#define METHOD_BUFFERED 0U
#define METHOD_IN_DIRECT 1U
#define METHOD_OUT_DIRECT 2U
#define METHOD_NEITHER 3U
#define FILE_ANY_ACCESS 0U
#define FILE_READ_ACCESS 1U
#define FILE_WRITE_ACCESS 2U
#define FILE_DEVICE_UNKNOWN 0x00000022U

#define CTL_CODE(DeviceType, Function, Method, Access) \
  (((DeviceType) << 16) | ((Access) << 14) | ((Function) << 2) | (Method))

#define DO_BUFFERED_IO 0x00000004U
#define DO_DIRECT_IO 0x00000010U
#define DO_DEVICE_INITIALIZING 0x00000080U
#define DO_POWER_PAGABLE 0x00002000U

#define STATUS_PENDING (static_cast<NTSTATUS>(0x00000103))
#define STATUS_CONTINUE_COMPLETION STATUS_SUCCESS
#define STATUS_INVALID_DEVICE_REQUEST (static_cast<NTSTATUS>(0xC0000010))
#define STATUS_MORE_PROCESSING_REQUIRED (static_cast<NTSTATUS>(0xC0000016))
#define STATUS_DELETE_PENDING (static_cast<NTSTATUS>(0xC0000056))
#define STATUS_DEVICE_NOT_READY (static_cast<NTSTATUS>(0xC00000A3))
#define STATUS_IO_TIMEOUT (static_cast<NTSTATUS>(0xC00000B5))
#define STATUS_NOT_SUPPORTED (static_cast<NTSTATUS>(0xC00000BB))
#define STATUS_NO_SUCH_DEVICE (static_cast<NTSTATUS>(0xC000000E))
#define STATUS_CANCELLED (static_cast<NTSTATUS>(0xC0000120))
#define STATUS_DEVICE_NOT_CONNECTED (static_cast<NTSTATUS>(0xC000009D))
#define STATUS_DEVICE_REMOVED (static_cast<NTSTATUS>(0xC00002B6))
#define STATUS_INVALID_DEVICE_STATE (static_cast<NTSTATUS>(0xC0000184))
#define STATUS_INVALID_BUFFER_SIZE (static_cast<NTSTATUS>(0xC0000206))
#define STATUS_NOT_FOUND (static_cast<NTSTATUS>(0xC0000225))
#define STATUS_PROPSET_NOT_FOUND (static_cast<NTSTATUS>(0xC0000230))
#define STATUS_CONNECTION_REFUSED (static_cast<NTSTATUS>(0xC0000236))
#define STATUS_NO_MATCH (static_cast<NTSTATUS>(0xC0000272))

using DRIVER_INITIALIZE = NTSTATUS NTAPI(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath);
using PDRIVER_INITIALIZE = DRIVER_INITIALIZE*;
using DRIVER_ADD_DEVICE = NTSTATUS NTAPI(PDRIVER_OBJECT driver, PDEVICE_OBJECT physicalDevice);
using PDRIVER_ADD_DEVICE = DRIVER_ADD_DEVICE*;
using DRIVER_STARTIO = void NTAPI(PDEVICE_OBJECT device, PIRP irp);
using PDRIVER_STARTIO = DRIVER_STARTIO*;
using DRIVER_UNLOAD = void NTAPI(PDRIVER_OBJECT driver);
using PDRIVER_UNLOAD = DRIVER_UNLOAD*;
using DRIVER_DISPATCH = NTSTATUS NTAPI(PDEVICE_OBJECT device, PIRP irp);
using PDRIVER_DISPATCH = DRIVER_DISPATCH*;
using DRIVER_CANCEL = void NTAPI(PDEVICE_OBJECT device, PIRP irp);
using PDRIVER_CANCEL = DRIVER_CANCEL*;
using IO_COMPLETION_ROUTINE = NTSTATUS NTAPI(PDEVICE_OBJECT device, PIRP irp, PVOID context);
using PIO_COMPLETION_ROUTINE = IO_COMPLETION_ROUTINE*;

/// An application's open file of a device.
struct FILE_OBJECT {
  CSHORT Type;
  CSHORT Size;
  PDEVICE_OBJECT DeviceObject;
  PVPB Vpb;
  PVOID FsContext;   // the driver's
  PVOID FsContext2;  // the driver's
  PSECTION_OBJECT_POINTERS SectionObjectPointer;
  PVOID PrivateCacheMap;
  NTSTATUS FinalStatus;
  PFILE_OBJECT RelatedFileObject;  // during the opening only
  BOOLEAN LockOperation;
  BOOLEAN DeletePending;
  BOOLEAN ReadAccess;
  BOOLEAN WriteAccess;
  BOOLEAN DeleteAccess;
  BOOLEAN SharedRead;
  BOOLEAN SharedWrite;
  BOOLEAN SharedDelete;
  ULONG Flags;
  UNICODE_STRING FileName;
  LARGE_INTEGER CurrentByteOffset;
  volatile ULONG Waiters;
  volatile ULONG Busy;
  PVOID LastLock;
  KEVENT Lock;
  KEVENT Event;
  volatile PIO_COMPLETION_CONTEXT CompletionContext;
  KSPIN_LOCK IrpListLock;
  LIST_ENTRY IrpList;
  volatile PVOID FileObjectExtension;
};

struct KDEVICE_QUEUE_ENTRY {
  LIST_ENTRY DeviceListEntry;
  ULONG SortKey;
  BOOLEAN Inserted;
};

struct KDEVICE_QUEUE {
  CSHORT Type;
  CSHORT Size;
  LIST_ENTRY DeviceListHead;
  KSPIN_LOCK Lock;
#if UINTPTR_MAX > 0xFFFFFFFF
  LONG64 Busy;  // a byte, and a hint in the bytes above it
#else
  BOOLEAN Busy;
#endif
};

struct KAPC {
  UCHAR Type;
  UCHAR SpareByte0;
  UCHAR Size;
  UCHAR SpareByte1;
  ULONG SpareLong0;
  PKTHREAD Thread;
  LIST_ENTRY ApcListEntry;
  PVOID KernelRoutine;
  PVOID RundownRoutine;
  PVOID NormalRoutine;
  PVOID NormalContext;
  PVOID SystemArgument1;
  PVOID SystemArgument2;
  CCHAR ApcStateIndex;
  KPROCESSOR_MODE ApcMode;
  BOOLEAN Inserted;
};

struct WAIT_CONTEXT_BLOCK {
  KDEVICE_QUEUE_ENTRY WaitQueueEntry;
  PVOID DeviceRoutine;
  PVOID DeviceContext;
  ULONG NumberOfMapRegisters;
  PVOID DeviceObject;
  PVOID CurrentIrp;
  PKDPC BufferChainingDpc;
};

struct DEVOBJ_EXTENSION {
  CSHORT Type;
  USHORT Size;
  PDEVICE_OBJECT DeviceObject;
};

struct DEVICE_OBJECT {
  CSHORT Type;
  USHORT Size;
  LONG ReferenceCount;
  PDRIVER_OBJECT DriverObject;
  PDEVICE_OBJECT NextDevice;      // of the same driver
  PDEVICE_OBJECT AttachedDevice;  // the one above in the device stack
  PIRP CurrentIrp;
  PIO_TIMER Timer;
  ULONG Flags;
  ULONG Characteristics;
  PVPB volatile Vpb;
  PVOID DeviceExtension;
  ULONG DeviceType;
  CCHAR StackSize;
  union {
    LIST_ENTRY ListEntry;
    WAIT_CONTEXT_BLOCK Wcb;
  } Queue;
  ULONG AlignmentRequirement;
  KDEVICE_QUEUE DeviceQueue;
  KDPC Dpc;
  ULONG ActiveThreadCount;
  PVOID SecurityDescriptor;
  KEVENT DeviceLock;
  USHORT SectorSize;
  USHORT Spare1;
  DEVOBJ_EXTENSION* DeviceObjectExtension;
  PVOID Reserved;
};

struct DRIVER_EXTENSION {
  PDRIVER_OBJECT DriverObject;
  PDRIVER_ADD_DEVICE AddDevice;
  ULONG Count;
  UNICODE_STRING ServiceKeyName;
};
using PDRIVER_EXTENSION = DRIVER_EXTENSION*;

struct DRIVER_OBJECT {
  CSHORT Type;
  CSHORT Size;
  PDEVICE_OBJECT DeviceObject;
  ULONG Flags;
  PVOID DriverStart;
  ULONG DriverSize;
  PVOID DriverSection;
  PDRIVER_EXTENSION DriverExtension;
  UNICODE_STRING DriverName;
  PUNICODE_STRING HardwareDatabase;
  FAST_IO_DISPATCH* FastIoDispatch;
  PDRIVER_INITIALIZE DriverInit;
  PDRIVER_STARTIO DriverStartIo;
  PDRIVER_UNLOAD DriverUnload;
  PDRIVER_DISPATCH MajorFunction[IRP_MJ_MAXIMUM_FUNCTION + 1];
};

// The platform pads 32-bit members to a pointer's place on 64-bit targets.
#if UINTPTR_MAX > 0xFFFFFFFF
#define LIDCAM_POINTER_ALIGNMENT alignas(8)
#else
#define LIDCAM_POINTER_ALIGNMENT
#pragma pack(push, 4)
#endif

struct IO_STACK_LOCATION {
  UCHAR MajorFunction;
  UCHAR MinorFunction;
  UCHAR Flags;
  UCHAR Control;
  union {
    struct {
      PIO_SECURITY_CONTEXT SecurityContext;
      ULONG Options;
      LIDCAM_POINTER_ALIGNMENT USHORT FileAttributes;
      USHORT ShareAccess;
      LIDCAM_POINTER_ALIGNMENT ULONG EaLength;
    } Create;
    struct {
      ULONG Length;
      LIDCAM_POINTER_ALIGNMENT ULONG Key;
#if UINTPTR_MAX > 0xFFFFFFFF
      ULONG Flags;
#endif
      LARGE_INTEGER ByteOffset;
    } Read;
    struct {
      ULONG OutputBufferLength;
      LIDCAM_POINTER_ALIGNMENT ULONG InputBufferLength;
      LIDCAM_POINTER_ALIGNMENT ULONG IoControlCode;
      PVOID Type3InputBuffer;
    } DeviceIoControl;
    struct {
      PCM_RESOURCE_LIST AllocatedResources;
      PCM_RESOURCE_LIST AllocatedResourcesTranslated;
    } StartDevice;
    struct {
      PDEVICE_CAPABILITIES Capabilities;
    } DeviceCapabilities;
    struct {
      ULONG SystemContext;
      LIDCAM_POINTER_ALIGNMENT POWER_STATE_TYPE Type;
      LIDCAM_POINTER_ALIGNMENT POWER_STATE State;
      LIDCAM_POINTER_ALIGNMENT POWER_ACTION ShutdownType;
    } Power;
    struct {
      PVOID Argument1;
      PVOID Argument2;
      PVOID Argument3;
      PVOID Argument4;
    } Others;
  } Parameters;
  PDEVICE_OBJECT DeviceObject;
  PFILE_OBJECT FileObject;
  PIO_COMPLETION_ROUTINE CompletionRoutine;
  PVOID Context;
};
using PIO_STACK_LOCATION = IO_STACK_LOCATION*;

#if UINTPTR_MAX <= 0xFFFFFFFF
#pragma pack(pop)
#endif

// The platform's members of members without names.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic"

struct IRP {
  CSHORT Type;
  USHORT Size;
  PMDL MdlAddress;
  ULONG Flags;
  union {
    PIRP MasterIrp;
    volatile LONG IrpCount;
    PVOID SystemBuffer;
  } AssociatedIrp;
  LIST_ENTRY ThreadListEntry;
  IO_STATUS_BLOCK IoStatus;
  KPROCESSOR_MODE RequestorMode;
  BOOLEAN PendingReturned;
  CHAR StackCount;
  CHAR CurrentLocation;
  BOOLEAN Cancel;
  KIRQL CancelIrql;
  CCHAR ApcEnvironment;
  UCHAR AllocationFlags;
  PIO_STATUS_BLOCK UserIosb;
  PKEVENT UserEvent;
  union {
    struct {
      union {
        PIO_APC_ROUTINE UserApcRoutine;
        PVOID IssuingProcess;
      };
      PVOID UserApcContext;
    } AsynchronousParameters;
    LARGE_INTEGER AllocationSize;
  } Overlay;
  PDRIVER_CANCEL volatile CancelRoutine;
  PVOID UserBuffer;
  union {
    struct {
      union {
        KDEVICE_QUEUE_ENTRY DeviceQueueEntry;
        struct {
          PVOID DriverContext[4];  // the present owner's
        };
      };
      PETHREAD Thread;
      PCHAR AuxiliaryBuffer;
      struct {
        LIST_ENTRY ListEntry;  // the present owner's
        union {
          PIO_STACK_LOCATION CurrentStackLocation;
          ULONG PacketType;
        };
      };
      PFILE_OBJECT OriginalFileObject;
    } Overlay;
    KAPC Apc;
    PVOID CompletionKey;
  } Tail;
};

#pragma GCC diagnostic pop

extern "C" {

PIRP NTAPI IoAllocateIrp(CCHAR stackSize, BOOLEAN chargeQuota);
void NTAPI IoInitializeIrp(PIRP irp, USHORT packetSize, CCHAR stackSize);
void NTAPI IoReuseIrp(PIRP irp, NTSTATUS status);
void NTAPI IoFreeIrp(PIRP irp);
BOOLEAN NTAPI IoCancelIrp(PIRP irp);
NTSTATUS FASTCALL IofCallDriver(PDEVICE_OBJECT device, PIRP irp);
void FASTCALL IofCompleteRequest(PIRP irp, CCHAR priorityBoost);

/// On Windows an interlocked exchange of the request's CancelRoutine; here a kernel call, so that
/// the scheduler can switch there.
PDRIVER_CANCEL NTAPI IoSetCancelRoutine(PIRP irp, PDRIVER_CANCEL routine);
void NTAPI IoAcquireCancelSpinLock(PKIRQL before);
void NTAPI IoReleaseCancelSpinLock(KIRQL before);

/// Gives a driver object `size` zeroed bytes under `id`, which distinguishes them from those of
/// others that use the same driver object. They are freed with the driver object.
NTSTATUS NTAPI IoAllocateDriverObjectExtension(PDRIVER_OBJECT driver, PVOID id, ULONG size,
                                               PVOID* extension);
/// Null for an unknown id.
PVOID NTAPI IoGetDriverObjectExtension(PDRIVER_OBJECT driver, PVOID id);

NTSTATUS NTAPI IoCreateDevice(PDRIVER_OBJECT driver, ULONG extensionSize, PUNICODE_STRING name,
                              ULONG type, ULONG characteristics, BOOLEAN exclusive,
                              PDEVICE_OBJECT* device);
void NTAPI IoDeleteDevice(PDEVICE_OBJECT device);
PDEVICE_OBJECT NTAPI IoAttachDeviceToDeviceStack(PDEVICE_OBJECT source, PDEVICE_OBJECT target);
void NTAPI IoDetachDevice(PDEVICE_OBJECT target);

}  // extern "C"

#define IoCallDriver IofCallDriver
#define IoCompleteRequest IofCompleteRequest

inline USHORT IoSizeOfIrp(CCHAR stackSize) {
  return static_cast<USHORT>(sizeof(IRP) +
                             static_cast<std::size_t>(stackSize) * sizeof(IO_STACK_LOCATION));
}

inline PIO_STACK_LOCATION IoGetCurrentIrpStackLocation(PIRP irp) {
  return irp->Tail.Overlay.CurrentStackLocation;
}

inline PIO_STACK_LOCATION IoGetNextIrpStackLocation(PIRP irp) {
  return irp->Tail.Overlay.CurrentStackLocation - 1;
}

inline void IoSetNextIrpStackLocation(PIRP irp) {
  --irp->CurrentLocation;
  --irp->Tail.Overlay.CurrentStackLocation;
}

inline void IoSkipCurrentIrpStackLocation(PIRP irp) {
  ++irp->CurrentLocation;
  ++irp->Tail.Overlay.CurrentStackLocation;
}

inline void IoMarkIrpPending(PIRP irp) {
  IO_STACK_LOCATION& location = *IoGetCurrentIrpStackLocation(irp);
  location.Control = static_cast<UCHAR>(location.Control | SL_PENDING_RETURNED);
}

inline void IoCopyCurrentIrpStackLocationToNext(PIRP irp) {
  const IO_STACK_LOCATION& current = *IoGetCurrentIrpStackLocation(irp);
  IO_STACK_LOCATION& next = *IoGetNextIrpStackLocation(irp);
  next = {current.MajorFunction, current.MinorFunction, current.Flags,      0,
          current.Parameters,    current.DeviceObject,  current.FileObject, next.CompletionRoutine,
          next.Context};
}

inline void IoSetCompletionRoutine(PIRP irp, PIO_COMPLETION_ROUTINE routine, PVOID context,
                                   BOOLEAN invokeOnSuccess, BOOLEAN invokeOnError,
                                   BOOLEAN invokeOnCancel) {
  IO_STACK_LOCATION& next = *IoGetNextIrpStackLocation(irp);
  next.CompletionRoutine = routine;
  next.Context = context;
  next.Control = static_cast<UCHAR>((invokeOnSuccess != FALSE ? SL_INVOKE_ON_SUCCESS : 0) |
                                    (invokeOnError != FALSE ? SL_INVOKE_ON_ERROR : 0) |
                                    (invokeOnCancel != FALSE ? SL_INVOKE_ON_CANCEL : 0));
}
