#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "library/camera/controls/control_table.h"
#include "library/camera/opened_camera.h"
#include "library/camera/source/camera_lock.h"
#include "library/camera/source/camera_source.h"
#include "library/camera/streaming/camera_stream.h"
#include "library/control_socket/camera_service.h"
#include "library/session/camera_tasks.h"
#include "library/session/lent_frame.h"
#include "library/still/still_file.h"

namespace lidcam::bus {
class UsbHost;
}

namespace lidcam::app {

/// Which camera a session opens, and how.
struct SessionOptions {
  CameraChoice Choice;
  LockPatience Patience{};
  std::optional<std::string> Faults{};  ///< a script, a file or a seed
  /// Opens the camera's bus, as a program that watches or disturbs it has it; empty: OpenCamera(). On the session's
  /// thread.
  std::function<std::unique_ptr<bus::UsbBus>(const CameraChoice& choice)> Open{};
};

/// A picture format of the camera's pin.
struct SessionFormat {
  PictureSize Size{};
  std::uint32_t ImageBytes = 0;
  std::vector<std::int64_t> Intervals{};  ///< 100 ns, that the camera names for the size
  std::int64_t ShortestInterval = 0;      ///< 100 ns
  std::int64_t LongestInterval = 0;
};

/// A control with what the driver reports of it.
struct SessionControl {
  const CameraControl* Control = nullptr;
  ControlRange Range{};
  bool HasEffect = false;  ///< on this camera's sensor
};

/// What a session knows of its camera from the opening on.
struct SessionFacts {
  std::uint16_t Vendor = 0;
  std::uint16_t Product = 0;
  std::string Sensor{};
  std::string Unit{};  ///< as UnitOf(); empty for a recording
  std::vector<SessionFormat> Formats{};
  std::vector<SessionControl> Controls{};
};

enum class SessionEventKind { Unplugged, Replugged, Control, StreamFailed, Light };

struct SessionEvent {
  SessionEventKind Kind;
  std::string Camera{};  ///< its name; after a replug that of the port where it is now
  std::string_view Control{};
  std::int32_t Value = 0;  ///< of the control, or a lidcam::LightState
  std::string Text{};
};

using SessionEventHandler = std::function<void(const SessionEvent& event)>;
using LentFrameHandler = std::function<void(std::unique_ptr<LentFrame> frame)>;

struct SessionStream {
  PictureSize Size{640, 480};
  std::optional<LONGLONG> FrameInterval{};  ///< 100 ns; none: the camera's usual one
  std::size_t Buffers = 6;
  std::span<std::byte> Memory{};  ///< of the buffers, as client::StreamOptions has it
  LentFrameHandler Handler{};     ///< empty: frames are taken by Next()
  /// Which of the driver's events a frame's facts tell: see there.
  DeliveryWatching Watching = DeliveryWatching::None;
};

/// A call at the wrong time, such as a start of a stream that runs.
class SessionStateError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum class NextResult { Frame, Timeout, End };

/// An open camera on a thread of its own, which lives as long as the session. Any thread may call.
///
/// Errors are CommandError, UsageError and SessionStateError. Handlers run on the camera's thread; what starts, stops
/// or waits for a stream throws SessionStateError there.
class CameraSession {
 public:
  /// Opens the camera. Throws.
  explicit CameraSession(SessionOptions options);
  CameraSession(const CameraSession&) = delete;
  CameraSession& operator=(const CameraSession&) = delete;
  /// Not from a handler.
  ~CameraSession();

  [[nodiscard]] const SessionFacts& Facts() const { return facts_; }
  [[nodiscard]] const std::string& Name() const { return options_.Choice.Camera; }

  void Start(SessionStream stream);
  /// Nothing without a stream.
  void Stop();
  /// @param timeout  none: waits for ever
  /// @param frame    set for NextResult::Frame
  [[nodiscard]] NextResult Next(std::optional<std::chrono::milliseconds> timeout,
                                std::unique_ptr<LentFrame>& frame);

  /// Calls `use` with the open camera on its thread, and waits. Throws what it throws, and CommandError once the camera
  /// is gone.
  void Use(const std::function<void(OpenedCamera& opened)>& use);

  [[nodiscard]] std::int32_t GetControl(const std::string& name);
  /// Throws also if the camera keeps another value.
  void SetControl(const std::string& name, std::int32_t value);
  void ResetControl(const std::string& name);
  /// Writes the control's present value into the user's settings.
  void SaveControl(const std::string& name);

  /// @param value  marked in the still, the low 16 bits
  [[nodiscard]] StillPicture TakeStill(std::uint32_t value = 0);

  /// Who looks at the camera, and through which way: for other processes that ask.
  void SetViewers(std::vector<std::string> viewers);

  /// The handler before is not called any more when this returns.
  void SetEventHandler(SessionEventHandler handler);

  [[nodiscard]] bool IsOwnThread() const { return tasks_.IsOwnThread(); }

 private:
  enum class Phase { Opening, Open, Gone };
  enum class StreamPhase { Never, Idle, Starting, Running, Ended };

  void RunThread();
  void RunCamera();
  void Serve(OpenedCamera& opened);
  void ReadFacts(const OpenedCamera& opened);
  void Leave();
  void AwaitReturn();
  bool AwaitTick();

  [[nodiscard]] bool IsGone(const OpenedCamera& opened);
  [[nodiscard]] const SessionControl& ControlOf(const std::string& name) const;
  void Change(OpenedCamera& opened, const CameraControl& control, std::int32_t value);

  void RequireMore(const OpenedCamera& opened) const;
  void RunStream(OpenedCamera& opened);
  void RunPump(CameraStream& stream);
  void Pump(CameraStream& stream);
  [[nodiscard]] bool MayAdvance(CameraStream& stream) const;
  [[nodiscard]] StreamSetup SetupOf(const SessionStream& stream);
  void Take(const StreamFrame& frame);
  void TellLight(std::uint32_t state);
  void NoteStatus(const FrameFacts& facts);
  void EndStream(OpenedCamera& opened, const std::exception_ptr& error);
  StillPicture TakeStillOn(OpenedCamera& opened, std::uint32_t value);
  void MakeRoom(CameraStream& stream);
  void Offer();
  void TellChange(const CameraControl& control, std::int32_t value);

  void Tell(const SessionEvent& event);
  void RefuseOwnThread(const char* what) const;

  const SessionOptions options_;
  const bool isRealTime_;
  std::shared_ptr<SessionSignal> signal_ = std::make_shared<SessionSignal>();
  CameraTasks tasks_{signal_};

  // Under the signal's mutex.
  Phase phase_ = Phase::Opening;
  std::exception_ptr openError_;
  bool isClosing_ = false;
  StreamPhase stream_ = StreamPhase::Never;
  bool isStopRequested_ = false;
  std::exception_ptr startError_;
  std::exception_ptr streamError_;
  std::deque<std::unique_ptr<LentFrame>> ready_;
  ServedStatus status_;

  // Written before the opening ends.
  SessionFacts facts_;
  std::u16string identityKey_;

  // On the camera's thread.
  SessionStream request_;  ///< written while the stream isn't Starting or Running
  CameraStream* current_ = nullptr;
  std::shared_ptr<FrameLedger> ledger_;
  std::int64_t clockOffset_ = 0;  ///< ns from the stream's time to CLOCK_MONOTONIC
  std::optional<std::uint32_t> light_;
  SessionEventHandler events_;
  std::unique_ptr<bus::UsbHost> hotplug_;
  std::optional<std::pair<std::string, unsigned>>
      place_;  ///< path and number of a plugged-in camera

  std::unique_ptr<CameraService> service_;  ///< written before the opening ends

  std::thread thread_;
};

}  // namespace lidcam::app
