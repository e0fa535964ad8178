#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "library/base/command_error.h"
#include "viewer/live/hub.h"
#include "viewer/live/messages.h"

namespace lidcam::viewer {
namespace {

using nlohmann::json;

constexpr std::uint64_t kTicksOfRegisters = 2;  // ten times a second
constexpr std::uint64_t kTicksOfCounts = 20;    // once a second

/// A file for a picture that comes from a page, which is there for as long as this object.
class UploadedFile {
 public:
  explicit UploadedFile(const std::string& content) {
    const int file = ::mkstemp(path_.data());
    if (file < 0) throw app::CommandError("no file for the picture can be made: " + Reason());
    std::size_t done = 0;
    while (done < content.size()) {
      const ssize_t count = ::write(file, content.data() + done, content.size() - done);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) break;
      done += static_cast<std::size_t>(count);
    }
    const std::string reason = Reason();
    ::close(file);
    if (done == content.size()) return;
    ::unlink(path_.c_str());
    throw app::CommandError("the picture can't be stored: " + reason);
  }
  UploadedFile(const UploadedFile&) = delete;
  UploadedFile& operator=(const UploadedFile&) = delete;
  ~UploadedFile() { ::unlink(path_.c_str()); }

  [[nodiscard]] const std::string& Path() const { return path_; }

 private:
  static std::string Reason() { return std::strerror(errno); }

  std::string path_ = "/tmp/lidcam-scene-XXXXXX";
};

}  // namespace

void Hub::Tick() {
  ++ticks_;
  if (ticks_ % kTicksOfCounts == 0) {
    for (Watcher* const watcher : watchers_) watcher->CheckRecordings();
  }
  for (std::size_t i = 0; i < cameras_.size(); ++i) {
    CameraTelemetry& telemetry = cameras_[i].View->Telemetry();
    TellLoop(i);
    for (const RecoveryEvent& event : telemetry.TakeEvents()) {
      TellAll(TextOf({{"recovery", {{"camera", i}, {"time", event.Time}, {"text", event.Text}}}}));
    }
    TellTrace(i);
    if (ticks_ % kTicksOfRegisters == 0) TellRegisters(i);
    if (ticks_ % kTicksOfCounts != 0) continue;
    const BusCounts counts = telemetry.TakeCounts();
    if (cameras_[i].State.Phase != CameraPhase::On) continue;
    TellAllPassing({{"bus", ToJson(i, counts, MonotonicSeconds())}});
  }
}

void Hub::TellLoop(std::size_t camera) {
  for (const LoopStep& step : cameras_[camera].View->Telemetry().TakeLoop()) {
    TellAllPassing({{"loop", ToJson(camera, step)}});
  }
  if (const auto position = std::exchange(cameras_[camera].Position, std::nullopt)) {
    TellAllPassing({{"position", {{"camera", camera}, {"seconds", *position}}}});
  }
}

void Hub::TellRegisters(std::size_t camera) {
  const auto values = cameras_[camera].View->Telemetry().TakeRegisters();
  if (values.empty()) return;
  TellAllPassing({{"registers", ToJson(camera, values, cameras_[camera].State.Sensor)}});
}

void Hub::TellTrace(std::size_t camera) {
  const TraceLines lines = cameras_[camera].View->Telemetry().TakeLines();
  if (lines.Lines.empty()) return;
  const std::string message =
      TextOf({{"trace", {{"camera", camera}, {"lines", lines.Lines}, {"skipped", lines.Skipped}}}});
  for (Watcher* const watcher : watchers_) {
    if (watcher->WantsTrace(camera)) watcher->TellPassing(message);
  }
}

void Hub::TellAllPassing(const json& message) const {
  if (watchers_.empty()) return;
  const std::string text = TextOf(message);
  for (Watcher* const watcher : watchers_) watcher->TellPassing(text);
}

void Hub::ShowScene(std::size_t camera, std::string content, ViewedCamera::Done done) {
  Camera(camera).Simulate(
      [content = std::move(content)](SimulationPanel& panel) {
        const UploadedFile file(content);
        panel.SetScene(file.Path());
      },
      std::move(done));
}

}  // namespace lidcam::viewer
