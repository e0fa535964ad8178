#pragma once

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {

enum class CallEffect { None, Allocates, Waits };

/// A kernel call's name, as in reports and traces, the interrupt levels it is allowed at, and its
/// effects that time-critical paths must not have.
struct CallRule {
  const char* Name;
  KIRQL Highest = DISPATCH_LEVEL;
  KIRQL Lowest = PASSIVE_LEVEL;
  CallEffect Effect = CallEffect::None;  ///< for any arguments
};

namespace calls {

inline constexpr CallRule kKeInitializeEvent{"KeInitializeEvent", HIGH_LEVEL};
inline constexpr CallRule kKeSetEvent{"KeSetEvent"};
inline constexpr CallRule kKeClearEvent{"KeClearEvent"};
inline constexpr CallRule kKeResetEvent{"KeResetEvent"};
inline constexpr CallRule kKeReadStateEvent{"KeReadStateEvent"};
inline constexpr CallRule kKeInitializeSemaphore{"KeInitializeSemaphore", HIGH_LEVEL};
inline constexpr CallRule kKeReleaseSemaphore{"KeReleaseSemaphore"};
inline constexpr CallRule kKeInitializeMutex{"KeInitializeMutex", HIGH_LEVEL};
inline constexpr CallRule kKeReleaseMutex{"KeReleaseMutex"};

// At DISPATCH_LEVEL with a time limit of 0 only: a caller that may block must be at APC_LEVEL or
// below.
inline constexpr CallRule kKeWaitForSingleObject{"KeWaitForSingleObject"};
inline constexpr CallRule kKeWaitForMultipleObjects{"KeWaitForMultipleObjects"};
inline constexpr CallRule kKeDelayExecutionThread{"KeDelayExecutionThread", APC_LEVEL};

inline constexpr CallRule kKeInitializeTimerEx{"KeInitializeTimerEx"};
inline constexpr CallRule kKeSetTimerEx{"KeSetTimerEx"};
inline constexpr CallRule kKeCancelTimer{"KeCancelTimer"};
inline constexpr CallRule kKeInitializeDpc{"KeInitializeDpc", HIGH_LEVEL};
inline constexpr CallRule kKeInsertQueueDpc{"KeInsertQueueDpc", HIGH_LEVEL};
inline constexpr CallRule kKeQuerySystemTime{"KeQuerySystemTime", HIGH_LEVEL};
inline constexpr CallRule kKeQueryInterruptTime{"KeQueryInterruptTime", HIGH_LEVEL};

inline constexpr CallRule kKeGetCurrentIrql{"KeGetCurrentIrql", HIGH_LEVEL};
inline constexpr CallRule kKeRaiseIrql{"KeRaiseIrql", HIGH_LEVEL};
inline constexpr CallRule kKeLowerIrql{"KeLowerIrql", HIGH_LEVEL};
inline constexpr CallRule kKeInitializeSpinLock{"KeInitializeSpinLock", HIGH_LEVEL};
inline constexpr CallRule kKeAcquireSpinLock{"KeAcquireSpinLock"};
inline constexpr CallRule kKeReleaseSpinLock{"KeReleaseSpinLock", DISPATCH_LEVEL, DISPATCH_LEVEL};
inline constexpr CallRule kKeAcquireSpinLockAtDpcLevel{"KeAcquireSpinLockAtDpcLevel",
                                                       DISPATCH_LEVEL, DISPATCH_LEVEL};
inline constexpr CallRule kKeReleaseSpinLockFromDpcLevel{"KeReleaseSpinLockFromDpcLevel",
                                                         DISPATCH_LEVEL, DISPATCH_LEVEL};
inline constexpr CallRule kExInterlockedInsertTailList{"ExInterlockedInsertTailList", HIGH_LEVEL};
inline constexpr CallRule kExInterlockedRemoveHeadList{"ExInterlockedRemoveHeadList", HIGH_LEVEL};
inline constexpr CallRule kInterlocked{"Interlocked", HIGH_LEVEL};
inline constexpr CallRule kYieldProcessor{"YieldProcessor", HIGH_LEVEL};

inline constexpr CallRule kKeGetCurrentThread{"KeGetCurrentThread", HIGH_LEVEL};
inline constexpr CallRule kKeSetPriorityThread{"KeSetPriorityThread"};
inline constexpr CallRule kPsCreateSystemThread{"PsCreateSystemThread", PASSIVE_LEVEL,
                                                PASSIVE_LEVEL, CallEffect::Allocates};
inline constexpr CallRule kPsTerminateSystemThread{"PsTerminateSystemThread", PASSIVE_LEVEL};
inline constexpr CallRule kObReferenceObjectByHandle{"ObReferenceObjectByHandle", PASSIVE_LEVEL};
inline constexpr CallRule kObfDereferenceObject{"ObfDereferenceObject"};

inline constexpr CallRule kIoAllocateWorkItem{"IoAllocateWorkItem", DISPATCH_LEVEL, PASSIVE_LEVEL,
                                              CallEffect::Allocates};
inline constexpr CallRule kIoQueueWorkItem{"IoQueueWorkItem"};
inline constexpr CallRule kIoFreeWorkItem{"IoFreeWorkItem"};
inline constexpr CallRule kExQueueWorkItem{"ExQueueWorkItem"};

inline constexpr CallRule kIoAllocateIrp{"IoAllocateIrp", DISPATCH_LEVEL, PASSIVE_LEVEL,
                                         CallEffect::Allocates};
inline constexpr CallRule kIoInitializeIrp{"IoInitializeIrp"};
inline constexpr CallRule kIoReuseIrp{"IoReuseIrp"};
inline constexpr CallRule kIoFreeIrp{"IoFreeIrp"};
inline constexpr CallRule kIofCallDriver{"IofCallDriver"};
inline constexpr CallRule kIofCompleteRequest{"IofCompleteRequest"};
inline constexpr CallRule kIoCancelIrp{"IoCancelIrp"};
inline constexpr CallRule kIoSetCancelRoutine{"IoSetCancelRoutine"};
inline constexpr CallRule kIoAcquireCancelSpinLock{"IoAcquireCancelSpinLock"};
inline constexpr CallRule kIoReleaseCancelSpinLock{"IoReleaseCancelSpinLock", DISPATCH_LEVEL,
                                                   DISPATCH_LEVEL};
inline constexpr CallRule kIoAllocateDriverObjectExtension{
    "IoAllocateDriverObjectExtension", PASSIVE_LEVEL, PASSIVE_LEVEL, CallEffect::Allocates};
inline constexpr CallRule kIoGetDriverObjectExtension{"IoGetDriverObjectExtension"};
inline constexpr CallRule kIoCreateDevice{"IoCreateDevice", PASSIVE_LEVEL, PASSIVE_LEVEL,
                                          CallEffect::Allocates};
inline constexpr CallRule kIoDeleteDevice{"IoDeleteDevice", PASSIVE_LEVEL};
inline constexpr CallRule kIoAttachDeviceToDeviceStack{"IoAttachDeviceToDeviceStack",
                                                       PASSIVE_LEVEL};
inline constexpr CallRule kIoDetachDevice{"IoDetachDevice", PASSIVE_LEVEL};

inline constexpr CallRule kExAllocateNonPaged{"ExAllocatePoolWithTag", DISPATCH_LEVEL,
                                              PASSIVE_LEVEL, CallEffect::Allocates};
inline constexpr CallRule kExAllocatePaged{"ExAllocatePoolWithTag", APC_LEVEL, PASSIVE_LEVEL,
                                           CallEffect::Allocates};
inline constexpr CallRule kExFreeNonPaged{"ExFreePool"};
inline constexpr CallRule kExFreePaged{"ExFreePool", APC_LEVEL};
inline constexpr CallRule kKeSaveFloatingPointState{"KeSaveFloatingPointState"};
inline constexpr CallRule kKeRestoreFloatingPointState{"KeRestoreFloatingPointState"};

inline constexpr CallRule kZwClose{"ZwClose", PASSIVE_LEVEL, PASSIVE_LEVEL, CallEffect::Waits};
inline constexpr CallRule kZwCreateFile{"ZwCreateFile", PASSIVE_LEVEL, PASSIVE_LEVEL,
                                        CallEffect::Waits};
inline constexpr CallRule kZwReadFile{"ZwReadFile", PASSIVE_LEVEL, PASSIVE_LEVEL,
                                      CallEffect::Waits};
inline constexpr CallRule kZwWriteFile{"ZwWriteFile", PASSIVE_LEVEL, PASSIVE_LEVEL,
                                       CallEffect::Waits};
inline constexpr CallRule kZwCreateKey{"ZwCreateKey", PASSIVE_LEVEL, PASSIVE_LEVEL,
                                       CallEffect::Waits};
inline constexpr CallRule kZwQueryValueKey{"ZwQueryValueKey", PASSIVE_LEVEL, PASSIVE_LEVEL,
                                           CallEffect::Waits};
inline constexpr CallRule kZwSetValueKey{"ZwSetValueKey", PASSIVE_LEVEL, PASSIVE_LEVEL,
                                         CallEffect::Waits};
inline constexpr CallRule kIoOpenDeviceRegistryKey{"IoOpenDeviceRegistryKey", PASSIVE_LEVEL,
                                                   PASSIVE_LEVEL, CallEffect::Waits};

}  // namespace calls
}  // namespace lidcam::host
