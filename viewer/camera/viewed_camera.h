#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "library/session/camera_session.h"
#include "viewer/camera/camera_state.h"

namespace lidcam::viewer {

/// Runs work on the thread that serves the pages. Any thread may call it; never waits.
using Executor = std::function<void(std::function<void()> work)>;

/// Where a camera's news go: all on the thread of the Executor.
class CameraListener {
 public:
  CameraListener() = default;
  CameraListener(const CameraListener&) = delete;
  CameraListener& operator=(const CameraListener&) = delete;
  virtual ~CameraListener() = default;

  /// The camera has another state, other facts, or controls with other values.
  virtual void CameraChanged(std::size_t camera, const CameraState& state) = 0;
  virtual void ControlsChanged(std::size_t camera, const std::vector<ControlState>& controls) = 0;
  /// A picture; the one before may be dropped, if this thread was late.
  virtual void PictureCame(std::size_t camera, std::shared_ptr<const Picture> picture) = 0;
};

/// What is known of a camera that was never open.
[[nodiscard]] CameraState StateOf(const std::string& address);

/// Opens a camera and closes it again, to know what it is. Throws UsageError and CommandError.
[[nodiscard]] CameraState DescribeCamera(const app::SessionOptions& options);

/// A camera that is on only while pages look at it, and may be unplugged and come back.
///
/// A thread of its own opens it, which takes a while, and carries out what pages ask for. It is closed, and free
/// for other programs, some seconds after the last page has gone. A recording is played at its own speed, and again
/// from its end.
class ViewedCamera {
 public:
  struct Options {
    std::size_t Number = 0;  ///< passed on to the listener
    app::SessionOptions Session;
    /// Kept open for this long when no page looks: a page that is loaded again finds it open.
    std::chrono::milliseconds Linger{2000};
  };
  /// Work with the open camera on its viewer's thread; may throw.
  using Work = std::function<void(app::CameraSession& session)>;
  /// Told on the executor's thread how work ended: by an empty text, or by an error.
  using Done = std::function<void(const std::string& error)>;

  /// @param listener  outlives the camera, and what the executor still has to run
  /// @param state     what is known of the camera before it is open
  ViewedCamera(Options options, CameraState state, Executor executor, CameraListener& listener);
  ViewedCamera(const ViewedCamera&) = delete;
  ViewedCamera& operator=(const ViewedCamera&) = delete;
  /// Saves changed controls and closes the camera.
  ~ViewedCamera();

  // From any thread; none waits.

  /// Pages look at the camera, or none does any more.
  void Show(bool isWanted);
  void SetSize(app::PictureSize size);
  /// Opens the camera if it is not, for a while.
  void Do(Work work, Done done);
  /// Sets a control, and saves it a little later: a slider that moves gives many values.
  void SetControl(const std::string& name, std::int32_t value, Done done);
  /// @param name  empty: all
  void ResetControls(const std::string& name, Done done);
  /// For `lidcam status` in other processes.
  void SetViewers(std::vector<std::string> viewers);

 private:
  using Clock = std::chrono::steady_clock;
  struct Task {
    Work Run;
    Done Tell;
  };

  void Run();
  void RunTasks();
  void RunTask(const Task& task);
  void HandleEvents();
  void Settle(bool isWanted, app::PictureSize size);
  void EnsureStream(app::PictureSize size);
  bool EnsureOpen();
  void StopStream();
  void Close();
  void SaveControls(bool areAll);
  void Save(const std::string& name);
  void Await(bool isWanted);
  void PlayRecording();
  void Fail(const std::exception& error);

  void OnEvent(const app::SessionEvent& event);
  void TakeFrame(std::unique_ptr<app::LentFrame> frame);
  void PassPictureOn();
  void ReadControls();
  void TellControls();
  void Enter(CameraPhase phase, const std::string& error = {});

  const Options options_;
  const bool isRecording_;
  const Executor executor_;
  CameraListener& listener_;

  std::mutex mutex_;
  std::condition_variable changed_;
  bool isEnding_ = false;
  bool hasNews_ = false;
  bool isWanted_ = false;
  app::PictureSize size_{640, 480};
  std::deque<Task> tasks_;
  std::vector<std::string> viewers_;
  bool areViewersChanged_ = false;
  bool isGone_ = false;    ///< unplugged
  std::string replugged_;  ///< address
  std::string streamError_;
  bool areControlsChanged_ = false;
  std::unique_ptr<app::LentFrame> newest_;  ///< not yet passed on

  // Of the thread alone.
  CameraState state_;
  std::unique_ptr<app::CameraSession> session_;
  std::optional<app::PictureSize> running_;
  Clock::time_point started_{};  ///< of a recording's playing
  Clock::time_point unusedSince_{};
  Clock::time_point nextTry_{};
  std::map<std::string, Clock::time_point> unsaved_;  ///< and when to save them

  std::thread thread_;
};

}  // namespace lidcam::viewer
