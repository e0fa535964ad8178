#include "platform/host/nt/timer_queue.h"

namespace lidcam::host {

TimerKey TimerQueue::Insert(LONGLONG due, std::uint64_t tie, TimerEntry entry) {
  const TimerKey key{due, tie, sequence_++};
  entries_.emplace(key, entry);
  if (const auto* const timer = std::get_if<PKTIMER>(&entry)) timers_[*timer] = key;
  return key;
}

void TimerQueue::Remove(const TimerKey& key) {
  entries_.erase(key);
}

bool TimerQueue::RemoveTimer(PKTIMER timer) {
  const auto found = timers_.find(timer);
  if (found == timers_.end()) return false;
  entries_.erase(found->second);
  timers_.erase(found);
  return true;
}

std::optional<LONGLONG> TimerQueue::Earliest() const {
  if (entries_.empty()) return std::nullopt;
  return entries_.begin()->first.Due;
}

std::optional<TimerEntry> TimerQueue::TakeDue(LONGLONG now) {
  if (entries_.empty() || entries_.begin()->first.Due > now) return std::nullopt;
  const TimerEntry entry = entries_.begin()->second;
  entries_.erase(entries_.begin());
  if (const auto* const timer = std::get_if<PKTIMER>(&entry)) timers_.erase(*timer);
  return entry;
}

}  // namespace lidcam::host
