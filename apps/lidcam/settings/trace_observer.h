#pragma once

#include <functional>
#include <string_view>

namespace lidcam::app {

/// Sees the driver's trace lines, those of all cameras, for as long as it lives.
///
/// The driver knows one trace sink; this lets a program print the trace and count in it at once.
/// Lines come on the thread that the traced event happens on, one at a time over all threads, and
/// go to the observers in the order of their making. Nothing else may call SetCameraTraceSink()
/// while an observer lives. A handler must neither make nor destroy an observer.
class TraceObserver {
 public:
  using Handler = std::function<void(std::string_view line)>;

  explicit TraceObserver(Handler handler);
  TraceObserver(const TraceObserver&) = delete;
  TraceObserver& operator=(const TraceObserver&) = delete;
  ~TraceObserver();

 private:
  friend struct TraceObservers;

  Handler handler_;
};

/// Keeps trace lines from all observers for as long as it lives: for what a program does beside the
/// camera that the user means. One lives at a time.
class TracePause {
 public:
  TracePause();
  TracePause(const TracePause&) = delete;
  TracePause& operator=(const TracePause&) = delete;
  ~TracePause();
};

}  // namespace lidcam::app
