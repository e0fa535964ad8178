#include "platform/host/nt/scheduling/timer_queue.h"

namespace lidcam::host {

void TimerQueue::Insert(LONGLONG due, std::uint64_t tie, const TimerEntry& entry) {
  const Key key{due, tie, sequence_++};
  entries_.emplace(key, entry);
  keys_[entry.Object] = key;
}

bool TimerQueue::Remove(const void* object) {
  const auto found = keys_.find(object);
  if (found == keys_.end()) return false;
  entries_.erase(found->second);
  keys_.erase(found);
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
  keys_.erase(entry.Object);
  return entry;
}

}  // namespace lidcam::host
