#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "base/split_mix.h"
#include "bus/faults/fault_script.h"

namespace lidcam::bus {

inline constexpr std::uint64_t kMicrosecondsPerMicroframe = 125;

/// Microframe in which the time of a fault falls.
[[nodiscard]] constexpr std::uint64_t MicroframeOf(std::uint64_t microseconds) {
  return microseconds / kMicrosecondsPerMicroframe;
}

/// Microframes that a duration takes, rounded up.
[[nodiscard]] constexpr std::uint64_t MicroframesIn(std::uint64_t microseconds) {
  return (microseconds + kMicrosecondsPerMicroframe - 1) / kMicrosecondsPerMicroframe;
}

/// A fault of the script that is not yet, or not completely, injected.
class PendingFault {
 public:
  /// @param index  position in the script
  /// @param bits   the script's Bits
  PendingFault(const BusFault& fault, std::size_t index, std::uint64_t bits);

  [[nodiscard]] const BusFault& Fault() const { return fault_; }
  /// Number of the request, bus time in microframes, or FramePacket().
  [[nodiscard]] std::uint64_t Begin() const { return begin_; }
  [[nodiscard]] bool IsSpent() const { return isSpent_; }
  /// @return true only at the first call
  [[nodiscard]] bool TakeFirst() { return std::exchange(isUntold_, false); }

  /// Subtracts one from the fault's remaining count.
  void CarryOut();
  void End() { isSpent_ = true; }

  /// Bits that depend only on the script and on how often this fault was injected.
  [[nodiscard]] base::SplitMix Random() const;

 private:
  BusFault fault_;
  std::uint64_t begin_;
  std::uint64_t seed_;
  std::uint64_t carriedOut_ = 0;
  bool isUntold_ = true;
  bool isSpent_ = false;
};

/// The faults of one place, ordered by their begin, so that a request examines only the faults that
/// concern it.
class FaultAgenda {
 public:
  FaultAgenda(const FaultScript& script, FaultPlace place);

  /// @return the faults that began before `end` and have a count left, ordered by their begin
  [[nodiscard]] std::vector<PendingFault>& BegunBefore(std::uint64_t end);

 private:
  std::vector<PendingFault> waiting_;  ///< in descending order of their begin
  std::vector<PendingFault> begun_;
};

/// The script's faults of one place.
[[nodiscard]] std::vector<PendingFault> FaultsOf(const FaultScript& script, FaultPlace place);

}  // namespace lidcam::bus
