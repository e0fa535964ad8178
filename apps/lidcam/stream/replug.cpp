#include "apps/lidcam/stream/replug.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <iterator>

#include "library/base/command_error.h"
#include "library/base/interrupt.h"
#include "library/camera/source/plugged_camera.h"

namespace lidcam::app {
namespace {

using Clock = std::chrono::steady_clock;

// A reset lets the same device come back at once, with another number; a machine that wakes takes longer.
constexpr std::chrono::seconds kReset{2};
constexpr std::chrono::seconds kWake{15};

// A camera that is unplugged again without a frame in between is broken.
constexpr int kMostFruitless = 3;

constexpr std::chrono::microseconds kMicroframe{125};

std::chrono::nanoseconds TimeOf(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// How long the machine has slept since it was switched on.
std::chrono::nanoseconds TimeAsleep() {
  return TimeOf(CLOCK_BOOTTIME) - TimeOf(CLOCK_MONOTONIC);
}

StreamLimits LeftOf(StreamLimits limits, const StreamCounts& counts) {
  if (limits.Frames) *limits.Frames -= std::min(*limits.Frames, counts.Delivered());
  if (limits.Duration) {
    *limits.Duration -= kMicroframe * static_cast<std::int64_t>(counts.Microframes);
  }
  return limits;
}

bool IsUsedUp(const StreamLimits& left) {
  return left.Frames == 0U || (left.Duration && left.Duration->count() <= 0);
}

void Tell(const CommonOptions& options, const std::string& line) {
  if (!options.Output.IsQuiet) std::fprintf(stderr, "lidcam: %s\n", line.c_str());
}

/// One stream of a plugged-in camera with the state needed to continue it.
class ReplugRun {
 public:
  ReplugRun(const CommonOptions& options, const StreamLimits& limits, const StreamPart& stream)
      : options_(options), limits_(limits), stream_(stream), camera_(options.Camera) {}

  StreamResult Run() {
    StreamResult result = Begin();
    while (result.IsUnplugged && !IsInterrupted()) {
      const StreamLimits left = LeftOf(limits_, result.Counts);
      if (IsUsedUp(left) || !CameBack(result)) break;
      if (!GoOn(result, left)) return result;
    }
    if (result.IsUnplugged && result.Counts.Delivered() != 0) {
      result.Troubles.push_back("the camera was unplugged after frame " +
                                std::to_string(result.Counts.Delivered()));
    }
    return result;
  }

 private:
  // One that is unplugged ahead of its first frame is waited for, too.
  StreamResult Begin() {
    try {
      return stream_(camera_, limits_, true);
    } catch (const CommandError&) {
      if (!options_.Waits || IsInterrupted() || IsStillThere()) throw;
      StreamResult nothing;
      nothing.IsUnplugged = true;
      return nothing;
    }
  }

  bool CameBack(const StreamResult& result) {
    const auto asleep = TimeAsleep();
    const bool hasSlept = asleep - asleep_ > std::chrono::milliseconds(100);
    asleep_ = asleep;
    const auto deadline = Clock::now() + (hasSlept ? kWake : kReset);
    if (options_.Waits) {
      Tell(options_, "camera " + camera_.Camera + " was unplugged after frame " +
                         std::to_string(result.Counts.Delivered()) + ": waiting for it");
    } else if (!hasSlept && !IsStillThere()) {
      return false;
    }
    const auto back = AwaitPluggedCamera(
        Wanted(), [&] { return !IsInterrupted() && (options_.Waits || Clock::now() < deadline); });
    if (!back) return false;
    camera_.Camera = NameOf(*back);
    Tell(options_, "camera " + camera_.Camera + " is back: the stream goes on");
    return true;
  }

  // By its name: after a reset, it has another number.
  [[nodiscard]] bool IsStillThere() const {
    return AwaitPluggedCamera(ParsePluggedName(camera_.Camera), [] { return false; }).has_value();
  }

  // A camera may come back at another port, unless the user has named one.
  [[nodiscard]] PluggedName Wanted() const {
    PluggedName name = ParsePluggedName(camera_.Camera);
    if (!options_.IsPortNamed) name.Path.clear();
    return name;
  }

  bool GoOn(StreamResult& result, const StreamLimits& left) {
    StreamResult part;
    try {
      part = stream_(camera_, left, false);
    } catch (const CommandError& error) {
      // One that is unplugged while it comes up is waited for again.
      part.IsUnplugged = !IsStillThere() || ++fruitless_ < kMostFruitless;
      if (!part.IsUnplugged) {
        result.Troubles.emplace_back(error.what());
        return false;
      }
    }
    if (part.Counts.Delivered() != 0) fruitless_ = 0;
    if (result.Identity.empty()) {
      StreamResult first = part;
      first.Faults = result.Faults;
      result = first;
      return true;
    }
    result.Counts = Together(result.Counts, part.Counts);
    result.IsUnplugged = part.IsUnplugged;
    if (part.Written) result.Written = result.Written.value_or(0) + *part.Written;
    if (part.ProcessorSeconds) {
      result.ProcessorSeconds = result.ProcessorSeconds.value_or(0) + *part.ProcessorSeconds;
    }
    result.Troubles.insert(result.Troubles.end(), std::make_move_iterator(part.Troubles.begin()),
                           std::make_move_iterator(part.Troubles.end()));
    return true;
  }

  const CommonOptions& options_;
  const StreamLimits limits_;
  const StreamPart& stream_;
  CameraChoice camera_;
  std::chrono::nanoseconds asleep_ = TimeAsleep();
  int fruitless_ = 0;
};

}  // namespace

StreamCounts Together(const StreamCounts& before, const StreamCounts& behind) {
  if (before.Delivered() == 0) return behind;
  StreamCounts sum = before;
  sum.Good += behind.Good;
  sum.Bad += behind.Bad;
  sum.StartUp += behind.StartUp;
  sum.Settling += behind.Settling;
  sum.Lost += behind.Lost;
  sum.BusBytes += behind.BusBytes;
  if (behind.Delivered() != 0) sum.NewestMicroframe = before.Microframes + behind.NewestMicroframe;
  sum.Microframes += behind.Microframes;
  return sum;
}

StreamResult StreamOverReplugs(const CommonOptions& start, const StreamLimits& limits,
                               const StreamPart& stream) {
  if (!IsPluggedIn(start.Camera.Camera)) return stream(start.Camera, limits, true);
  StreamLimits tolerant = limits;
  tolerant.ToleratesUnplugging = true;
  return ReplugRun(start, tolerant, stream).Run();
}

}  // namespace lidcam::app
