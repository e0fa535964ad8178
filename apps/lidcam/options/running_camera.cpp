#include "apps/lidcam/options/running_camera.h"

#include <chrono>
#include <thread>

#include "library/base/command_error.h"
#include "library/control_socket/socket_path.h"

namespace lidcam::app {
namespace {

// In which a process that has opened a camera takes requests.
constexpr std::chrono::seconds kLongestStart{3};
constexpr std::chrono::milliseconds kRetry{50};

std::unique_ptr<ControlClient> AwaitRunningCamera(const CommonOptions& options) {
  if (!ControlSocketOf(UnitOf(options.Camera).value_or(""))) return nullptr;
  const auto end = std::chrono::steady_clock::now() + kLongestStart;
  auto client = RunningCamera(options);
  while (client == nullptr && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(kRetry);
    client = RunningCamera(options);
  }
  return client;
}

}  // namespace

std::unique_ptr<ControlClient> RunningCamera(const CommonOptions& options) {
  return ControlClient::Connect(UnitOf(options.Camera).value_or(""));
}

void RunWhereOpen(const CommonOptions& options,
                  const std::function<void(ControlClient& client)>& remotely,
                  const std::function<void()>& here) {
  if (const auto client = RunningCamera(options)) {
    remotely(*client);
    return;
  }
  try {
    here();
  } catch (const CommandError& error) {
    if (error.Kind() != Failure::InUse) throw;
    const auto client = AwaitRunningCamera(options);
    if (client == nullptr) throw;
    remotely(*client);
  }
}

}  // namespace lidcam::app
