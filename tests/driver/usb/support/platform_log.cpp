#include "tests/driver/usb/support/platform_log.h"

#include <cstring>
#include <map>
#include <mutex>
#include <set>

namespace lidcam::test {
namespace {

std::mutex g_lock;
PlatformLog* g_log = nullptr;
std::vector<std::string>* g_lines = nullptr;
std::map<PVOID, std::string> g_memory;
std::set<PIRP> g_irps;

// The core's record and the descriptors are smaller than a transfer, and a transfer is smaller than
// the raw buffers.
constexpr SIZE_T kTransferSize = 100'000;
constexpr ULONG kCameraTag = 0x206D6457;
constexpr SIZE_T kRawBuffersSize = 1'000'000;

unsigned g_bagCountdown = 0;

bool IsRepeatedAccess(const std::string& line) {
  return line == "urb vendor requests" && !g_lines->empty() && g_lines->back() == line;
}

std::string NameOfMemory(SIZE_T size, ULONG tag) {
  if (tag != kCameraTag || size < kTransferSize) return "";
  return size >= kRawBuffersSize ? "raw buffers" : "transfer";
}

}  // namespace

PlatformLog::PlatformLog() {
  const std::lock_guard guard(g_lock);
  g_log = this;
  g_lines = &lines_;
  g_memory.clear();
  g_irps.clear();
}

PlatformLog::~PlatformLog() {
  const std::lock_guard guard(g_lock);
  g_log = nullptr;
  g_lines = nullptr;
}

void PlatformLog::Add(const std::string& line) {
  const std::lock_guard guard(g_lock);
  if (g_lines == nullptr || IsRepeatedAccess(line)) return;
  g_lines->push_back(line);
}

void PlatformLog::RefuseBagItem(unsigned countdown) {
  g_bagCountdown = countdown;
}

bool PlatformLog::IsBagItemRefused() {
  return g_bagCountdown != 0 && --g_bagCountdown == 0;
}

void PlatformLog::WatchIrp(PIRP irp) {
  const std::lock_guard guard(g_lock);
  if (g_lines != nullptr) g_irps.insert(irp);
}

std::string PlatformLog::Text() const {
  std::string text;
  for (const std::string& line : lines_) text += line + "\n";
  return text;
}

namespace {

void NoteMemory(PVOID memory, SIZE_T size, ULONG tag) {
  const std::string name = NameOfMemory(size, tag);
  if (memory == nullptr || name.empty()) return;
  {
    const std::lock_guard guard(g_lock);
    if (g_lines == nullptr) return;
    g_memory[memory] = name;
  }
  PlatformLog::Add("allocate " + name);
}

void NoteFree(PVOID memory) {
  std::string name;
  {
    const std::lock_guard guard(g_lock);
    const auto found = g_memory.find(memory);
    if (found == g_memory.end()) return;
    name = found->second;
    g_memory.erase(found);
  }
  PlatformLog::Add("free " + name);
}

void NoteIrpFree(PIRP irp) {
  {
    const std::lock_guard guard(g_lock);
    if (g_irps.erase(irp) == 0) return;
  }
  PlatformLog::Add("free transfer's irp");
}

}  // namespace
}  // namespace lidcam::test

using lidcam::test::PlatformLog;

extern "C" {

void NTAPI __real_KsAcquireDevice(PKSDEVICE device);
void NTAPI __wrap_KsAcquireDevice(PKSDEVICE device);
void NTAPI __wrap_KsAcquireDevice(PKSDEVICE device) {
  __real_KsAcquireDevice(device);
  PlatformLog::Add("acquire device");
}

void NTAPI __real_KsReleaseDevice(PKSDEVICE device);
void NTAPI __wrap_KsReleaseDevice(PKSDEVICE device);
void NTAPI __wrap_KsReleaseDevice(PKSDEVICE device) {
  PlatformLog::Add("release device");
  __real_KsReleaseDevice(device);
}

NTSTATUS NTAPI __real_KsAddItemToObjectBag(KSOBJECT_BAG bag, PVOID item, PFNKSFREE free);
NTSTATUS NTAPI __wrap_KsAddItemToObjectBag(KSOBJECT_BAG bag, PVOID item, PFNKSFREE free);
NTSTATUS NTAPI __wrap_KsAddItemToObjectBag(KSOBJECT_BAG bag, PVOID item, PFNKSFREE free) {
  PlatformLog::Add(free == nullptr ? "add record to bag" : "add object to bag");
  if (PlatformLog::IsBagItemRefused()) return STATUS_INSUFFICIENT_RESOURCES;
  return __real_KsAddItemToObjectBag(bag, item, free);
}

NTSTATUS NTAPI __real_PsCreateSystemThread(PHANDLE thread, ULONG access,
                                           POBJECT_ATTRIBUTES attributes, HANDLE process,
                                           PCLIENT_ID client, PKSTART_ROUTINE routine,
                                           PVOID context);
NTSTATUS NTAPI __wrap_PsCreateSystemThread(PHANDLE thread, ULONG access,
                                           POBJECT_ATTRIBUTES attributes, HANDLE process,
                                           PCLIENT_ID client, PKSTART_ROUTINE routine,
                                           PVOID context);
NTSTATUS NTAPI __wrap_PsCreateSystemThread(PHANDLE thread, ULONG access,
                                           POBJECT_ATTRIBUTES attributes, HANDLE process,
                                           PCLIENT_ID client, PKSTART_ROUTINE routine,
                                           PVOID context) {
  const bool isPlain =
      access == 0 && attributes == nullptr && process == nullptr && client == nullptr;
  PlatformLog::Add(isPlain ? "create thread" : "create thread with rights or in a process");
  return __real_PsCreateSystemThread(thread, access, attributes, process, client, routine, context);
}

NTSTATUS NTAPI __real_ObReferenceObjectByHandle(HANDLE handle, ACCESS_MASK access,
                                                POBJECT_TYPE type, KPROCESSOR_MODE mode,
                                                PVOID* object,
                                                POBJECT_HANDLE_INFORMATION information);
NTSTATUS NTAPI __wrap_ObReferenceObjectByHandle(HANDLE handle, ACCESS_MASK access,
                                                POBJECT_TYPE type, KPROCESSOR_MODE mode,
                                                PVOID* object,
                                                POBJECT_HANDLE_INFORMATION information);
NTSTATUS NTAPI __wrap_ObReferenceObjectByHandle(HANDLE handle, ACCESS_MASK access,
                                                POBJECT_TYPE type, KPROCESSOR_MODE mode,
                                                PVOID* object,
                                                POBJECT_HANDLE_INFORMATION information) {
  PlatformLog::Add("reference thread access=" + std::to_string(access) +
                   " mode=" + std::to_string(mode));
  return __real_ObReferenceObjectByHandle(handle, access, type, mode, object, information);
}

NTSTATUS NTAPI __real_ZwClose(HANDLE handle);
NTSTATUS NTAPI __wrap_ZwClose(HANDLE handle);
NTSTATUS NTAPI __wrap_ZwClose(HANDLE handle) {
  PlatformLog::Add("close handle");
  return __real_ZwClose(handle);
}

LONG_PTR NTAPI __real_ObfDereferenceObject(PVOID object);
LONG_PTR NTAPI __wrap_ObfDereferenceObject(PVOID object);
LONG_PTR NTAPI __wrap_ObfDereferenceObject(PVOID object) {
  PlatformLog::Add("let go of thread");
  return __real_ObfDereferenceObject(object);
}

BOOLEAN NTAPI __real_KeSetTimer(PKTIMER timer, LARGE_INTEGER due, PKDPC dpc);
BOOLEAN NTAPI __wrap_KeSetTimer(PKTIMER timer, LARGE_INTEGER due, PKDPC dpc);
BOOLEAN NTAPI __wrap_KeSetTimer(PKTIMER timer, LARGE_INTEGER due, PKDPC dpc) {
  // The watchdog's own ticks come at any time; only its arming is part of a sequence.
  if (KeGetCurrentIrql() == PASSIVE_LEVEL) {
    PlatformLog::Add("set timer " + std::to_string(due.QuadPart));
  }
  return __real_KeSetTimer(timer, due, dpc);
}

BOOLEAN NTAPI __real_KeCancelTimer(PKTIMER timer);
BOOLEAN NTAPI __wrap_KeCancelTimer(PKTIMER timer);
BOOLEAN NTAPI __wrap_KeCancelTimer(PKTIMER timer) {
  if (KeGetCurrentIrql() == PASSIVE_LEVEL) PlatformLog::Add("cancel timer");
  return __real_KeCancelTimer(timer);
}

PVOID NTAPI __real_ExAllocatePoolWithTag(POOL_TYPE type, SIZE_T size, ULONG tag);
PVOID NTAPI __wrap_ExAllocatePoolWithTag(POOL_TYPE type, SIZE_T size, ULONG tag);
PVOID NTAPI __wrap_ExAllocatePoolWithTag(POOL_TYPE type, SIZE_T size, ULONG tag) {
  PVOID const memory = __real_ExAllocatePoolWithTag(type, size, tag);
  // The kernel returns memory with the content left by its last user.
  if (memory != nullptr) std::memset(memory, 0xA5, size);
  lidcam::test::NoteMemory(memory, size, tag);
  return memory;
}

void NTAPI __real_ExFreePool(PVOID memory);
void NTAPI __wrap_ExFreePool(PVOID memory);
void NTAPI __wrap_ExFreePool(PVOID memory) {
  lidcam::test::NoteFree(memory);
  __real_ExFreePool(memory);
}

void NTAPI __real_IoFreeIrp(PIRP irp);
void NTAPI __wrap_IoFreeIrp(PIRP irp);
void NTAPI __wrap_IoFreeIrp(PIRP irp) {
  lidcam::test::NoteIrpFree(irp);
  __real_IoFreeIrp(irp);
}

}  // extern "C"
