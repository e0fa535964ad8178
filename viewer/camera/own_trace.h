#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "library/settings/trace_observer.h"

namespace lidcam::viewer {

/// The lines of one camera's trace, without those of other cameras that the process has open.
///
/// A camera's record is known only once the camera is open: what was traced until then is kept, and told when it is.
class OwnTrace {
 public:
  using Handler = std::function<void(std::string_view line)>;

  /// @param isOnly  no other camera of this process runs: every line is the camera's, also one that names none
  /// @param tell    on the threads of the driver, one line at a time
  OwnTrace(bool isOnly, Handler tell);
  OwnTrace(const OwnTrace&) = delete;
  OwnTrace& operator=(const OwnTrace&) = delete;
  ~OwnTrace() = default;

  /// The camera is open, and this its record: for comparing only, it may be freed any time.
  void BelongTo(const CameraContext& camera);

  /// Lines that are kept; the oldest goes first.
  static constexpr std::size_t kMostKept = 2000;

 private:
  void Take(const CameraContext* camera, std::string_view line);

  const bool isOnly_;
  const Handler tell_;

  std::mutex mutex_;
  const CameraContext* camera_ = nullptr;
  std::deque<std::pair<const CameraContext*, std::string>> kept_;

  const app::TraceObserver observer_;  // behind all that its handler uses
};

}  // namespace lidcam::viewer
