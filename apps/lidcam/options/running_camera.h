#pragma once

#include <functional>
#include <memory>

#include "apps/lidcam/options/common_options.h"
#include "library/control_socket/control_client.h"

namespace lidcam::app {

/// A connection to the process that has the command's camera open; null if none has, or takes requests.
[[nodiscard]] std::unique_ptr<ControlClient> RunningCamera(const CommonOptions& options);

/// Does a command's work with a camera that is open in another process, or opens it here.
///
/// @param remotely  with the process that has it open
/// @param here      may throw CommandError for a camera that is in use: a process that has only just opened it is
///                  then asked as soon as it takes requests
void RunWhereOpen(const CommonOptions& options,
                  const std::function<void(ControlClient& client)>& remotely,
                  const std::function<void()>& here);

}  // namespace lidcam::app
