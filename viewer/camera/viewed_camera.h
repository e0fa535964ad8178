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
#include "viewer/camera/camera_description.h"
#include "viewer/camera/camera_state.h"
#include "viewer/camera/camera_telemetry.h"
#include "viewer/camera/own_trace.h"
#include "viewer/camera/picture_recording.h"
#include "viewer/camera/simulation_panel.h"
#include "viewer/camera/viewed_bus.h"

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
    /// No other camera of this process runs: lines of the driver's trace that name no camera are then this one's.
    bool IsOnly = true;
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
  /// Does something that needs no camera, such as reading a file, on the camera's thread.
  void DoAside(std::function<void()> work, Done done);

  /// Unplugs a simulated camera; it stays away until Plug().
  void Unplug(Done done);
  void Plug(Done done);
  /// Begins the faults of a script now, on the open camera's bus.
  void BeginFaults(const std::string& script, Done done);
  /// Changes what a simulated camera looks at.
  void Simulate(std::function<void(SimulationPanel& panel)> change, Done done);

  /// Reads a register, after it was written if there is a value.
  void AccessRegister(RegisterChip chip, std::uint16_t address, std::optional<std::uint8_t> value,
                      std::function<void(std::uint8_t value)> answer, Done done);

  // Of a recording.
  void Seek(double seconds);
  void Play(bool isPlaying);
  void Step();

  /// Every picture from now on goes to a recording too, until it is removed.
  void AddRecording(const std::shared_ptr<PictureRecording>& recording);
  void RemoveRecording(const std::shared_ptr<PictureRecording>& recording);

  [[nodiscard]] CameraTelemetry& Telemetry() { return telemetry_; }

  /// For `lidcam status` in other processes.
  void SetViewers(std::vector<std::string> viewers);

 private:
  using Clock = std::chrono::steady_clock;
  struct Task {
    Work Run;                     ///< with the open camera
    std::function<void()> Aside;  ///< without it
    Done Tell;
  };

  void Run();
  void RunTasks();
  void RunTask(const Task& task);
  void HandleEvents();
  void Settle(bool isWanted, app::PictureSize size);
  void EnsureStream(app::PictureSize size);
  void NoticeSilence();
  bool EnsureOpen();
  void StopStream();
  void Close();
  void SaveControls(bool areAll);
  void Save(const std::string& name);
  void Reset(app::CameraSession& session, const std::string& name);
  void Await(bool isWanted);
  void PlayRecording();
  void Rewind();
  [[nodiscard]] std::unique_ptr<bus::UsbBus> OpenBus(const app::CameraChoice& choice);
  [[nodiscard]] std::shared_ptr<ViewedBus> OpenedBus();
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
  CameraTelemetry telemetry_;
  SimulationPanel panel_;

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
  std::shared_ptr<const Picture> newest_;  ///< not yet passed on
  std::weak_ptr<ViewedBus> bus_;           ///< while the camera is open
  bool isHeldAway_ = false;                ///< unplugged, and not to be plugged in by itself
  Clock::time_point lastFrame_{};
  std::vector<std::shared_ptr<PictureRecording>> recordings_;
  // Of a recording that is played.
  bool isPlaying_ = true;
  bool isStepping_ = false;
  std::optional<double> seek_;

  std::int64_t pictures_ = 0;  ///< on the thread that takes frames
  bool hasLoop_ = false;       ///< the driver steers the exposure; written while no stream runs

  // Of the thread alone.
  CameraState state_;
  std::unique_ptr<app::CameraSession> session_;
  std::optional<app::PictureSize> running_;
  double position_ = 0;                       ///< seconds, of a recording
  std::optional<Clock::time_point> begin_{};  ///< when its first frame would have been played
  std::optional<OwnTrace> trace_;
  Clock::time_point unusedSince_{};
  Clock::time_point nextTry_{};
  std::map<std::string, Clock::time_point> unsaved_;  ///< and when to save them

  std::thread thread_;
};

}  // namespace lidcam::viewer
