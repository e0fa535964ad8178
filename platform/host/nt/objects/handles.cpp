#include "platform/host/nt/objects/handles.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <mutex>
#include <string_view>
#include <unordered_map>

#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/scheduling/violation.h"

namespace lidcam::host {
namespace {

struct Entry {
  std::shared_ptr<HandleObject> Object;
  /// Identity of the application's thread in whose table it stands; 0: the system's table. The thread may be gone, as
  /// after a run that stopped, and another one be at its address.
  std::uint64_t Application = 0;
};

// Never destroyed: a driver may close handles during static destruction.
struct HandleTable {
  std::mutex Lock;
  std::unordered_map<std::uintptr_t, Entry> Entries;
  std::uintptr_t Next = 0x1000;
};

HandleTable& TheTable() {
  static auto* const table = new HandleTable;
  return *table;
}

constexpr std::uintptr_t kHandleStep = 4;

std::uintptr_t NumberOf(HANDLE handle) {
  return reinterpret_cast<std::uintptr_t>(handle);
}

HANDLE Insert(Entry entry) {
  HandleTable& table = TheTable();
  const std::lock_guard guard(table.Lock);
  const std::uintptr_t number = table.Next;
  table.Next += kHandleStep;
  table.Entries.emplace(number, std::move(entry));
  return reinterpret_cast<HANDLE>(number);
}

// False if another thread has removed it before.
bool Remove(HANDLE handle) {
  HandleTable& table = TheTable();
  const std::lock_guard guard(table.Lock);
  return table.Entries.erase(NumberOf(handle)) != 0;
}

Entry FindEntry(HANDLE handle) {
  HandleTable& table = TheTable();
  const std::lock_guard guard(table.Lock);
  const auto found = table.Entries.find(NumberOf(handle));
  return found != table.Entries.end() ? found->second : Entry{};
}

// A handle in the table of an application's thread; 0 without one.
std::uintptr_t FindEntryOf(const Thread& application) {
  HandleTable& table = TheTable();
  const std::lock_guard guard(table.Lock);
  const auto found = std::ranges::find_if(table.Entries, [&application](const auto& entry) {
    return entry.second.Application == application.Identity;
  });
  return found != table.Entries.end() ? found->first : 0;
}

void CheckTable(HANDLE handle, const Entry& entry) {
  const Thread& self = CurrentThread();
  if (entry.Application == self.Identity && self.ApplicationRequests != 0) return;
  if (self.World.IsStopping()) return;
  ReportViolation(self.LastCall, DescribeObject("handle", handle) +
                                     " stands in the table of an application, and isn't used in "
                                     "one of its requests");
}

// What the camera's driver is required to open so. It uses and closes these handles within the same request:
// - the thread that assembles frames, created without attributes by the application that starts the stream;
// - the keys in which settings are saved when an application's stream ends.
bool IsRequiredWithoutAttribute(std::string_view call) {
  constexpr std::array<std::string_view, 2> kCalls{"PsCreateSystemThread", "ZwCreateKey"};
  return std::ranges::find(kCalls, call) != kCalls.end();
}

}  // namespace

HANDLE OpenHandle(std::shared_ptr<HandleObject> object) {
  return Insert({std::move(object), 0});
}

HANDLE OpenHandleOfDriver(const char* call, const OBJECT_ATTRIBUTES* attributes,
                          std::shared_ptr<HandleObject> object) {
  const Thread& self = CurrentThread();
  const bool isOfKernel =
      attributes != nullptr && (attributes->Attributes & OBJ_KERNEL_HANDLE) != 0;
  if (isOfKernel || self.ApplicationRequests == 0) return OpenHandle(std::move(object));
  if (!IsRequiredWithoutAttribute(call)) {
    ReportViolation(call,
                    "without OBJ_KERNEL_HANDLE the handle stands in the table of the application "
                    "whose request runs");
  }
  return Insert({std::move(object), self.Identity});
}

ApplicationRequest::ApplicationRequest() : before_(CurrentThread().ApplicationRequests++) {}

ApplicationRequest::~ApplicationRequest() {
  CurrentThread().ApplicationRequests = before_;
}

void ApplicationRequest::End() const {
  const Thread& self = CurrentThread();
  if (before_ != 0 || self.World.IsStopping()) return;
  const std::uintptr_t left = FindEntryOf(self);
  if (left == 0) return;
  ReportViolation("request", DescribeObject("handle", reinterpret_cast<HANDLE>(left)) +
                                 " is left open in the application's table");
}

std::shared_ptr<HandleObject> FindHandle(HANDLE handle) {
  const Entry entry = FindEntry(handle);
  if (entry.Application != 0) CheckTable(handle, entry);
  return entry.Object;
}

std::size_t OpenHandleCount() {
  HandleTable& table = TheTable();
  const std::lock_guard guard(table.Lock);
  return table.Entries.size();
}

}  // namespace lidcam::host

NTSTATUS ZwClose(HANDLE handle) {
  lidcam::host::EnterKernelCall(lidcam::host::calls::kZwClose, handle);
  const auto object = lidcam::host::FindHandle(handle);
  if (object == nullptr || !lidcam::host::Remove(handle)) return STATUS_INVALID_HANDLE;
  return object->Close();
}
