#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "platform/host/client/camera.h"

namespace lidcam::client {

struct StreamBuffer;
class Stream;

/// A filled buffer. It goes back to the driver when it is released, which must be before its stream
/// is destroyed.
class Frame {
 public:
  Frame(Frame&& other) noexcept
      : stream_(std::exchange(other.stream_, nullptr)), buffer_(other.buffer_) {}
  Frame& operator=(Frame&&) = delete;
  Frame(const Frame&) = delete;
  Frame& operator=(const Frame&) = delete;
  ~Frame() noexcept(false);

  /// 100 ns of the stream's clock; 0 without one.
  [[nodiscard]] LONGLONG PresentationTime() const;
  /// 100 ns
  [[nodiscard]] LONGLONG Duration() const;
  [[nodiscard]] ULONG OptionsFlags() const;  ///< KSSTREAM_HEADER_OPTIONSF_*
  [[nodiscard]] LONGLONG PictureNumber() const;
  [[nodiscard]] LONGLONG DropCount() const;
  [[nodiscard]] std::span<const std::byte> Bytes() const;

  /// Takes the buffer's memory, with the bytes where they are: they may then outlive the stream. The buffer
  /// doesn't go back to the driver. The frame is as one that was moved from. Empty if the memory is the stream's
  /// user's, where the bytes stay anyway.
  [[nodiscard]] std::vector<std::byte> TakeMemory();

 private:
  friend class Stream;
  Frame(Stream& stream, StreamBuffer& buffer) : stream_(&stream), buffer_(&buffer) {}

  Stream* stream_;  ///< null once moved from
  StreamBuffer* buffer_;
};

/// The result of a wait for a frame.
struct NextFrame {
  /// STATUS_SUCCESS with a frame, STATUS_TIMEOUT, or why no more frames come: STATUS_CANCELLED after a
  /// stop or the device's removal, STATUS_DEVICE_NOT_CONNECTED for a device that is gone.
  NTSTATUS Status = STATUS_SUCCESS;
  std::optional<Frame> Picture;
};

struct StreamOptions {
  std::size_t Buffers = 5;
  ULONG Pin = 0;
  /// The buffers' memory, in as many equal parts as there are buffers, each large enough for a frame; stays until the
  /// last frame is released. Empty: the stream's own.
  std::span<std::byte> Memory{};
};

/// A connection to one of a camera's pins. Passive level, one thread at a time; it waits only for
/// kernel events. Throws ClientError only.
class Stream {
 public:
  /// Opens the pin.
  Stream(const Camera& camera, const VideoFormat& format, const StreamOptions& options = {});
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  /// Takes all buffers back and closes the pin.
  ~Stream() noexcept(false);

  [[nodiscard]] KSSTATE State() const;
  /// A successful stop returns once all buffers have come back.
  /// @return the driver's status of the step that failed, if any
  NTSTATUS SetState(KSSTATE state);

  /// Hands all buffers to the driver and runs.
  void Run();
  void Pause();
  /// Returns once all buffers have come back.
  void Stop();

  [[nodiscard]] VideoFormat Format() const;
  /// @return the driver's status
  NTSTATUS SetFormat(const VideoFormat& format);
  [[nodiscard]] KSALLOCATOR_FRAMING_EX Framing() const;
  [[nodiscard]] KSPROPERTY_DROPPEDFRAMES_CURRENT_S DroppedFrames() const;

  /// Frames are stamped by the pin's own clock from now on. Only while the stream is stopped.
  void UseClock();
  /// 100 ns, of the clock in use.
  [[nodiscard]] LONGLONG ClockTime() const;

  /// The next frame in the driver's order.
  /// @param timeout  100 ns; 0 doesn't wait
  [[nodiscard]] NextFrame Next(LONGLONG timeout);

  /// Cancels the requests of all buffers; Next() reports when they have come back.
  void CancelBuffers();

  [[nodiscard]] PropertyClient Properties() const { return PropertyClient(*pin_); }
  [[nodiscard]] const host::DeviceFile& File() const { return *pin_; }
  /// Buffers that the driver has.
  [[nodiscard]] std::size_t Queued() const { return queued_.size(); }
  /// Bytes of each buffer, as the driver requires them; 0 for a format without a size of a picture.
  [[nodiscard]] std::size_t BufferBytes() const { return bufferBytes_; }

 private:
  friend class Frame;

  void Release(StreamBuffer& buffer);
  void Queue(StreamBuffer& buffer);
  void QueueAll();
  void TakeBack();
  /// Removes the buffer that came back first from the queue.
  StreamBuffer& TakeFirst();

  std::unique_ptr<host::DeviceFile> pin_;
  std::unique_ptr<host::DeviceFile> clock_;
  std::size_t bufferBytes_ = 0;
  std::vector<std::unique_ptr<StreamBuffer>> buffers_;
  std::deque<StreamBuffer*> queued_;  ///< in the order in which the driver fills them
  bool isQueuing_ = false;            ///< released buffers go back to the driver
  NTSTATUS end_ = STATUS_SUCCESS;     ///< status of the first buffer that came back without a frame
};

}  // namespace lidcam::client
