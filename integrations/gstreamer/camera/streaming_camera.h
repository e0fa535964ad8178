#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <utility>
#include <vector>

#include "integrations/gstreamer/camera/camera_caps.h"
#include "library/lidcam.h"

namespace lidcam::gstreamer {

/// A camera that is open, its stream, its controls, and its return after it was unplugged.
///
/// One thread at a time opens, closes and takes frames; controls and Interrupt() may be used by any. Errors
/// leave their text in lidcam_error_text() of the calling thread.
class StreamingCamera {
 public:
  /// A control has another value. Called on any thread.
  using ControlChanged = void (*)(const char* control, void* user);

  StreamingCamera(ControlChanged changed, void* user) : changed_(changed), user_(user) {}
  StreamingCamera(const StreamingCamera&) = delete;
  StreamingCamera& operator=(const StreamingCamera&) = delete;
  ~StreamingCamera() { Close(); }

  /// @param address  null: the library's choice
  /// @param faults   null: none; otherwise for this camera until it is unplugged
  lidcam_status Open(const char* address, const char* faults);
  void Close();

  /// Runs `use` with the open camera, which stays open meanwhile; with null if there is none.
  template <typename Use>
  auto With(Use use) const {
    const std::shared_lock lock(handle_);
    return use(camera_);
  }

  /// Starts the stream unless it runs in this format already, and waits for the next frame.
  ///
  /// @param[out] isNew  the frame is the first one of a stream
  /// @return as lidcam_next_frame(); LIDCAM_END also after Interrupt()
  lidcam_status Next(const StreamFormat& format, const lidcam_frame** frame, bool* isNew);

  /// Waits until a camera that was unplugged is plugged in again, and opens it.
  ///
  /// @param limit  ns; negative: none
  /// @return LIDCAM_OK; LIDCAM_TIMEOUT; LIDCAM_END after Interrupt()
  lidcam_status WaitForReturn(std::int64_t limit);

  /// Stops the stream: Next() and WaitForReturn() return at once, until Resume().
  void Interrupt();
  void Resume();
  [[nodiscard]] bool IsInterrupted() const;

  /// Who sees the frames, for other processes that ask: of the open camera, and of each one that is opened later.
  void SetViewers(std::vector<std::string> viewers);

  /// Sets a control of the open camera, and of each one that is opened later.
  lidcam_status SetControl(const char* name, std::int32_t value);

  /// The control's value: that of the open camera, otherwise what SetControl() has set; nothing if neither is
  /// there.
  [[nodiscard]] std::optional<std::int32_t> Control(const char* name) const;

 private:
  lidcam_status OpenAt(const char* address, const char* faults);
  void ApplyControls();
  void ApplyViewers();
  lidcam_status StartStream(const StreamFormat& format);
  void StopStream();
  bool WaitForPlug(std::chrono::steady_clock::time_point until);
  bool Pause(std::chrono::steady_clock::time_point until);
  void TakeEvent(const lidcam_event& event);

  const ControlChanged changed_;
  void* const user_;

  mutable std::shared_mutex handle_;  ///< exclusively to change camera_
  lidcam_camera* camera_ = nullptr;

  std::mutex stream_;  ///< to start and stop
  std::optional<StreamFormat> running_;
  bool isNew_ = false;

  mutable std::mutex events_;
  std::condition_variable happened_;
  bool isInterrupted_ = false;
  bool isBack_ = false;
  std::string address_;  ///< of the camera, or where it is back

  mutable std::mutex wanted_;
  std::vector<std::string> viewers_;
  std::vector<std::pair<std::string, std::int32_t>> controls_;  ///< in the order of SetControl()
};

}  // namespace lidcam::gstreamer
