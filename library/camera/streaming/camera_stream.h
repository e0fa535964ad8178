#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>

#include "library/camera/controls/control_table.h"
#include "library/camera/opened_camera.h"
#include "library/frames/delivery_watch.h"
#include "library/frames/lost_frames.h"
#include "library/frames/replay_pipeline.h"
#include "library/frames/stream_progress.h"
#include "library/settings/stream_size.h"
#include "platform/host/client/stream.h"
#include "platform/host/nt/system/debug_print.h"

namespace lidcam::app {

/// One frame as it comes to an application. The bytes live until the handler returns.
struct StreamFrame {
  std::span<const std::uint8_t> Yuy2;  ///< the picture in the stream's size
  FramePosition Position;              ///< as the frame's headers tell it
  DeliveryReport Report;
  std::int64_t LostCount = 0;  ///< frames behind the first one that the application hasn't got
  client::Frame&
      Buffer;  ///< a handler that moves it keeps the bytes longer, within the stream's life
};

/// Called on the thread that runs the stream, one frame at a time. What it throws comes out of
/// Advance().
using StreamFrameHandler = std::function<void(const StreamFrame& frame)>;

/// Which of the driver's events a stream observes.
enum class DeliveryWatching : std::uint8_t {
  EachDelivery,  ///< by the driver's trace
  None,          ///< a frame's report has only the exposure loop as it is when the frame is taken
};

struct StreamSetup {
  StreamSize Size;
  std::span<const ControlAssignment> Controls{};  ///< set before the first frame, in this order
  StreamFrameHandler Frames{};
  std::optional<std::uint64_t>
      MostFrames{};                         ///< the camera's data end with the delivery of the last
  std::optional<LONGLONG> FrameInterval{};  ///< 100 ns; none: the camera's usual one
  std::size_t Buffers = client::StreamOptions{}.Buffers;
  std::span<std::byte> Memory{};  ///< of the buffers, as client::StreamOptions has it
  DeliveryWatching Watching = DeliveryWatching::EachDelivery;
  std::optional<std::chrono::microseconds> Duration{};  ///< of bus time: the camera's data end then
};

/// A stream of a camera from top to bottom: a pin of the installed driver, read as any application
/// reads it. It runs when it is handed out.
class CameraStream {
 public:
  CameraStream(OpenedCamera& opened, client::Stream& pin, PictureSize rawSize,
               const StreamSetup& setup);
  CameraStream(const CameraStream&) = delete;
  CameraStream& operator=(const CameraStream&) = delete;

  /// Runs the stream, whose time begins now. Throws CommandError.
  void Run();

  /// Waits a little for the next frame. False when the camera is gone or a recording has no more, and
  /// all frames that there were have been taken. Throws what the handler threw, and CommandError for a
  /// stream whose transfers have come to a standstill.
  bool Advance();

  /// Ends the camera's data here, and takes the frames that are still on their way to the application:
  /// these are then all that the data hold. Throws as Advance() does.
  void TakeRest();

  /// Ends the run in order: all buffers are back. Nothing if the device is gone.
  void Stop();

  [[nodiscard]] StreamCounts Counts() const;
  [[nodiscard]] bool IsUnplugged() const { return opened_.IsUnplugged(); }
  /// World time since the stream ran.
  [[nodiscard]] double Seconds() const;
  /// What is delivered.
  [[nodiscard]] PictureSize Size() const { return picture_; }
  /// The exposure loop with the newest frame.
  [[nodiscard]] const FrameRow& NewestLoop() const { return newest_.Loop; }
  /// What the camera sends, whatever is delivered.
  [[nodiscard]] PictureSize RawSize() const { return rawSize_; }
  [[nodiscard]] OpenedCamera& Opened() { return opened_; }
  [[nodiscard]] StreamProgress Progress() const;
  /// The stream's time now, by which its frames are stamped: 100 ns.
  [[nodiscard]] LONGLONG Time() const { return pin_.ClockTime(); }
  /// Whether the driver has a buffer to fill.
  [[nodiscard]] bool HasBuffers() const { return pin_.Queued() != 0; }

 private:
  bool TakeNext(LONGLONG timeout);
  void Take(client::Frame& frame);
  [[nodiscard]] std::optional<DeliveryReport> LoopNow();
  [[nodiscard]] std::int64_t CountLost(const FramePosition& position);
  bool DrainAtEnd();
  void WatchTransfers();
  [[nodiscard]] testbed::BusMeter SinceRun() const;

  OpenedCamera& opened_;
  client::Stream& pin_;
  PictureSize picture_;  ///< what the frames are, which may be less than the pin's buffers hold
  PictureSize rawSize_;
  StreamFrameHandler frames_;
  testbed::BusMeter atRun_;
  std::optional<DeliveryWatch> watch_;
  std::atomic<std::uint64_t> wrongSizes_{0};  ///< that a driver without a trace has printed
  std::uint64_t wrongSizesSeen_ = 0;
  std::optional<host::DebugPrintObserver> messages_;
  StreamCounts counts_;  ///< of frames; the bus's share comes from its meter
  LostFrames lost_;
  std::int64_t lostCount_ = 0;
  StreamProgress last_;  ///< of the newest frame
  DeliveryReport newest_;
  LONGLONG start_ = 0;
  std::uint64_t microframes_ = 0;
  LONGLONG lastRead_ = 0;
};

/// Plugs the camera in, brings a stream up, hands it to `use`, and takes everything down in order,
/// whatever `use` throws. Within a world of the bus's time.
///
/// Throws CommandError if the camera doesn't come up, or has no such stream.
void WithStream(bus::UsbBus& bus, const StreamSetup& setup,
                const std::function<void(CameraStream& stream)>& use);

/// The same of a camera that is open.
void WithStreamOf(OpenedCamera& opened, const StreamSetup& setup,
                  const std::function<void(CameraStream& stream)>& use);

}  // namespace lidcam::app
