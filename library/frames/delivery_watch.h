#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string_view>

#include "driver/core/record/camera_context.h"
#include "library/frames/frame_row.h"
#include "library/frames/replay_pipeline.h"
#include "library/settings/trace_observer.h"

namespace lidcam::app {

/// Data about a frame from the driver's state at the end of its delivery, which the header doesn't
/// have.
struct DeliveryReport {
  std::int64_t PictureNumber = 0;
  std::uint32_t RawBytes = 0;  ///< of the raw frame that the picture was made of
  bool IsGood = false;         ///< that is as many as the sensor's frames have
  bool IsAutoExposure = false;
  SentFrames Sent{};             ///< up to this frame
  std::uint64_t Microframe = 0;  ///< bus time since the stream's start
  FrameRow Loop{};               ///< the exposure loop; frame number and light are not set here
};

/// Counts in the trace what a camera sends.
class SentFrameCounter {
 public:
  /// @param line  of the camera
  void See(std::string_view line);

  [[nodiscard]] const SentFrames& Sent() const { return sent_; }

 private:
  SentFrames sent_;
  bool isSettling_ = false;
};

/// Called at the end of each delivery with the number of deliveries so far, on the thread that
/// delivers.
using DeliveryHandler = std::function<void(std::uint64_t count)>;

/// Learns from the driver's trace of each frame that a pin delivers, ahead of the application that
/// gets it. In the order of the frames. Lines of other cameras don't count.
class DeliveryWatch {
 public:
  /// @param context      lives until End()
  /// @param microframes  bus time since the stream's start; called on the thread that delivers
  /// @param delivered    may be empty
  DeliveryWatch(const CameraContext& context, std::function<std::uint64_t()> microframes,
                DeliveryHandler delivered = {});
  DeliveryWatch(const DeliveryWatch&) = delete;
  DeliveryWatch& operator=(const DeliveryWatch&) = delete;

  /// Stops watching; what was seen stays. The camera's record is looked at no more.
  void End() { observer_.reset(); }

  /// The report of a delivered frame, each once; nothing for a number that was not seen.
  [[nodiscard]] std::optional<DeliveryReport> Take(std::int64_t pictureNumber);

 private:
  void See(std::string_view line);

  const CameraContext& context_;
  const std::function<std::uint64_t()> microframes_;
  const DeliveryHandler delivered_;
  std::uint64_t count_ = 0;
  ExposureEventCounter events_;  // sees each line ahead of the observer below
  SentFrameCounter sent_;
  std::mutex mutex_;  ///< guards the reports; never held over a kernel call
  std::deque<DeliveryReport> reports_;
  std::optional<TraceObserver> observer_;
};

}  // namespace lidcam::app
