#pragma once

#include <chrono>
#include <cstdint>

namespace lidcam::bus {

/// The time of a bus whose host reports no frame numbers: a count of the packets received,
/// corrected by the machine's steady clock. Not synchronized.
///
/// A transfer is reaped at its end or later, never earlier. So the smallest lag of a second's transfers is
/// the difference of the two clocks, and a lag longer than the host's queue means that microframes
/// passed without a transfer.
class FrameClock {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// @param start   time of microframe 0
  /// @param queued  microframes that the host has queued while it keeps up
  FrameClock(Time start, std::uint32_t queued) : origin_(start), queued_(queued) {}

  /// The next transfer begins with the present microframe, whatever came before.
  void Restart(Time now);

  /// Takes a transfer's packets.
  /// @param time  at which the transfer was reaped
  /// @return bus time of its first packet, in microframes
  std::uint64_t Reap(std::uint32_t packets, Time time);

  /// The present microframe.
  [[nodiscard]] std::uint64_t Now(Time now) const;

 private:
  [[nodiscard]] std::int64_t Elapsed(Time time) const;
  void Correct();

  Time origin_;
  std::uint32_t queued_;
  std::uint64_t next_ = 0;  ///< of the packets to come
  std::int64_t smallestLag_ = 0;
  std::uint32_t reaped_ = 0;  ///< since the last correction, in microframes
};

}  // namespace lidcam::bus
