#include "platform/host/nt/verifier/irp_tracker.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "base/process_mutex.h"
#include "base/time_units.h"
#include "platform/host/nt/scheduling/real_time_scheduler.h"
#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/scheduling/violation.h"
#include "platform/host/nt/verifier/address_map.h"

namespace lidcam::host {
namespace {

struct Event {
  std::uint64_t Stamp;
  std::uint32_t Thread;
  bool IsInRealTime;
  const char* What;
  const void* Object;
};

// The last events of a request, without an allocation.
class EventHistory {
 public:
  void Add(const Event& event) { events_[count_++ % kKept] = event; }

  void Clear() { count_ = 0; }

  template <typename See>
  void ForEach(See see) const {
    for (std::size_t i = count_ - std::min(count_, kKept); i < count_; ++i) see(events_[i % kKept]);
  }

 private:
  static constexpr std::size_t kKept = 24;

  std::array<Event, kKept> events_{};
  std::size_t count_ = 0;
};

struct Record {
  std::uint64_t Serial = 0;
  std::uint64_t Sends = 0;
  const Scheduler* World = nullptr;
  bool IsAllocated = false;
  std::vector<std::shared_ptr<IrpPassage>> Passages;  // by stack location, the first at index 1
  EventHistory History;
};

constexpr std::size_t kKeptTombstones = 64;

using Address = const char*;
using RecordMap = AddressMap<std::unique_ptr<Record>>;

// Never destroyed: requests can be freed during static destruction.
struct Registry {
  base::ProcessMutex Lock;
  RecordMap Records;
  // The histories of the requests that were freed last, for reports of their use.
  std::array<std::pair<Address, std::unique_ptr<Record>>, kKeptTombstones> Tombstones;
  std::size_t Buried = 0;         ///< so far
  std::unique_ptr<Record> Spare;  ///< the one whose history was forgotten last
  std::uint64_t NextSerial = 1;
};

Registry& TheRegistry() {
  static auto* const registry = new Registry;
  return *registry;
}

Address AddressOf(const void* memory) {
  return static_cast<Address>(memory);
}

void AddEvent(Record& record, const char* what, const void* object) {
  const Thread& self = CurrentThread();
  record.History.Add({self.World.Stamp(), self.Number, self.World.IsParallel(), what, object});
}

// The world may be gone; that of the machine's time never is.
LONGLONG TimeOf(const Event& event) {
  return event.IsInRealTime ? RealTimeScheduler::The().TimeOf(event.Stamp)
                            : static_cast<LONGLONG>(event.Stamp);
}

IO_STACK_LOCATION& LocationOf(PIRP irp, int location) {
  return reinterpret_cast<PIO_STACK_LOCATION>(irp + 1)[location - 1];
}

bool IsLive(const std::shared_ptr<IrpPassage>& passage) {
  return passage != nullptr && !passage->IsCompleted;
}

const IrpPassage* LowestPassage(const Record& record) {
  const auto found = std::ranges::find_if(record.Passages, IsLive);
  return found != record.Passages.end() ? found->get() : nullptr;
}

// "IRP 0x... is in flight at device 0x..."; empty if it isn't.
std::string InFlightText(PIRP irp, const Record& record) {
  const IrpPassage* const passage = LowestPassage(record);
  if (passage == nullptr) return {};
  return DescribeObject("IRP", irp) + " is in flight at " +
         DescribeObject("device", passage->Device);
}

std::string HexStatus(NTSTATUS status) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "0x%08X", static_cast<ULONG>(status));
  return text.data();
}

// Null if there is none.
Record* FindRecord(Registry& registry, const void* irp) {
  const std::unique_ptr<Record>* const found = registry.Records.Find(irp);
  return found != nullptr ? found->get() : nullptr;
}

// The record of the last request at the address that was freed; null if none is kept.
const Record* FindFreed(const Registry& registry, const void* irp) {
  const std::size_t kept = std::min(registry.Buried, kKeptTombstones);
  for (std::size_t i = 1; i <= kept; ++i) {
    const auto& [address, record] = registry.Tombstones[(registry.Buried - i) % kKeptTombstones];
    if (address == AddressOf(irp)) return record.get();
  }
  return nullptr;
}

// The error in the use of a request that isn't one of this world.
std::string WrongLife(const Registry& registry, PIRP irp, const Record* record) {
  const std::string name = DescribeObject("IRP", irp);
  if (record != nullptr) return name + " belongs to another world";
  return name + (FindFreed(registry, irp) != nullptr ? " was freed" : " was never initialised");
}

RecordMap::Iterator Bury(Registry& registry, RecordMap::Iterator record) {
  auto& [address, last] = registry.Tombstones[registry.Buried++ % kKeptTombstones];
  registry.Spare = std::exchange(last, std::move(record->second));
  address = record->first;
  return registry.Records.Erase(record);
}

// An empty record, whose memory may have been another's.
std::unique_ptr<Record> TakeRecord(Registry& registry) {
  if (registry.Spare == nullptr) return std::make_unique<Record>();
  std::unique_ptr<Record> record = std::move(registry.Spare);
  record->Sends = 0;
  record->Passages.clear();
  record->History.Clear();
  return record;
}

// A passage that has ended, and that its caller has left, is used again.
void TakeNew(std::shared_ptr<IrpPassage>& passage) {
  if (passage != nullptr && passage.use_count() == 1) {
    *passage = {};
  } else {
    passage = std::make_shared<IrpPassage>();
  }
}

// The error of a passage that is completed and whose dispatch routine has returned.
std::string WrongReturn(const IrpPassage& passage) {
  const auto who = [&] { return DescribeObject("the dispatch routine of device", passage.Device); };
  if (passage.Returned == STATUS_PENDING && !passage.WasMarkedPending) {
    return who() + " returned STATUS_PENDING without IoMarkIrpPending";
  }
  if (passage.Returned != STATUS_PENDING && passage.WasMarkedPending) {
    return who() + " returned " + HexStatus(passage.Returned) + " after IoMarkIrpPending";
  }
  return {};
}

// The same before the completion. A request that was sent on may be marked later, or at this
// moment, by the completion of the driver below.
std::string WrongReturnWithoutCompletion(PIRP irp, const IrpPassage& passage) {
  const bool isMarked = !passage.WasForwarded &&
                        (LocationOf(irp, passage.Location).Control & SL_PENDING_RETURNED) != 0;
  const auto who = [&] { return DescribeObject("the dispatch routine of device", passage.Device); };
  if (passage.Returned != STATUS_PENDING) {
    return who() + " returned " + HexStatus(passage.Returned) +
           (isMarked ? " after IoMarkIrpPending" : " and has not completed the request");
  }
  if (isMarked || passage.WasForwarded) return {};
  return who() + " returned STATUS_PENDING without IoMarkIrpPending";
}

// A canceller may exchange it at this moment.
bool HasCancelRoutine(PIRP irp) {
  return __atomic_load_n(&irp->CancelRoutine, __ATOMIC_RELAXED) != nullptr;
}

std::string WrongSend(PIRP irp, PDEVICE_OBJECT device, const Record& record) {
  const auto name = [&] { return DescribeObject("IRP", irp); };
  const auto holds = [&](const std::shared_ptr<IrpPassage>& passage) {
    return IsLive(passage) && passage->Device == device;
  };
  const bool isThere = std::ranges::any_of(record.Passages, holds);
  if (isThere || (irp->CurrentLocation <= 1 && LowestPassage(record) != nullptr)) {
    return InFlightText(irp, record) + " and is sent again";
  }
  if (irp->CurrentLocation <= 1) return name() + " has no next stack location";
  if (irp->CurrentLocation > irp->StackCount + 1) return name() + " has no such stack location";
  if (HasCancelRoutine(irp)) return name() + " is sent while its cancel routine is set";
  if (device == nullptr || device->DriverObject == nullptr) {
    return name() + " is sent to " + DescribeObject("device", device) + ", which has no driver";
  }
  const UCHAR major = IoGetNextIrpStackLocation(irp)->MajorFunction;
  if (major > IRP_MJ_MAXIMUM_FUNCTION || device->DriverObject->MajorFunction[major] == nullptr) {
    return name() + " asks for major function " + std::to_string(major) + ", which " +
           DescribeObject("device", device) + " has no routine for";
  }
  return {};
}

std::string WrongCompletion(PIRP irp) {
  const auto name = [&] { return DescribeObject("IRP", irp); };
  if (irp->CurrentLocation > irp->StackCount) return name() + " is completed already";
  if (irp->IoStatus.Status == STATUS_PENDING) return name() + " is completed with STATUS_PENDING";
  if (HasCancelRoutine(irp)) {
    return name() + " is completed while its cancel routine is set";
  }
  return {};
}

// Drivers above must not see the leftovers of those below.
void ClearLocation(IO_STACK_LOCATION& location) {
  location.MinorFunction = 0;
  location.Flags = 0;
  location.Control = 0;
  location.Parameters.Others = {};
  location.FileObject = nullptr;
}

bool IsWanted(PIRP irp, UCHAR control) {
  const bool isCancelled = __atomic_load_n(&irp->Cancel, __ATOMIC_RELAXED) != FALSE;
  return ((control & SL_INVOKE_ON_SUCCESS) != 0 && NT_SUCCESS(irp->IoStatus.Status)) ||
         ((control & SL_INVOKE_ON_ERROR) != 0 && !NT_SUCCESS(irp->IoStatus.Status)) ||
         ((control & SL_INVOKE_ON_CANCEL) != 0 && isCancelled);
}

// Ends one location: the request moves up, and so does the pending mark if the location above has
// no completion routine to call.
CompletionStep MoveUp(PIRP irp) {
  IO_STACK_LOCATION& location = *IoGetCurrentIrpStackLocation(irp);
  const UCHAR control = location.Control;
  CompletionStep step;
  step.Context = location.Context;
  irp->PendingReturned = (control & SL_PENDING_RETURNED) != 0 ? TRUE : FALSE;
  if (IsWanted(irp, control)) step.Routine = location.CompletionRoutine;
  ClearLocation(location);
  IoSkipCurrentIrpStackLocation(irp);
  const bool isAtTop = irp->CurrentLocation > irp->StackCount;
  if (!isAtTop) step.Device = IoGetCurrentIrpStackLocation(irp)->DeviceObject;
  if (step.Routine == nullptr && !isAtTop && irp->PendingReturned != FALSE) IoMarkIrpPending(irp);
  return step;
}

// Ends the passage at the present location; returns an error, or empty.
std::string EndPassageAt(PIRP irp, Record& record) {
  const auto& passage = record.Passages[static_cast<std::size_t>(irp->CurrentLocation)];
  if (!IsLive(passage)) return {};
  passage->IsCompleted = true;
  passage->WasMarkedPending =
      (IoGetCurrentIrpStackLocation(irp)->Control & SL_PENDING_RETURNED) != 0;
  return passage->HasReturned ? WrongReturn(*passage) : std::string();
}

std::string HistoryText(PIRP irp) {
  Registry& registry = TheRegistry();
  const std::lock_guard guard(registry.Lock);
  const Record* record = FindRecord(registry, irp);
  if (record == nullptr) record = FindFreed(registry, irp);
  if (record == nullptr) return {};
  std::string text = "what happened to " + DescribeObject("IRP", irp) + ":\n";
  record->History.ForEach([&text](const Event& event) {
    std::array<char, 160> line{};
    std::snprintf(line.data(), line.size(), "  %.7f s  thread %u  %s %p\n",
                  base::SecondsOfUnits(TimeOf(event)), event.Thread, event.What, event.Object);
    text += line.data();
  });
  return text;
}

// Runs `look` on the record under the lock and reports the error it returns.
template <typename Look>
void WithRecord(const char* call, PIRP irp, Look look) {
  Registry& registry = TheRegistry();
  std::unique_lock guard(registry.Lock);
  Record* const record = FindRecord(registry, irp);
  const bool isOfWorld = record != nullptr && record->World == &CurrentWorld();
  const std::string wrong = isOfWorld ? look(*record) : WrongLife(registry, irp, record);
  guard.unlock();
  if (!wrong.empty()) ReportIrpViolation(call, irp, wrong);
}

}  // namespace

IrpUsage IrpUsageOfWorld() {
  const Scheduler& world = CurrentWorld();
  Registry& registry = TheRegistry();
  const std::lock_guard guard(registry.Lock);
  IrpUsage usage;
  for (const auto& [address, record] : registry.Records) {
    if (record->World != &world) continue;
    ++usage.Known;
    if (record->IsAllocated) ++usage.Allocated;
    if (LowestPassage(*record) != nullptr) ++usage.InFlight;
  }
  return usage;
}

bool IsIrpInFlight(const IRP* irp) {
  Registry& registry = TheRegistry();
  const std::lock_guard guard(registry.Lock);
  const Record* const record = FindRecord(registry, irp);
  return record != nullptr && LowestPassage(*record) != nullptr;
}

std::size_t IrpsInFlightAt(PDEVICE_OBJECT device) {
  const Scheduler& world = CurrentWorld();
  Registry& registry = TheRegistry();
  const std::lock_guard guard(registry.Lock);
  const auto isThere = [&](const auto& entry) {
    return entry.second->World == &world &&
           std::ranges::any_of(entry.second->Passages, [&](const auto& passage) {
             return IsLive(passage) && passage->Device == device;
           });
  };
  return static_cast<std::size_t>(std::ranges::count_if(registry.Records, isThere));
}

void RegisterIrp(const char* call, PIRP irp, bool isAllocated) {
  Registry& registry = TheRegistry();
  const std::lock_guard guard(registry.Lock);
  std::unique_ptr<Record>& place = registry.Records.At(irp);
  place = TakeRecord(registry);
  Record& record = *place;
  record.Serial = registry.NextSerial++;
  record.World = &CurrentWorld();
  record.IsAllocated = isAllocated;
  record.Passages.resize(static_cast<std::size_t>(irp->StackCount) + 1);
  AddEvent(record, call, nullptr);
}

void ExpectIrp(const char* call, PIRP irp) {
  WithRecord(call, irp, [](Record&) { return std::string(); });
}

void ExpectIdleIrp(const char* call, PIRP irp) {
  WithRecord(call, irp, [&](Record& record) { return InFlightText(irp, record); });
}

void CheckIrpIsIdleIfKnown(const char* call, PIRP irp) {
  Registry& registry = TheRegistry();
  std::unique_lock guard(registry.Lock);
  const Record* const record = FindRecord(registry, irp);
  const std::string use = record != nullptr ? InFlightText(irp, *record) : std::string();
  guard.unlock();
  if (!use.empty()) ReportIrpViolation(call, irp, use + " and is initialised again");
}

void ForgetIrp(const char* call, PIRP irp) {
  WithRecord(call, irp, [&](Record& record) {
    const std::string use = InFlightText(irp, record);
    if (!use.empty()) return use + " and is freed";
    if (!record.IsAllocated) {
      return DescribeObject("IRP", irp) + " wasn't allocated by IoAllocateIrp";
    }
    AddEvent(record, call, nullptr);
    Registry& registry = TheRegistry();
    Bury(registry, registry.Records.From(irp));
    return std::string();
  });
}

void CheckFreedIrps(const char* call, const void* memory, std::size_t size) {
  Registry& registry = TheRegistry();
  std::unique_lock guard(registry.Lock);
  const Address end = AddressOf(memory) + size;
  std::string wrong;
  PIRP culprit = nullptr;
  auto record = registry.Records.From(memory);
  while (record != registry.Records.end() && record->first < end && wrong.empty()) {
    culprit = reinterpret_cast<PIRP>(const_cast<char*>(record->first));
    wrong = InFlightText(culprit, *record->second);
    if (!wrong.empty()) {
      wrong += " and its memory is freed";
    } else if (record->second->IsAllocated) {
      wrong = DescribeObject("IRP", culprit) + " is not to be freed as memory";
    } else {
      AddEvent(*record->second, call, nullptr);
      record = Bury(registry, record);
    }
  }
  guard.unlock();
  if (!wrong.empty()) ReportIrpViolation(call, culprit, wrong);
}

std::shared_ptr<IrpPassage> BeginPassage(const char* call, PIRP irp, PDEVICE_OBJECT device) {
  std::shared_ptr<IrpPassage> passage;
  WithRecord(call, irp, [&](Record& record) {
    std::string wrong = WrongSend(irp, device, record);
    if (!wrong.empty()) return wrong;
    for (const auto& above : record.Passages) {
      if (IsLive(above)) above->WasForwarded = true;
    }
    ++record.Sends;
    IoSetNextIrpStackLocation(irp);
    IoGetCurrentIrpStackLocation(irp)->DeviceObject = device;
    // A driver that skipped its location shares it with the one below.
    auto& place = record.Passages[static_cast<std::size_t>(irp->CurrentLocation)];
    if (!IsLive(place)) TakeNew(place);
    place->Location = irp->CurrentLocation;
    place->Device = device;
    place->WasForwarded = false;
    passage = place;
    AddEvent(record, "sent to device", device);
    return wrong;
  });
  return passage;
}

void EndPassage(const char* call, PIRP irp, IrpPassage& passage, NTSTATUS returned) {
  Registry& registry = TheRegistry();
  std::unique_lock guard(registry.Lock);
  passage.HasReturned = true;
  passage.Returned = returned;
  const std::string wrong =
      passage.IsCompleted ? WrongReturn(passage) : WrongReturnWithoutCompletion(irp, passage);
  guard.unlock();
  if (!wrong.empty()) ReportIrpViolation(call, irp, DescribeObject("IRP", irp) + ": " + wrong);
}

IrpLife BeginCompletion(const char* call, PIRP irp) {
  IrpLife life;
  WithRecord(call, irp, [&](Record& record) {
    std::string wrong = WrongCompletion(irp);
    if (wrong.empty()) AddEvent(record, call, IoGetCurrentIrpStackLocation(irp)->DeviceObject);
    life = {record.Serial, record.Sends};
    return wrong;
  });
  return life;
}

CompletionStep CompleteLocation(const char* call, PIRP irp, const IrpLife& life) {
  CompletionStep step;
  WithRecord(call, irp, [&](Record& record) -> std::string {
    if (record.Serial != life.Serial || record.Sends != life.Sends) {
      return DescribeObject("IRP", irp) +
             " goes on being completed after its completion routine freed it or sent it again";
    }
    if (irp->CurrentLocation > irp->StackCount) {
      step.IsEnd = true;
      return {};
    }
    std::string wrong = EndPassageAt(irp, record);
    if (!wrong.empty()) return DescribeObject("IRP", irp) + ": " + wrong;
    step = MoveUp(irp);
    return {};
  });
  return step;
}

void NoteIrp(PIRP irp, const char* what, const void* object) {
  Registry& registry = TheRegistry();
  const std::lock_guard guard(registry.Lock);
  if (Record* const record = FindRecord(registry, irp)) AddEvent(*record, what, object);
}

void ReportIrpViolation(const char* call, PIRP irp, const std::string& what) {
  ReportViolation(call, what, HistoryText(irp));
}

std::string FindKeptIrp(const Scheduler& world) {
  Registry& registry = TheRegistry();
  const std::lock_guard guard(registry.Lock);
  for (const auto& [address, record] : registry.Records) {
    if (record->World != &world || !record->IsAllocated) continue;
    const IrpPassage* const passage = LowestPassage(*record);
    return DescribeObject("IRP", address) +
           (passage == nullptr
                ? ""
                : " (in flight at " + DescribeObject("device", passage->Device) + ")");
  }
  return {};
}

void ForgetIrpsOfWorld(const Scheduler& world) {
  Registry& registry = TheRegistry();
  const std::lock_guard guard(registry.Lock);
  registry.Records.EraseIf(
      [&](const std::unique_ptr<Record>& record) { return record->World == &world; });
}

}  // namespace lidcam::host
