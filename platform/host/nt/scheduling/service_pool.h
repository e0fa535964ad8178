#pragma once

#include <cstddef>
#include <deque>
#include <vector>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {

class Scheduler;
struct Thread;

/// A queue of deferred calls or work items, and the kernel's own threads that serve it. The threads
/// are made when the first item is queued. There are two, so that two items can run at once, as on
/// machines with more than one processor.
class ServicePool {
 public:
  using RunItem = void (*)(PVOID item);

  /// @param name   of the threads, for reports
  /// @param level  at which items run
  ServicePool(const char* name, KIRQL level) : name_(name), level_(level) {}
  ServicePool(const ServicePool&) = delete;
  ServicePool& operator=(const ServicePool&) = delete;

  /// Queues an item. Under the world's lock.
  ///
  /// @param run  runs the item, which has been removed from the queue by then
  void Put(Scheduler& world, RunItem run, PVOID item);

  /// Items that have not begun to run. Under the world's lock.
  [[nodiscard]] std::size_t Waiting() const { return items_.size(); }

 private:
  struct Item {
    RunItem Run;
    PVOID Object;
  };

  static constexpr std::size_t kThreads = 2;

  void Serve(Scheduler& world);
  void RunOne(Thread& self, const Item& item);

  const char* const name_;
  const KIRQL level_;
  std::deque<Item> items_;
  std::vector<Thread*> idle_;
  std::size_t threads_ = 0;
};

}  // namespace lidcam::host
