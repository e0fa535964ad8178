#pragma once

// Published kernel interfaces of threads, time, interrupt levels and locks. Included by
// nt_declarations.h, whose types they use.

#include "platform/host/nt/declarations/nt_declarations.h"

using LONG_PTR = std::intptr_t;
using KIRQL = UCHAR;
using PKIRQL = KIRQL*;
using KSPIN_LOCK = ULONG_PTR;
using PKSPIN_LOCK = KSPIN_LOCK*;

#define PASSIVE_LEVEL 0
#define APC_LEVEL 1
#define DISPATCH_LEVEL 2
#if UINTPTR_MAX > 0xFFFFFFFF
#define HIGH_LEVEL 15
#else
#define HIGH_LEVEL 31
#endif

#define STATUS_WAIT_0 (static_cast<NTSTATUS>(0x00000000))
#define IO_NO_INCREMENT 0
#define EVENT_INCREMENT 1
#define LOW_REALTIME_PRIORITY 16
#define THREAD_ALL_ACCESS 0x001F03FFU
#define MAXIMUM_WAIT_OBJECTS 64
#define THREAD_WAIT_OBJECTS 3

#define CONTAINING_RECORD(address, type, field) \
  (reinterpret_cast<type*>(reinterpret_cast<char*>(address) - offsetof(type, field)))

union ULARGE_INTEGER {
  struct {
    ULONG LowPart;
    ULONG HighPart;
  } u;
  ULONGLONG QuadPart;
};

struct KSEMAPHORE {
  DISPATCHER_HEADER Header;
  LONG Limit;
};
using PKSEMAPHORE = KSEMAPHORE*;
using PRKSEMAPHORE = KSEMAPHORE*;

// Drivers see the name only.
struct KTHREAD;
using PKTHREAD = KTHREAD*;
using PETHREAD = KTHREAD*;

struct KMUTANT {
  DISPATCHER_HEADER Header;
  LIST_ENTRY MutantListEntry;
  PKTHREAD OwnerThread;
  BOOLEAN Abandoned;
  UCHAR ApcDisable;
};
using KMUTEX = KMUTANT;
using PKMUTEX = KMUTEX*;
using PRKMUTEX = KMUTEX*;

struct KDPC;
using PKDPC = KDPC*;
using PRKDPC = KDPC*;
using KDEFERRED_ROUTINE = void NTAPI(PKDPC dpc, PVOID context, PVOID argument1, PVOID argument2);
using PKDEFERRED_ROUTINE = KDEFERRED_ROUTINE*;

struct KDPC {
  UCHAR Type;
  UCHAR Importance;
  volatile USHORT Number;
  LIST_ENTRY DpcListEntry;
  PKDEFERRED_ROUTINE DeferredRoutine;
  PVOID DeferredContext;
  PVOID SystemArgument1;
  PVOID SystemArgument2;
  PVOID volatile DpcData;
};

struct KTIMER {
  DISPATCHER_HEADER Header;
  ULARGE_INTEGER DueTime;
  LIST_ENTRY TimerListEntry;
  PKDPC Dpc;
#if UINTPTR_MAX > 0xFFFFFFFF
  ULONG Processor;
#endif
  ULONG Period;  // milliseconds
};
using PKTIMER = KTIMER*;
using PRKTIMER = KTIMER*;

struct KWAIT_BLOCK {
  LIST_ENTRY WaitListEntry;
  PKTHREAD Thread;
  PVOID Object;
  KWAIT_BLOCK* NextWaitBlock;
  USHORT WaitKey;
  UCHAR WaitType;
  volatile UCHAR BlockState;
#if UINTPTR_MAX > 0xFFFFFFFF
  LONG SpareLong;
#endif
};
using PKWAIT_BLOCK = KWAIT_BLOCK*;

struct CLIENT_ID {
  HANDLE UniqueProcess;
  HANDLE UniqueThread;
};
using PCLIENT_ID = CLIENT_ID*;

using KSTART_ROUTINE = void NTAPI(PVOID context);
using PKSTART_ROUTINE = KSTART_ROUTINE*;

using WORKER_THREAD_ROUTINE = void NTAPI(PVOID parameter);
using PWORKER_THREAD_ROUTINE = WORKER_THREAD_ROUTINE*;

struct WORK_QUEUE_ITEM {
  LIST_ENTRY List;
  PWORKER_THREAD_ROUTINE WorkerRoutine;
  PVOID Parameter;
};
using PWORK_QUEUE_ITEM = WORK_QUEUE_ITEM*;

// Drivers see the name only.
struct IO_WORKITEM;
using PIO_WORKITEM = IO_WORKITEM*;
using IO_WORKITEM_ROUTINE = void NTAPI(PDEVICE_OBJECT device, PVOID context);
using PIO_WORKITEM_ROUTINE = IO_WORKITEM_ROUTINE*;

struct OBJECT_TYPE;
using POBJECT_TYPE = OBJECT_TYPE*;
struct OBJECT_HANDLE_INFORMATION;
using POBJECT_HANDLE_INFORMATION = OBJECT_HANDLE_INFORMATION*;

// Handles here know the types of their objects: callers pass none.
inline constexpr POBJECT_TYPE* IoFileObjectType = nullptr;

enum TIMER_TYPE { NotificationTimer = 0, SynchronizationTimer = 1 };
enum WAIT_TYPE { WaitAll = 0, WaitAny = 1 };
enum WORK_QUEUE_TYPE { CriticalWorkQueue = 0, DelayedWorkQueue = 1, HyperCriticalWorkQueue = 2 };

extern "C" {

void NTAPI KeClearEvent(PRKEVENT event);
LONG NTAPI KeResetEvent(PRKEVENT event);
LONG NTAPI KeReadStateEvent(PRKEVENT event);

void NTAPI KeInitializeSemaphore(PRKSEMAPHORE semaphore, LONG count, LONG limit);
LONG NTAPI KeReleaseSemaphore(PRKSEMAPHORE semaphore, KPRIORITY increment, LONG adjustment,
                              BOOLEAN wait);

void NTAPI KeInitializeMutex(PRKMUTEX mutex, ULONG level);
LONG NTAPI KeReleaseMutex(PRKMUTEX mutex, BOOLEAN wait);

NTSTATUS NTAPI KeWaitForMultipleObjects(ULONG count, PVOID objects[], WAIT_TYPE type,
                                        KWAIT_REASON reason, KPROCESSOR_MODE mode,
                                        BOOLEAN alertable, PLARGE_INTEGER timeout,
                                        PKWAIT_BLOCK waitBlocks);
NTSTATUS NTAPI KeDelayExecutionThread(KPROCESSOR_MODE mode, BOOLEAN alertable,
                                      PLARGE_INTEGER interval);

void NTAPI KeInitializeTimer(PKTIMER timer);
void NTAPI KeInitializeTimerEx(PKTIMER timer, TIMER_TYPE type);
BOOLEAN NTAPI KeSetTimer(PKTIMER timer, LARGE_INTEGER dueTime, PKDPC dpc);
BOOLEAN NTAPI KeSetTimerEx(PKTIMER timer, LARGE_INTEGER dueTime, LONG period, PKDPC dpc);
BOOLEAN NTAPI KeCancelTimer(PKTIMER timer);

void NTAPI KeInitializeDpc(PRKDPC dpc, PKDEFERRED_ROUTINE routine, PVOID context);
BOOLEAN NTAPI KeInsertQueueDpc(PRKDPC dpc, PVOID argument1, PVOID argument2);

void NTAPI KeQuerySystemTime(PLARGE_INTEGER time);
ULONGLONG NTAPI KeQueryInterruptTime();

KIRQL NTAPI KeGetCurrentIrql();
void NTAPI KeRaiseIrql(KIRQL level, PKIRQL before);
void NTAPI KeLowerIrql(KIRQL level);

void NTAPI KeInitializeSpinLock(PKSPIN_LOCK lock);
void NTAPI KeAcquireSpinLock(PKSPIN_LOCK lock, PKIRQL before);
void NTAPI KeReleaseSpinLock(PKSPIN_LOCK lock, KIRQL before);
void NTAPI KeAcquireSpinLockAtDpcLevel(PKSPIN_LOCK lock);
void NTAPI KeReleaseSpinLockFromDpcLevel(PKSPIN_LOCK lock);

PLIST_ENTRY NTAPI ExInterlockedInsertTailList(PLIST_ENTRY head, PLIST_ENTRY entry,
                                              PKSPIN_LOCK lock);
PLIST_ENTRY NTAPI ExInterlockedRemoveHeadList(PLIST_ENTRY head, PKSPIN_LOCK lock);

LONG NTAPI InterlockedIncrement(LONG volatile* addend);
LONG NTAPI InterlockedDecrement(LONG volatile* addend);
LONG NTAPI InterlockedExchange(LONG volatile* target, LONG value);
LONG NTAPI InterlockedExchangeAdd(LONG volatile* addend, LONG value);
LONG NTAPI InterlockedCompareExchange(LONG volatile* target, LONG value, LONG comparand);

PKTHREAD NTAPI KeGetCurrentThread();
KPRIORITY NTAPI KeSetPriorityThread(PKTHREAD thread, KPRIORITY priority);
NTSTATUS NTAPI PsCreateSystemThread(PHANDLE thread, ULONG access, POBJECT_ATTRIBUTES attributes,
                                    HANDLE process, PCLIENT_ID clientId, PKSTART_ROUTINE routine,
                                    PVOID context);
/// Ends the calling thread at once, as the platform does: it never returns.
NTSTATUS NTAPI PsTerminateSystemThread(NTSTATUS status);

NTSTATUS NTAPI ObReferenceObjectByHandle(HANDLE handle, ACCESS_MASK access, POBJECT_TYPE type,
                                         KPROCESSOR_MODE mode, PVOID* object,
                                         POBJECT_HANDLE_INFORMATION information);
LONG_PTR FASTCALL ObfDereferenceObject(PVOID object);

PIO_WORKITEM NTAPI IoAllocateWorkItem(PDEVICE_OBJECT device);
void NTAPI IoQueueWorkItem(PIO_WORKITEM item, PIO_WORKITEM_ROUTINE routine, WORK_QUEUE_TYPE queue,
                           PVOID context);
void NTAPI IoFreeWorkItem(PIO_WORKITEM item);
void NTAPI ExQueueWorkItem(PWORK_QUEUE_ITEM item, WORK_QUEUE_TYPE queue);

}  // extern "C"

#define ObDereferenceObject ObfDereferenceObject

inline void ExInitializeWorkItem(PWORK_QUEUE_ITEM item, PWORKER_THREAD_ROUTINE routine,
                                 PVOID parameter) {
  item->List.Flink = nullptr;
  item->WorkerRoutine = routine;
  item->Parameter = parameter;
}

inline void InitializeListHead(PLIST_ENTRY head) {
  head->Flink = head->Blink = head;
}

inline BOOLEAN IsListEmpty(const LIST_ENTRY* head) {
  return head->Flink == head ? TRUE : FALSE;
}

inline BOOLEAN RemoveEntryList(PLIST_ENTRY entry) {
  LIST_ENTRY* const next = entry->Flink;
  LIST_ENTRY* const previous = entry->Blink;
  previous->Flink = next;
  next->Blink = previous;
  return next == previous ? TRUE : FALSE;
}

inline PLIST_ENTRY RemoveHeadList(PLIST_ENTRY head) {
  LIST_ENTRY* const entry = head->Flink;
  RemoveEntryList(entry);
  return entry;
}

inline void InsertTailList(PLIST_ENTRY head, PLIST_ENTRY entry) {
  LIST_ENTRY* const last = head->Blink;
  entry->Flink = head;
  entry->Blink = last;
  last->Flink = entry;
  head->Blink = entry;
}
