#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <unordered_map>
#include <variant>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {

struct Wait;

/// Where an entry stands among the others: by its time, and at one time by its tie number.
struct TimerKey {
  LONGLONG Due = 0;  ///< interrupt time, 100 ns
  std::uint64_t Tie = 0;
  std::uint64_t Sequence = 0;

  auto operator<=>(const TimerKey&) const = default;
};

/// What is to happen when a time comes: a wait gives up, or a timer expires.
using TimerEntry = std::variant<Wait*, PKTIMER>;

/// Everything that waits for a time in one world.
/// @par Under the world's lock
class TimerQueue {
 public:
  TimerKey Insert(LONGLONG due, std::uint64_t tie, TimerEntry entry);
  void Remove(const TimerKey& key);

  /// Takes a timer out. False if it isn't set.
  bool RemoveTimer(PKTIMER timer);

  /// The earliest time that something is due at.
  [[nodiscard]] std::optional<LONGLONG> Earliest() const;

  /// Takes out the first entry that is due at `now` or before.
  [[nodiscard]] std::optional<TimerEntry> TakeDue(LONGLONG now);

 private:
  std::map<TimerKey, TimerEntry> entries_;
  std::unordered_map<PKTIMER, TimerKey> timers_;
  std::uint64_t sequence_ = 0;
};

}  // namespace lidcam::host
