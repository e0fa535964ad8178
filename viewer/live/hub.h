#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "viewer/camera/viewed_camera.h"
#include "viewer/live/recordings.h"
#include "viewer/live/shared_picture.h"

namespace lidcam::viewer {

/// One who looks at cameras: a page, or another program. On the pages' thread.
class Watcher {
 public:
  Watcher() = default;
  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;
  virtual ~Watcher() = default;

  /// Whether pictures of a camera are wanted now: a camera that none wants is off.
  [[nodiscard]] virtual bool Wants(std::size_t camera) const = 0;
  /// A new picture of a camera that is wanted.
  virtual void Offer(std::size_t camera, const std::shared_ptr<SharedPicture>& picture) = 0;
  /// News of the cameras, a message of the pages' protocol each.
  virtual void Tell(const std::string& message) = 0;
  /// The same, of which a watcher that is slow may miss some.
  virtual void TellPassing(const std::string& message) { static_cast<void>(message); }
  /// Whether the lines of a camera's trace are wanted.
  [[nodiscard]] virtual bool WantsTrace(std::size_t camera) const {
    static_cast<void>(camera);
    return false;
  }
  /// Looks whether recordings that it has begun have failed.
  virtual void CheckRecordings() {}
  /// Whether it counts as a page that is open.
  [[nodiscard]] virtual bool IsPage() const { return false; }
};

struct HubCamera {
  app::SessionOptions Session;
  CameraState State;
};

/// What the pages show: cameras, and those who watch them. On the pages' thread, except for what the cameras do.
class Hub final : public CameraListener {
 public:
  struct Options {
    std::vector<HubCamera> Cameras;
    std::string Version;
    std::string SnapshotToken;
    std::vector<std::string> Forms{};  ///< of recordings: "mkv"
    MakePictureWriter MakeWriter{};
  };

  Hub(Options options, const Executor& executor);

  void Add(Watcher& watcher);
  void Remove(Watcher& watcher);
  /// A watcher wants other cameras than before.
  void Reconsider();

  [[nodiscard]] std::size_t CameraCount() const { return cameras_.size(); }
  [[nodiscard]] ViewedCamera& Camera(std::size_t camera) { return *cameras_[camera].View; }
  [[nodiscard]] const CameraState& StateOf(std::size_t camera) const {
    return cameras_[camera].State;
  }
  /// The picture at which a recording stands, also for a page that comes while it does; null for other cameras.
  [[nodiscard]] std::shared_ptr<SharedPicture> StandingPicture(std::size_t camera) const {
    return cameras_[camera].Last;
  }
  /// The messages with which the server greets a page.
  [[nodiscard]] std::vector<std::string> Hello() const;
  /// A recording of a camera begins or ends.
  void BeginRecording(std::size_t camera) { ++cameras_[camera].Recordings; }
  void EndRecording(std::size_t camera) { --cameras_[camera].Recordings; }
  [[nodiscard]] bool IsRecording(std::size_t camera) const {
    return cameras_[camera].Recordings != 0;
  }
  [[nodiscard]] Recordings& Films() { return recordings_; }

  /// Tells the watchers what the cameras' buses and drivers did since the last call; to be called often enough that
  /// it looks live, and not more: every kTickInterval.
  void Tick();
  static constexpr std::chrono::milliseconds kTickInterval{50};

  /// Has a simulated camera look at an uploaded picture.
  void ShowScene(std::size_t camera, std::string content, ViewedCamera::Done done);

  void CameraChanged(std::size_t camera, const CameraState& state) override;
  void ControlsChanged(std::size_t camera, const std::vector<ControlState>& controls) override;
  void PictureCame(std::size_t camera, std::shared_ptr<const Picture> picture) override;

 private:
  struct Entry {
    CameraState State;
    bool IsWanted = false;
    unsigned Recordings = 0;
    std::shared_ptr<SharedPicture> Last{};  ///< of a recording
    std::optional<double> Position{};       ///< seconds, of a recording; told by the next tick
    std::unique_ptr<ViewedCamera> View{};
  };

  void TellAll(const std::string& message) const;
  void TellAllPassing(const nlohmann::json& message) const;
  void TellLoop(std::size_t camera);
  void TellRegisters(std::size_t camera);
  void TellTrace(std::size_t camera);
  void TellViewers();

  const std::string version_;
  const std::string snapshotToken_;
  JpegEncoder encoder_;
  Recordings recordings_;
  std::uint64_t ticks_ = 0;
  std::set<Watcher*> watchers_;
  std::vector<Entry> cameras_;
};

}  // namespace lidcam::viewer
