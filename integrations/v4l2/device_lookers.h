#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "base/file_users.h"

namespace lidcam::integrations::v4l2 {

/// Who else has a device node open.
///
/// v4l2loopback doesn't say so itself. Linux tells of each open and close of the node (inotify), and /proc says
/// which processes have it open: those of this user, or all for root.
class DeviceLookers {
 public:
  using Clock = std::chrono::steady_clock;

  /// @throws ShareError if the node can't be watched
  explicit DeviceLookers(const std::string& path);
  DeviceLookers(const DeviceLookers&) = delete;
  DeviceLookers& operator=(const DeviceLookers&) = delete;
  ~DeviceLookers();

  /// Waits for a change. Programs that only list devices open the node for a moment; they are not counted.
  ///
  /// @return who looks now, by process number, if somebody has come or gone; nothing if the time limit is over or a
  ///         signal came
  [[nodiscard]] std::optional<std::vector<base::FileUser>> AwaitChange(
      std::chrono::milliseconds limit);

 private:
  [[nodiscard]] std::vector<base::FileUser> Scan() const;
  bool TakeEvents();

  const std::string path_;
  const int watch_;
  std::vector<base::FileUser> lookers_;
  std::optional<Clock::time_point> scanAt_;
};

}  // namespace lidcam::integrations::v4l2
