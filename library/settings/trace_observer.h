#pragma once

#include <functional>
#include <string_view>

namespace lidcam {
struct CameraContext;
}

namespace lidcam::app {

/// Receives the trace lines of all cameras' drivers for as long as it exists.
///
/// The driver has one trace sink; this lets a program print the trace and count in it at the same
/// time. Lines come on the thread that the traced event happens on, one at a time over all threads,
/// and go to the observers in the order of their creation. No other code may call
/// SetCameraTraceSink() while an observer exists. A handler must neither create nor destroy an
/// observer.
class TraceObserver {
 public:
  using Handler = std::function<void(std::string_view line)>;
  /// @param camera  as the driver's sink gets it: whose line it is, or null
  using CameraHandler = std::function<void(const CameraContext* camera, std::string_view line)>;

  explicit TraceObserver(Handler handler);
  explicit TraceObserver(CameraHandler handler);
  TraceObserver(const TraceObserver&) = delete;
  TraceObserver& operator=(const TraceObserver&) = delete;
  ~TraceObserver();

 private:
  friend struct TraceObservers;

  CameraHandler handler_;
};

/// Suppresses trace lines for all observers for as long as it exists: for a program's work with
/// other cameras than the user's. At most one exists at a time.
class TracePause {
 public:
  TracePause();
  TracePause(const TracePause&) = delete;
  TracePause& operator=(const TracePause&) = delete;
  ~TracePause();
};

}  // namespace lidcam::app
