#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "library/lidcam.h"

namespace lidcam::integrations {

/// A test double of liblidcam, linked in place of it: one camera with the controls Brightness (-100 to 100, 0) and
/// Mirror (a switch), whose pictures' bytes are all the lower 8 bits of their number.
class StandIn {
 public:
  /// The one that the functions of lidcam.h use.
  static StandIn& The();

  /// A camera that is plugged in, free and at its defaults.
  void Reset();

  void Unplug();
  /// @param address  of LIDCAM_EVENT_REPLUGGED
  void Replug(const std::string& address);
  /// What lidcam_open() returns from now on.
  void RefuseToOpen(lidcam_status status);
  /// A control is set by another process.
  void ChangeControl(const std::string& name, std::int32_t value);
  /// The running stream breaks off.
  void BreakStream();

  /// Waits until a condition over this object holds; false after 20 s.
  template <typename Condition>
  [[nodiscard]] bool Await(Condition condition) {
    constexpr std::chrono::seconds kLimit{20};
    std::unique_lock lock(Mutex);
    return Changed.wait_for(lock, kLimit, [&] { return condition(*this); });
  }

  std::mutex Mutex;
  std::condition_variable Changed;
  // Under the mutex.
  bool IsPluggedIn = true;
  bool IsLost = false;  ///< open, and unplugged since
  bool IsOpen = false;
  bool IsStreaming = false;
  bool IsBroken = false;
  std::int64_t RecordedFrames = 0;  ///< of a recording, 50 ms apart; 0: it is none
  lidcam_status OpenStatus = LIDCAM_OK;
  lidcam_stream_options Stream{};
  std::vector<std::string> Opened;  ///< addresses
  int Starts = 0;
  std::map<std::string, std::int32_t> Values;
  std::vector<std::string> Saved;  ///< names
  std::vector<std::string> Viewers;
  std::int64_t FrameNumber = 0;
  int BorrowedFrames = 0;
  lidcam_event_handler OnEvent = nullptr;
  void* EventUser = nullptr;
  lidcam_cameras_handler OnCameras = nullptr;
  void* CamerasUser = nullptr;

 private:
  void Send(lidcam_event_kind kind, const std::string& address, const char* control);
  void TellOfCameras();
};

}  // namespace lidcam::integrations
