#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "integrations/camera/camera_description.h"
#include "library/lidcam.h"

namespace lidcam::integrations {

/// What a stream is asked for.
struct StreamShape {
  std::uint32_t Width = 0;
  std::uint32_t Height = 0;
  std::int64_t FrameInterval = 0;  ///< 100 ns; 0: the camera's usual one

  bool operator==(const StreamShape&) const = default;
};

struct ReleaseFrame {
  void operator()(const lidcam_frame* frame) const { lidcam_frame_release(frame); }
};

/// A picture's buffer, which goes back to the camera when this ends. On any thread.
using LentPicture = std::unique_ptr<const lidcam_frame, ReleaseFrame>;

/// A picture for those who look, valid during the call that passes it, and as long as `Lent` is kept.
struct Picture {
  std::span<const std::uint8_t> Data;  ///< YUY2, rows without padding
  std::uint32_t Stride = 0;            ///< bytes
  std::int64_t Time = 0;               ///< ns of CLOCK_MONOTONIC
  std::int64_t Number = 0;             ///< the camera's picture number; 0 for a notice
  LentPicture Lent{};                  ///< null for a notice
};

/// Memory that the camera fills with pictures, in equal parts.
struct CameraMemory {
  std::shared_ptr<void> Owner{};  ///< keeps it while the camera may write to it
  std::span<std::uint8_t> Bytes{};
  std::uint32_t Buffers = 0;  ///< parts; 0: the camera has memory of its own
};

/// Where a shared camera's pictures go.
class PictureReceiver {
 public:
  virtual ~PictureReceiver() = default;
  /// A picture of the camera, or a notice that says why there is none. On the camera's own thread.
  virtual void TakePicture(const StreamShape& shape, Picture& picture) = 0;
  /// No picture has come for a tenth of a second: the camera may lack the buffers that were lent. On the camera's own
  /// thread.
  virtual void LacksPictures() {}
  /// Nobody looks any more: no picture comes until somebody does. On the camera's own thread.
  virtual void CameraRests() {}
  /// Controls have other values, or one was refused and keeps its own. On the camera's own thread.
  virtual void ControlsChanged() = 0;
};

/// A camera that runs only while somebody looks at it, and that may be unplugged and come back.
///
/// While it is away, its lookers get five pictures a second that say so. It is closed, and free for other
/// programs, some seconds after the last looker has gone. All operations return at once: a thread of its own
/// does the work. They may be called from any thread. A recording is played at its own speed, and again from its end.
class SharedCamera {
 public:
  struct Options {
    CameraAddress Address;
    std::function<void(const std::string& line)> Tell;  ///< on the camera's own thread
    /// Kept open for this long without lookers: many applications close a camera to open it again at once.
    std::chrono::milliseconds Linger{2000};
  };

  /// @param receiver  outlives this object
  SharedCamera(Options options, std::vector<CameraControl> controls, PictureReceiver& receiver);
  SharedCamera(const SharedCamera&) = delete;
  SharedCamera& operator=(const SharedCamera&) = delete;
  /// Saves changed controls and closes the camera.
  ~SharedCamera();

  /// Somebody looks, from now on at this size and rate.
  ///
  /// @param memory  where the pictures are to lie
  void Show(const StreamShape& shape, const CameraMemory& memory = {});

  /// Nobody looks any more.
  void Hide();

  /// Says who looks, for `lidcam status`: "PipeWire: firefox (1234)", one each.
  void SetViewers(std::vector<std::string> viewers);

  /// Sets a control, also while nobody looks. The camera's answer comes by PictureReceiver::ControlsChanged().
  /// Values persist, as those of `lidcam set`.
  void SetControl(const std::string& name, std::int32_t value);

  /// The controls with the values that the camera had last.
  [[nodiscard]] std::vector<CameraControl> Controls() const;

 private:
  using Clock = std::chrono::steady_clock;
  struct CloseCamera {
    void operator()(lidcam_camera* camera) const { lidcam_close(camera); }
  };
  static void OnEvent(lidcam_camera* camera, const lidcam_event* event, void* user);
  static void OnCamerasChanged(void* user);

  void Run();
  void Rest();
  bool EnsureStream(const StreamShape& shape, const CameraMemory& memory);
  bool EnsureOpen();
  bool Open(const std::string& address);
  void StopStream();
  void Close();
  void TakeFrame();
  void PassOn(LentPicture frame);
  void AwaitRecordedTime(std::int64_t streamTime);
  void ShowNotice(const StreamShape& shape);
  void PassViewersOn();
  void ApplyControls();
  void SaveControls();
  bool ReadControls();
  void Fail(std::string_view notice, const std::string& reason);
  void Lose();
  void Tell(const std::string& line);

  const Options options_;
  PictureReceiver& receiver_;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool isEnding_ = false;
  bool hasNews_ =
      false;  ///< of the members up to the empty line, since the thread looked at them last
  std::optional<StreamShape> wanted_;
  CameraMemory wantedMemory_;
  std::map<std::string, std::int32_t> asked_;
  std::vector<std::string> viewers_;
  bool areViewersChanged_ = false;
  std::string replugged_;  ///< address
  bool isControlEvent_ = false;
  bool isCameraListChanged_ = false;
  std::vector<CameraControl> controls_;

  // Of the thread alone.
  std::unique_ptr<lidcam_camera, CloseCamera> camera_;
  std::optional<StreamShape> running_;
  CameraMemory runningMemory_;
  Clock::time_point started_{};
  bool isRecording_ = false;
  bool isLost_ = false;                          ///< open, and unplugged since
  std::map<std::string, std::int32_t> pending_;  ///< values that the camera is to get
  std::map<std::string, std::int32_t> unsaved_;  ///< values that it got while it was open
  std::string notice_;  ///< why there are no pictures; empty while there are
  std::string told_;
  Clock::time_point nextTry_{};

  lidcam_watch* watch_ = nullptr;
  std::thread thread_;
};

}  // namespace lidcam::integrations
