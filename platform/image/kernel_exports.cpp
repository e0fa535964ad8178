#include "platform/image/kernel_exports.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

#include "platform/host/nt/scheduling/scheduler.h"
#include "platform/host/nt/scheduling/violation.h"
#include "platform/host/nt/verifier/lock_order.h"
#include "platform/host/nt/verifier/object_tracker.h"
#include "platform/kernel.h"

namespace lidcam::image {
namespace {

// ---- Functions that the platform's headers define inline for a driver compiled here.

LARGE_INTEGER NTAPI QueryPerformanceCounter(PLARGE_INTEGER frequency) {
  constexpr LONGLONG kUnitsInSecond = 10'000'000;
  if (frequency != nullptr) frequency->QuadPart = kUnitsInSecond;
  LARGE_INTEGER time{};
  time.QuadPart = host::CurrentWorld().Now();
  return time;
}

// An image initialises a spin lock without a call: it becomes known at its first use.
KIRQL NTAPI AcquireSpinLockRaiseToDpc(PKSPIN_LOCK lock) {
  if (*lock == 0 && !host::IsRegisteredObject(lock)) {
    host::ForgetLockOrder(lock);
    host::RegisterObject("KeAcquireSpinLock", host::ObjectKind::SpinLock, lock, sizeof(*lock));
  }
  KIRQL before = PASSIVE_LEVEL;
  KeAcquireSpinLock(lock, &before);
  return before;
}

[[noreturn]] void NTAPI BugCheck(ULONG code, ULONG_PTR first, ULONG_PTR, ULONG_PTR, ULONG_PTR) {
  host::ReportViolation("KeBugCheckEx", "the driver stops the system with code " +
                                            std::to_string(code) + ", " + std::to_string(first));
}

void* NTAPI CopyMemory(void* to, const void* from, SIZE_T size) {
  return std::memcpy(to, from, size);
}

void* NTAPI FillMemory(void* memory, int value, SIZE_T size) {
  return std::memset(memory, value, size);
}

template <typename Function>
KernelExport Export(std::string_view library, std::string_view name, Function* function,
                    bool isPlain = false) {
  return {library, name, reinterpret_cast<void (*)()>(function), isPlain};
}

// By library, then by name.
const std::array kExports{
    Export("hal.dll", "KeQueryPerformanceCounter", QueryPerformanceCounter),
    Export("ks.sys", "KsAcquireControl", KsAcquireControl),
    Export("ks.sys", "KsAcquireDevice", KsAcquireDevice),
    Export("ks.sys", "KsAddItemToObjectBag", KsAddItemToObjectBag),
    Export("ks.sys", "KsCreateFilterFactory", KsCreateFilterFactory),
    Export("ks.sys", "KsFilterCreatePinFactory", KsFilterCreatePinFactory),
    Export("ks.sys", "KsGetDevice", KsGetDevice),
    Export("ks.sys", "KsGetFilterFromIrp", KsGetFilterFromIrp),
    Export("ks.sys", "KsGetPinFromIrp", KsGetPinFromIrp),
    Export("ks.sys", "KsInitializeDriver", KsInitializeDriver),
    Export("ks.sys", "KsPinAttemptProcessing", KsPinAttemptProcessing),
    Export("ks.sys", "KsPinGetLeadingEdgeStreamPointer", KsPinGetLeadingEdgeStreamPointer),
    Export("ks.sys", "KsPinGetReferenceClockInterface", KsPinGetReferenceClockInterface),
    Export("ks.sys", "KsReleaseControl", KsReleaseControl),
    Export("ks.sys", "KsReleaseDevice", KsReleaseDevice),
    Export("ks.sys", "KsStreamPointerUnlock", KsStreamPointerUnlock),
    Export("ks.sys", "_KsEdit", _KsEdit),
    Export("ntoskrnl.exe", "DbgPrint", DbgPrint),
    Export("ntoskrnl.exe", "ExAllocatePoolWithTag", ExAllocatePoolWithTag),
    Export("ntoskrnl.exe", "ExFreePool", ExFreePool),
    Export("ntoskrnl.exe", "ExInterlockedInsertTailList", ExInterlockedInsertTailList),
    Export("ntoskrnl.exe", "ExInterlockedRemoveHeadList", ExInterlockedRemoveHeadList),
    Export("ntoskrnl.exe", "ExQueueWorkItem", ExQueueWorkItem),
    Export("ntoskrnl.exe", "IoAllocateIrp", IoAllocateIrp),
    Export("ntoskrnl.exe", "IoAllocateWorkItem", IoAllocateWorkItem),
    Export("ntoskrnl.exe", "IoAttachDeviceToDeviceStack", IoAttachDeviceToDeviceStack),
    Export("ntoskrnl.exe", "IoCancelIrp", IoCancelIrp),
    Export("ntoskrnl.exe", "IoCreateDevice", IoCreateDevice),
    Export("ntoskrnl.exe", "IoDeleteDevice", IoDeleteDevice),
    Export("ntoskrnl.exe", "IoDetachDevice", IoDetachDevice),
    Export("ntoskrnl.exe", "IoFreeIrp", IoFreeIrp),
    Export("ntoskrnl.exe", "IoFreeWorkItem", IoFreeWorkItem),
    Export("ntoskrnl.exe", "IoInitializeIrp", IoInitializeIrp),
    Export("ntoskrnl.exe", "IoIsWdmVersionAvailable", IoIsWdmVersionAvailable),
    Export("ntoskrnl.exe", "IoOpenDeviceRegistryKey", IoOpenDeviceRegistryKey),
    Export("ntoskrnl.exe", "IoQueueWorkItem", IoQueueWorkItem),
    Export("ntoskrnl.exe", "IoReuseIrp", IoReuseIrp),
    Export("ntoskrnl.exe", "IofCallDriver", IofCallDriver),
    Export("ntoskrnl.exe", "IofCompleteRequest", IofCompleteRequest),
    Export("ntoskrnl.exe", "KeAcquireSpinLockRaiseToDpc", AcquireSpinLockRaiseToDpc),
    Export("ntoskrnl.exe", "KeBugCheckEx", BugCheck),
    Export("ntoskrnl.exe", "KeCancelTimer", KeCancelTimer),
    Export("ntoskrnl.exe", "KeClearEvent", KeClearEvent),
    Export("ntoskrnl.exe", "KeDelayExecutionThread", KeDelayExecutionThread),
    Export("ntoskrnl.exe", "KeInitializeDpc", KeInitializeDpc),
    Export("ntoskrnl.exe", "KeInitializeEvent", KeInitializeEvent),
    Export("ntoskrnl.exe", "KeInitializeMutex", KeInitializeMutex),
    Export("ntoskrnl.exe", "KeInitializeSemaphore", KeInitializeSemaphore),
    Export("ntoskrnl.exe", "KeInitializeTimer", KeInitializeTimer),
    Export("ntoskrnl.exe", "KeInitializeTimerEx", KeInitializeTimerEx),
    Export("ntoskrnl.exe", "KeInsertQueueDpc", KeInsertQueueDpc),
    Export("ntoskrnl.exe", "KeReadStateEvent", KeReadStateEvent),
    Export("ntoskrnl.exe", "KeReleaseMutex", KeReleaseMutex),
    Export("ntoskrnl.exe", "KeReleaseSemaphore", KeReleaseSemaphore),
    Export("ntoskrnl.exe", "KeReleaseSpinLock", KeReleaseSpinLock),
    Export("ntoskrnl.exe", "KeResetEvent", KeResetEvent),
    Export("ntoskrnl.exe", "KeSetEvent", KeSetEvent),
    Export("ntoskrnl.exe", "KeSetPriorityThread", KeSetPriorityThread),
    Export("ntoskrnl.exe", "KeSetTimer", KeSetTimer),
    Export("ntoskrnl.exe", "KeSetTimerEx", KeSetTimerEx),
    Export("ntoskrnl.exe", "KeWaitForMultipleObjects", KeWaitForMultipleObjects),
    Export("ntoskrnl.exe", "KeWaitForSingleObject", KeWaitForSingleObject),
    Export("ntoskrnl.exe", "ObReferenceObjectByHandle", ObReferenceObjectByHandle),
    Export("ntoskrnl.exe", "ObfDereferenceObject", ObfDereferenceObject),
    Export("ntoskrnl.exe", "PsCreateSystemThread", PsCreateSystemThread),
    Export("ntoskrnl.exe", "PsTerminateSystemThread", PsTerminateSystemThread),
    Export("ntoskrnl.exe", "RtlAppendUnicodeToString", RtlAppendUnicodeToString),
    Export("ntoskrnl.exe", "RtlInitUnicodeString", RtlInitUnicodeString),
    Export("ntoskrnl.exe", "ZwClose", ZwClose),
    Export("ntoskrnl.exe", "ZwCreateFile", ZwCreateFile),
    Export("ntoskrnl.exe", "ZwCreateKey", ZwCreateKey),
    Export("ntoskrnl.exe", "ZwQueryValueKey", ZwQueryValueKey),
    Export("ntoskrnl.exe", "ZwReadFile", ZwReadFile),
    Export("ntoskrnl.exe", "ZwSetValueKey", ZwSetValueKey),
    Export("ntoskrnl.exe", "ZwWriteFile", ZwWriteFile),
    Export("ntoskrnl.exe", "memcpy", CopyMemory, true),
    Export("ntoskrnl.exe", "memset", FillMemory, true),
    Export("usbd.sys", "USBD_CreateConfigurationRequestEx", USBD_CreateConfigurationRequestEx),
    Export("usbd.sys", "USBD_ParseConfigurationDescriptorEx", USBD_ParseConfigurationDescriptorEx),
};

}  // namespace

const KernelExport* FindKernelExport(std::string_view library, std::string_view name) {
  const auto found = std::ranges::find_if(kExports, [&](const KernelExport& function) {
    return function.Library == library && function.Name == name;
  });
  return found != kExports.end() ? &*found : nullptr;
}

}  // namespace lidcam::image
