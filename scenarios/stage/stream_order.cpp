#include "scenarios/stage/stream_order.h"

namespace lidcam::scenarios {
namespace {

// No stall of a tick is so long.
constexpr LONGLONG kLongestTick = 50'000'000;

constexpr std::string_view kAcquired = "stream acquire -> 00000000";

}  // namespace

std::string_view StreamOrder::Look(std::string_view line, bool isRecovery, LONGLONG now) {
  if (line.starts_with("stream hardware start") || line == kAcquired) {
    isDrained_ = false;
    isLastDrainLate_ = false;
    endedByTick_.reset();
  }
  if (line.starts_with("iso start ")) {
    if (isRecovery && isDrained_) return "a recovery starts the transfers of a drained stream";
    isDrained_ = false;
  }
  const std::string_view wrong = LookAtRemoval(line);
  return wrong.empty() ? LookAtDrain(line, now) : wrong;
}

// A stream that was under preparation when the device went is either prepared before the line of the removal, and
// released by it, or refused.
std::string_view StreamOrder::LookAtRemoval(std::string_view line) {
  if (line.starts_with("stream hardware start")) isGone_ = false;
  if (line.starts_with("device gone")) isGone_ = true;
  if (!isGone_ || (line != "stream on" && line != kAcquired)) return {};
  return "a stream is prepared after its device has gone";
}

std::string_view StreamOrder::LookAtDrain(std::string_view line, LONGLONG now) {
  if (line == "watchdog stop idle") endedByTick_ = now;
  if (line.starts_with("drain abort") && isDrained_) return "a drained stream is drained again";
  if (!line.starts_with("drain ends")) return {};
  const bool isMissed = line.ends_with("=00000102") && HasMissedItsEnd(now);
  isDrained_ = line.ends_with("=00000000");
  isLastDrainLate_ = !isDrained_;
  endedByTick_.reset();
  return isMissed ? "a drain has missed the tick that ended its wait" : std::string_view();
}

bool StreamOrder::HasMissedItsEnd(LONGLONG now) const {
  return !isLastDrainLate_ && endedByTick_ && now - *endedByTick_ > kLongestTick;
}

}  // namespace lidcam::scenarios
