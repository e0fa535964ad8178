#include "apps/lidcam/stream/offered_stream.h"

#include "library/base/command_error.h"
#include "library/camera/streaming/running_still.h"
#include "library/frames/frame_row.h"

namespace lidcam::app {

OfferedStream::OfferedStream(CameraStream& stream, const CameraChoice& choice)
    : stream_(stream), sets_(SetFilesFor(choice)) {
  tasks_.Adopt(&stream.Opened());
  Serve();
  service_ = std::make_unique<CameraService>(Served(choice), [this] {
    const std::lock_guard lock(mutex_);
    return status_;
  });
}

// The service's thread may wait for a task.
OfferedStream::~OfferedStream() {
  service_->Withdraw();
  tasks_.Close();
  service_.reset();
}

ServedCamera OfferedStream::Served(const CameraChoice& choice) {
  const auto run = [this](const std::function<void(OpenedCamera & opened)>& use) {
    tasks_.Run([&use](OpenedCamera* opened) {
      if (opened == nullptr) throw CommandError("the camera's stream has ended; try again");
      use(*opened);
    });
  };
  return {.Choice = choice,
          .Unit = UnitOf(choice).value_or(""),
          .Run = run,
          .Still = [this, run](std::uint32_t value) {
            StillPicture still;
            run([&](OpenedCamera&) { still = TakeStillOf(stream_, sets_, value); });
            return still;
          }};
}

void OfferedStream::Serve() {
  const StreamProgress progress = stream_.Progress();
  {
    const std::lock_guard lock(mutex_);
    status_.IsStreaming = true;
    status_.Size = stream_.Size();
    status_.Frames = progress.Counts.Delivered();
    status_.Drops = static_cast<std::int64_t>(progress.Counts.Lost);
    status_.IsAutoExposure = progress.IsAutoExposure.value_or(false);
    status_.Exposure = stream_.NewestLoop().Exposure;
    status_.LightState = progress.LightState ? LightStateName(*progress.LightState) : "";
  }
  tasks_.RunPending();
}

}  // namespace lidcam::app
