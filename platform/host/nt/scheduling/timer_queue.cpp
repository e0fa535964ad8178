#include "platform/host/nt/scheduling/timer_queue.h"

#include <algorithm>
#include <functional>
#include <iterator>

namespace lidcam::host {

void TimerQueue::Insert(LONGLONG due, std::uint64_t tie, const TimerEntry& entry) {
  const Key place{due, tie, sequence_++};
  const auto later = std::ranges::lower_bound(entries_, place, std::greater<>{}, &Entry::Place);
  entries_.insert(later, {place, entry});
}

bool TimerQueue::Remove(const void* object) {
  const auto found = std::find_if(entries_.rbegin(), entries_.rend(), [object](const Entry& entry) {
    return entry.Timer.Object == object;
  });
  if (found == entries_.rend()) return false;
  entries_.erase(std::next(found).base());
  return true;
}

std::optional<LONGLONG> TimerQueue::Earliest() const {
  if (entries_.empty()) return std::nullopt;
  return entries_.back().Place.Due;
}

std::optional<TimerEntry> TimerQueue::TakeDue(LONGLONG now) {
  if (entries_.empty() || entries_.back().Place.Due > now) return std::nullopt;
  const TimerEntry entry = entries_.back().Timer;
  entries_.pop_back();
  return entry;
}

}  // namespace lidcam::host
