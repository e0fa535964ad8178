#include "library/camera/streaming/running_still.h"

#include "library/base/command_error.h"
#include "library/camera/still_request.h"
#include "library/settings/environment_turn.h"

namespace lidcam::app {
namespace {

// The slowest setting takes under a second a frame.
constexpr double kLongestStill = 10;

}  // namespace

StillPicture TakeStillOf(CameraStream& stream, SetFiles sets, std::uint32_t value,
                         const std::function<void()>& ahead) {
  const EnvironmentTurn turn;
  UseSystemRoot(sets);
  const StillLock lock(HomeFolder());
  ClearStillFile();
  const StillReport report;
  AskForStill(stream.Opened(), value);
  const double end = stream.Seconds() + kLongestStill;
  while (!report.Status()) {
    if (stream.Seconds() > end) throw CommandError("the camera gave no frame for the still");
    if (ahead) ahead();
    if (stream.Advance()) continue;
    if (stream.IsUnplugged()) {
      throw CommandError("the camera was unplugged: no still was taken", Failure::Unplugged);
    }
    throw CommandError("the stream ended before the still");
  }
  report.RequireWritten();
  return ReadStillFile(value);
}

}  // namespace lidcam::app
