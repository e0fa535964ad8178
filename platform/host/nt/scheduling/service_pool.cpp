#include "platform/host/nt/scheduling/service_pool.h"

#include <mutex>
#include <string>

#include "platform/host/nt/scheduling/scheduler.h"
#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/scheduling/violation.h"

namespace lidcam::host {

void ServicePool::Put(Scheduler& world, RunItem run, PVOID item) {
  items_.push_back({run, item});
  if (!idle_.empty()) {
    Thread* const thread = idle_.back();
    idle_.pop_back();
    world.Wake(*thread);
  } else if (threads_ < kThreads) {
    const std::string name = std::string(name_) + " " + std::to_string(threads_++);
    world.StartThread(name, true, [this, &world] { Serve(world); });
  }
}

void ServicePool::Serve(Scheduler& world) {
  Thread& self = CurrentThread();
  SetLevel(self, level_);
  std::unique_lock guard(world.Lock());
  while (true) {
    while (items_.empty()) {
      idle_.push_back(&self);
      self.LastCall = "";
      world.Block(self, guard);
    }
    const Item item = items_.front();
    items_.pop_front();
    guard.unlock();
    RunOne(self, item);
    guard.lock();
  }
}

void ServicePool::RunOne(Thread& self, const Item& item) {
  try {
    item.Run(item.Object);
    if (self.Level != level_) {
      ReportViolation(name_, "the routine returned at level " + std::to_string(self.Level));
    }
    if (!self.Held.empty()) {
      ReportViolation(name_, "the routine returned with " +
                                 DescribeObject("lock", self.Held.front()) + " held");
    }
  } catch (const KernelStopped&) {
    // In a world that goes on, a violation ends only the routine, not this thread.
    if (self.World.IsStopping()) throw;
    SetLevel(self, level_);
    self.Held.clear();
  }
}

}  // namespace lidcam::host
