// Sizes and offsets of the published structures that the driver uses, compiled in every world, so
// that the declarations can't drift apart. 32-bit numbers for 32-bit targets, 64-bit for 64-bit.

#include <cstddef>

#include "platform/kernel.h"

namespace {

constexpr std::size_t BitsDependent(std::size_t on32Bits, std::size_t on64Bits) {
  return sizeof(void*) == 4 ? on32Bits : on64Bits;
}

static_assert(sizeof(LONG) == 4);
static_assert(sizeof(ULONG) == 4);
static_assert(sizeof(LARGE_INTEGER) == 8);
static_assert(sizeof(WCHAR) == 2);
static_assert(sizeof(BOOLEAN) == 1);

static_assert(sizeof(LIST_ENTRY) == BitsDependent(8, 16));
static_assert(sizeof(KEVENT) == BitsDependent(16, 24));
static_assert(offsetof(KEVENT, Header) == 0);

static_assert(sizeof(KIRQL) == 1);
static_assert(sizeof(KSPIN_LOCK) == BitsDependent(4, 8));
static_assert(sizeof(DISPATCHER_HEADER) == BitsDependent(16, 24));
static_assert(offsetof(DISPATCHER_HEADER, SignalState) == 4);
static_assert(offsetof(DISPATCHER_HEADER, WaitListHead) == 8);
static_assert(sizeof(KSEMAPHORE) == BitsDependent(20, 32));
static_assert(offsetof(KSEMAPHORE, Limit) == BitsDependent(16, 24));
static_assert(sizeof(KMUTEX) == BitsDependent(32, 56));
static_assert(offsetof(KMUTEX, MutantListEntry) == BitsDependent(16, 24));
static_assert(offsetof(KMUTEX, OwnerThread) == BitsDependent(24, 40));
static_assert(offsetof(KMUTEX, Abandoned) == BitsDependent(28, 48));
static_assert(offsetof(KMUTEX, ApcDisable) == BitsDependent(29, 49));
static_assert(sizeof(KTIMER) == BitsDependent(40, 64));
static_assert(offsetof(KTIMER, DueTime) == BitsDependent(16, 24));
static_assert(offsetof(KTIMER, TimerListEntry) == BitsDependent(24, 32));
static_assert(offsetof(KTIMER, Dpc) == BitsDependent(32, 48));
static_assert(offsetof(KTIMER, Period) == BitsDependent(36, 60));
static_assert(sizeof(KDPC) == BitsDependent(32, 64));
static_assert(offsetof(KDPC, Importance) == 1);
static_assert(offsetof(KDPC, Number) == 2);
static_assert(offsetof(KDPC, DpcListEntry) == BitsDependent(4, 8));
static_assert(offsetof(KDPC, DeferredRoutine) == BitsDependent(12, 24));
static_assert(offsetof(KDPC, DeferredContext) == BitsDependent(16, 32));
static_assert(offsetof(KDPC, SystemArgument1) == BitsDependent(20, 40));
static_assert(offsetof(KDPC, SystemArgument2) == BitsDependent(24, 48));
static_assert(offsetof(KDPC, DpcData) == BitsDependent(28, 56));
static_assert(sizeof(KWAIT_BLOCK) == BitsDependent(24, 48));
static_assert(sizeof(WORK_QUEUE_ITEM) == BitsDependent(16, 32));
static_assert(offsetof(WORK_QUEUE_ITEM, WorkerRoutine) == BitsDependent(8, 16));
static_assert(offsetof(WORK_QUEUE_ITEM, Parameter) == BitsDependent(12, 24));
static_assert(sizeof(CLIENT_ID) == BitsDependent(8, 16));

static_assert(sizeof(KFLOATING_SAVE) == BitsDependent(32, 4));

static_assert(sizeof(UNICODE_STRING) == BitsDependent(8, 16));
static_assert(offsetof(UNICODE_STRING, MaximumLength) == 2);
static_assert(offsetof(UNICODE_STRING, Buffer) == BitsDependent(4, 8));

static_assert(sizeof(OBJECT_ATTRIBUTES) == BitsDependent(24, 48));
static_assert(offsetof(OBJECT_ATTRIBUTES, ObjectName) == BitsDependent(8, 16));
static_assert(offsetof(OBJECT_ATTRIBUTES, Attributes) == BitsDependent(12, 24));

static_assert(sizeof(IO_STATUS_BLOCK) == BitsDependent(8, 16));
static_assert(offsetof(IO_STATUS_BLOCK, Information) == BitsDependent(4, 8));

static_assert(sizeof(KEY_VALUE_FULL_INFORMATION) == 24);
static_assert(offsetof(KEY_VALUE_FULL_INFORMATION, DataOffset) == 8);
static_assert(offsetof(KEY_VALUE_FULL_INFORMATION, DataLength) == 12);
static_assert(offsetof(KEY_VALUE_FULL_INFORMATION, NameLength) == 16);
static_assert(offsetof(KEY_VALUE_FULL_INFORMATION, Name) == 20);

// Published values, as numbers: the driver's requests carry them.
static_assert(NonPagedPool == 0);
static_assert(NotificationEvent == 0 && SynchronizationEvent == 1);
static_assert(Executive == 0 && KernelMode == 0);
static_assert(PASSIVE_LEVEL == 0 && APC_LEVEL == 1 && DISPATCH_LEVEL == 2);
static_assert(HIGH_LEVEL == BitsDependent(31, 15));
static_assert(NotificationTimer == 0 && SynchronizationTimer == 1);
static_assert(WaitAll == 0 && WaitAny == 1);
static_assert(MAXIMUM_WAIT_OBJECTS == 64 && THREAD_WAIT_OBJECTS == 3);
static_assert(CriticalWorkQueue == 0 && DelayedWorkQueue == 1);
static_assert(LOW_REALTIME_PRIORITY == 16);
static_assert(IO_NO_INCREMENT == 0);
static_assert(KeyValueFullInformation == 1);
static_assert(PLUGPLAY_REGKEY_DRIVER == 2);
static_assert(REG_DWORD == 4);
static_assert(REG_OPTION_NON_VOLATILE == 0);
static_assert(KEY_ALL_ACCESS == 0x000F003F);
static_assert(OBJ_CASE_INSENSITIVE == 0x40 && OBJ_OPENIF == 0x80 && OBJ_KERNEL_HANDLE == 0x200);
static_assert(FILE_READ_DATA == 1 && FILE_WRITE_DATA == 2);
static_assert(FILE_ATTRIBUTE_NORMAL == 0x80);
static_assert(FILE_SHARE_READ == 1 && FILE_SHARE_WRITE == 2);
static_assert(FILE_OPEN == 1 && FILE_OVERWRITE_IF == 5);
static_assert(FILE_SYNCHRONOUS_IO_NONALERT == 0x20);
static_assert(static_cast<ULONG>(STATUS_TIMEOUT) == 0x00000102);
static_assert(static_cast<ULONG>(STATUS_BUFFER_OVERFLOW) == 0x80000005);
static_assert(static_cast<ULONG>(STATUS_UNSUCCESSFUL) == 0xC0000001);
static_assert(static_cast<ULONG>(STATUS_END_OF_FILE) == 0xC0000011);
static_assert(static_cast<ULONG>(STATUS_BUFFER_TOO_SMALL) == 0xC0000023);
static_assert(static_cast<ULONG>(STATUS_OBJECT_NAME_NOT_FOUND) == 0xC0000034);
static_assert(static_cast<ULONG>(STATUS_INSUFFICIENT_RESOURCES) == 0xC000009A);

}  // namespace
