#include "platform/host/nt/objects/handles.h"

#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "platform/host/nt/scheduling/scheduler.h"

namespace lidcam::host {
namespace {

// Never destroyed: a driver may close handles during static destruction.
struct HandleTable {
  std::mutex Lock;
  std::unordered_map<std::uintptr_t, std::shared_ptr<HandleObject>> Objects;
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

}  // namespace

HANDLE OpenHandle(std::shared_ptr<HandleObject> object) {
  HandleTable& table = TheTable();
  const std::lock_guard guard(table.Lock);
  const std::uintptr_t number = table.Next;
  table.Next += kHandleStep;
  table.Objects.emplace(number, std::move(object));
  return reinterpret_cast<HANDLE>(number);
}

std::shared_ptr<HandleObject> FindHandle(HANDLE handle) {
  HandleTable& table = TheTable();
  const std::lock_guard guard(table.Lock);
  const auto found = table.Objects.find(NumberOf(handle));
  return found != table.Objects.end() ? found->second : nullptr;
}

std::size_t OpenHandleCount() {
  HandleTable& table = TheTable();
  const std::lock_guard guard(table.Lock);
  return table.Objects.size();
}

}  // namespace lidcam::host

NTSTATUS ZwClose(HANDLE handle) {
  lidcam::host::EnterKernelCall(lidcam::host::calls::kZwClose, handle);
  auto& table = lidcam::host::TheTable();
  std::shared_ptr<lidcam::host::HandleObject> object;
  {
    const std::lock_guard guard(table.Lock);
    const auto found = table.Objects.find(lidcam::host::NumberOf(handle));
    if (found == table.Objects.end()) return STATUS_INVALID_HANDLE;
    object = std::move(found->second);
    table.Objects.erase(found);
  }
  return object->Close();
}
