#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {

class Scheduler;

/// The action at a time, and its object: a wait times out, a timer expires.
struct TimerEntry {
  void (*Expire)(Scheduler& world, void* object);  ///< under the world's lock
  void* Object;
};

/// Everything that waits for a time in one world.
/// @par Under the world's lock
class TimerQueue {
 public:
  /// An object has at most one entry.
  void Insert(LONGLONG due, std::uint64_t tie, const TimerEntry& entry);

  /// Removes an object's entry. False if it has none.
  bool Remove(const void* object);

  /// The earliest due time.
  [[nodiscard]] std::optional<LONGLONG> Earliest() const;

  /// Removes the first entry that is due at `now` or before.
  [[nodiscard]] std::optional<TimerEntry> TakeDue(LONGLONG now);

 private:
  /// An entry's position: by its time, and at equal times by its tie number.
  struct Key {
    LONGLONG Due = 0;  ///< interrupt time, 100 ns
    std::uint64_t Tie = 0;
    std::uint64_t Sequence = 0;

    auto operator<=>(const Key&) const = default;
  };

  struct Entry {
    Key Place;
    TimerEntry Timer;
  };

  std::vector<Entry>
      entries_;  // the earliest last: there are few, and each wait with a limit has one
  std::uint64_t sequence_ = 0;
};

}  // namespace lidcam::host
