#pragma once

#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "viewer/camera/viewed_camera.h"
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
  /// The message with which the server greets a page.
  [[nodiscard]] std::string Hello() const;

  void CameraChanged(std::size_t camera, const CameraState& state) override;
  void ControlsChanged(std::size_t camera, const std::vector<ControlState>& controls) override;
  void PictureCame(std::size_t camera, std::shared_ptr<const Picture> picture) override;

 private:
  struct Entry {
    CameraState State;
    bool IsWanted = false;
    std::unique_ptr<ViewedCamera> View{};
  };

  void TellAll(const std::string& message) const;
  void TellViewers();

  const std::string version_;
  const std::string snapshotToken_;
  JpegEncoder encoder_;
  std::set<Watcher*> watchers_;
  std::vector<Entry> cameras_;
};

}  // namespace lidcam::viewer
