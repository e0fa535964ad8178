#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "base/split_mix.h"
#include "bus/faults/fault_script.h"

namespace lidcam::bus {

inline constexpr std::uint64_t kMicrosecondsPerMicroframe = 125;

/// Bus time of a fault in microframes; the microframe in which the time falls.
[[nodiscard]] constexpr std::uint64_t MicroframeOf(std::uint64_t microseconds) {
  return microseconds / kMicrosecondsPerMicroframe;
}

/// Microframes that a length of time takes, the last one in part perhaps.
[[nodiscard]] constexpr std::uint64_t MicroframesIn(std::uint64_t microseconds) {
  return (microseconds + kMicrosecondsPerMicroframe - 1) / kMicrosecondsPerMicroframe;
}

/// A fault of the script that is not yet, or not wholly, carried out.
class PendingFault {
 public:
  /// @param index  place in the script
  /// @param bits   the script's Bits
  PendingFault(const BusFault& fault, std::size_t index, std::uint64_t bits);

  [[nodiscard]] const BusFault& Fault() const { return fault_; }
  /// Number of the request, bus time in microframes, or FramePacket().
  [[nodiscard]] std::uint64_t Begin() const { return begin_; }
  [[nodiscard]] bool IsSpent() const { return isSpent_; }
  /// @return true at the first call
  [[nodiscard]] bool TakeFirst() { return std::exchange(isUntold_, false); }

  /// Takes one of the fault's count.
  void CarryOut();
  void End() { isSpent_ = true; }

  /// Bits that depend on the script and on how often this fault was carried out, and on nothing else.
  [[nodiscard]] base::SplitMix Random() const;

 private:
  BusFault fault_;
  std::uint64_t begin_;
  std::uint64_t seed_;
  std::uint64_t carriedOut_ = 0;
  bool isUntold_ = true;
  bool isSpent_ = false;
};

/// The faults of one place in the order in which they begin, so that a request looks only at those
/// that concern it.
class FaultAgenda {
 public:
  FaultAgenda(const FaultScript& script, FaultPlace place);

  /// @return the faults that began before `end` and are not spent, in the order of their beginning
  [[nodiscard]] std::vector<PendingFault>& BegunBefore(std::uint64_t end);

 private:
  std::vector<PendingFault> waiting_;  ///< the last begins first
  std::vector<PendingFault> begun_;
};

/// The faults of one place as the script has them.
[[nodiscard]] std::vector<PendingFault> FaultsOf(const FaultScript& script, FaultPlace place);

}  // namespace lidcam::bus
