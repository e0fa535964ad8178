#include "platform/host/nt/verifier/object_tracker.h"

#include <mutex>
#include <optional>

#include "base/process_mutex.h"
#include "platform/host/nt/memory/guards/paged_memory.h"
#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/scheduling/violation.h"
#include "platform/host/nt/verifier/address_map.h"

namespace lidcam::host {

struct ObjectRecord {
  ObjectKind Kind{};
  std::size_t Size = 0;
  const Scheduler* World = nullptr;
  UCHAR HeaderType = 0;
  UCHAR HeaderSize = 0;
  int Waiters = 0;
  const char* InUse = nullptr;
};

namespace {

using Address = const char*;

// Never destroyed: a driver may use objects during static destruction.
struct ObjectRegistry {
  base::ProcessMutex Lock;
  AddressMap<ObjectRecord> Records;
};

ObjectRegistry& TheObjectRegistry() {
  static auto* const registry = new ObjectRegistry;
  return *registry;
}

Address AddressOfObject(const void* object) {
  return static_cast<Address>(object);
}

const char* NameOf(ObjectKind kind) {
  switch (kind) {
    case ObjectKind::Event:
      return "event";
    case ObjectKind::Semaphore:
      return "semaphore";
    case ObjectKind::Mutex:
      return "mutex";
    case ObjectKind::Timer:
      return "timer";
    case ObjectKind::Dpc:
      return "DPC";
    case ObjectKind::SpinLock:
      return "spin lock";
    case ObjectKind::Thread:
      return "thread";
    case ObjectKind::WorkItem:
    case ObjectKind::QueueItem:
      return "work item";
  }
  return "object";
}

bool HasHeader(ObjectKind kind) {
  switch (kind) {
    case ObjectKind::Dpc:
    case ObjectKind::SpinLock:
    case ObjectKind::WorkItem:
    case ObjectKind::QueueItem:
      return false;
    default:
      return true;
  }
}

// Why an object can't be freed now; empty if it can.
std::string UseOf(Address object, const ObjectRecord& record) {
  if (record.InUse == nullptr && record.Waiters == 0) return {};
  const std::string name = DescribeObject(NameOf(record.Kind), object);
  if (record.InUse != nullptr) return name + " " + record.InUse;
  return name + " is waited for by " + std::to_string(record.Waiters) + " thread(s)";
}

// Removes the records within a range and returns the first use of one, if any.
std::string ForgetRange(ObjectRegistry& registry, Address begin, std::size_t size) {
  std::string use;
  auto record = registry.Records.From(begin);
  if (record != registry.Records.begin()) {
    const auto before = std::prev(record);
    if (before->first + before->second.Size > begin) record = before;
  }
  while (record != registry.Records.end() && record->first < begin + size) {
    if (use.empty()) use = UseOf(record->first, record->second);
    record = registry.Records.Erase(record);
  }
  return use;
}

bool HasHeaderAsInitialised(const void* object, const ObjectRecord& record) {
  if (!HasHeader(record.Kind)) return true;
  const auto& header = *static_cast<const DISPATCHER_HEADER*>(object);
  return header.Type == record.HeaderType && header.Size == record.HeaderSize;
}

bool IsRightUse(const void* object, const ObjectRecord& record) {
  return record.World == &CurrentWorld() && HasHeaderAsInitialised(object, record);
}

// The error in the use of an object, apart from its kind.
std::string WrongUse(const void* object, const ObjectRecord& record) {
  return DescribeObject(NameOf(record.Kind), object) +
         (record.World != &CurrentWorld() ? " was initialised in another world"
                                          : " was overwritten since its initialisation");
}

std::string WrongKind(const char* wanted, const void* object, const ObjectRecord* record) {
  if (record == nullptr) return DescribeObject(wanted, object) + " was never initialised";
  return DescribeObject(NameOf(record->Kind), object) + " is used as a " + wanted;
}

std::optional<ObjectRecord> FindRecord(const void* object) {
  ObjectRegistry& registry = TheObjectRegistry();
  const std::lock_guard guard(registry.Lock);
  const ObjectRecord* const found = registry.Records.Find(object);
  return found != nullptr ? std::optional(*found) : std::nullopt;
}

template <typename Wanted>
std::string FindInWorld(const Scheduler& world, Wanted wanted) {
  ObjectRegistry& registry = TheObjectRegistry();
  const std::lock_guard guard(registry.Lock);
  for (const auto& [object, record] : registry.Records) {
    if (record.World == &world && wanted(record)) {
      return DescribeObject(NameOf(record.Kind), object);
    }
  }
  return {};
}

}  // namespace

void RegisterObject(const char* call, ObjectKind kind, const void* object, std::size_t size) {
  ObjectRegistry& registry = TheObjectRegistry();
  ObjectRecord record{
      .Kind = kind, .Size = size, .World = &CurrentWorld(), .HeaderType = 0, .HeaderSize = 0};
  if (HasHeader(kind)) {
    const auto& header = *static_cast<const DISPATCHER_HEADER*>(object);
    record.HeaderType = header.Type;
    record.HeaderSize = header.Size;
  }
  std::unique_lock guard(registry.Lock);
  const std::string use = ForgetRange(registry, AddressOfObject(object), size);
  registry.Records.At(object) = record;
  guard.unlock();
  if (!use.empty()) ReportViolation(call, use + " and is initialised again");
  if (!IsPagedMemoryInUse()) return;
  const std::string paged = FindPagedBlock(object);
  if (paged.empty()) return;
  ReportViolation(call, DescribeObject(NameOf(kind), object) + " lies in paged " + paged);
}

bool IsRegisteredObject(const void* object) {
  return FindRecord(object).has_value();
}

ObjectInCall::ObjectInCall(const char* call, ObjectKind kind, const void* object) {
  ObjectRegistry& registry = TheObjectRegistry();
  registry.Lock.lock();
  record_ = registry.Records.Find(object);
  const bool isOfKind = record_ != nullptr && record_->Kind == kind;
  if (isOfKind && IsRightUse(object, *record_)) [[likely]]
    return;
  const std::string wrong =
      isOfKind ? WrongUse(object, *record_) : WrongKind(NameOf(kind), object, record_);
  registry.Lock.unlock();
  ReportViolation(call, wrong);
}

ObjectInCall::~ObjectInCall() {
  TheObjectRegistry().Lock.unlock();
}

void ObjectInCall::SetInUse(const char* why) {
  record_->InUse = why;
}

void ExpectObject(const char* call, ObjectKind kind, const void* object) {
  const ObjectInCall checked(call, kind, object);
}

ObjectKind ExpectDispatcherObject(const char* call, const void* object) {
  const auto record = FindRecord(object);
  if (!record || !HasHeader(record->Kind)) {
    ReportViolation(call, WrongKind("dispatcher object", object, record ? &*record : nullptr));
  }
  if (!IsRightUse(object, *record)) ReportViolation(call, WrongUse(object, *record));
  return record->Kind;
}

void SetObjectInUse(const void* object, const char* why) {
  ObjectRegistry& registry = TheObjectRegistry();
  const std::lock_guard guard(registry.Lock);
  if (ObjectRecord* const found = registry.Records.Find(object)) found->InUse = why;
}

void CountWaiters(const void* object, int change) {
  ObjectRegistry& registry = TheObjectRegistry();
  const std::lock_guard guard(registry.Lock);
  if (ObjectRecord* const found = registry.Records.Find(object)) found->Waiters += change;
}

void ForgetObject(const void* object) {
  ObjectRegistry& registry = TheObjectRegistry();
  const std::lock_guard guard(registry.Lock);
  registry.Records.Erase(object);
}

void CheckFreedMemory(const char* call, const void* memory, std::size_t size) {
  ObjectRegistry& registry = TheObjectRegistry();
  std::unique_lock guard(registry.Lock);
  const std::string use = ForgetRange(registry, AddressOfObject(memory), size);
  guard.unlock();
  if (!use.empty()) ReportViolation(call, use + " and its memory is freed");
}

std::vector<const void*> ThreadObjectsOfWorld(const Scheduler& world) {
  ObjectRegistry& registry = TheObjectRegistry();
  const std::lock_guard guard(registry.Lock);
  std::vector<const void*> objects;
  for (const auto& [object, record] : registry.Records) {
    if (record.World == &world && record.Kind == ObjectKind::Thread) objects.push_back(object);
  }
  return objects;
}

void ForgetWorld(const Scheduler& world) {
  ObjectRegistry& registry = TheObjectRegistry();
  const std::lock_guard guard(registry.Lock);
  registry.Records.EraseIf([&](const ObjectRecord& record) { return record.World == &world; });
}

std::string FindKeptObject(const Scheduler& world) {
  return FindInWorld(world, [](const ObjectRecord& record) {
    return record.Kind == ObjectKind::WorkItem || record.Kind == ObjectKind::Thread;
  });
}

std::string FindPendingObject(const Scheduler& world) {
  return FindInWorld(world, [](const ObjectRecord& record) {
    return record.InUse != nullptr &&
           (record.Kind == ObjectKind::Timer || record.Kind == ObjectKind::Dpc ||
            record.Kind == ObjectKind::WorkItem || record.Kind == ObjectKind::QueueItem);
  });
}

}  // namespace lidcam::host
