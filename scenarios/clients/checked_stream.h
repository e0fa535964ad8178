#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/host/client/stream.h"
#include "scenarios/stage/stage.h"

namespace lidcam::scenarios {

/// A client's stream whose frames are checked against the pin's rules.
class CheckedStream {
 public:
  /// @param isSound  without faults: frames are whole and counts start at 2
  CheckedStream(Stage& stage, bool isSound, const client::Camera& camera,
                const client::VideoFormat& format, std::size_t buffers);

  [[nodiscard]] client::Stream& Pin() { return *pin_; }

  NTSTATUS SetState(KSSTATE state);
  /// Also queues all buffers.
  NTSTATUS Run();
  NTSTATUS Stop();
  NTSTATUS SetFormat(const client::VideoFormat& format);
  NTSTATUS UseClock();
  void CancelBuffers();
  /// Reads the state, which another client may have changed.
  void LookAtState();

  /// Waits for a frame and checks it.
  /// @return the status of client::NextFrame
  NTSTATUS Take(LONGLONG timeout);

  /// Whether frames must come: the stream runs, and the driver has buffers.
  [[nodiscard]] bool IsToDeliver() const { return isRunning_ && pin_->Queued() != 0 && HasRoom(); }
  /// False for a format that tells the driver no size of a picture: buffers without memory are refused.
  [[nodiscard]] bool HasRoom() const { return pin_->BufferBytes() != 0; }
  [[nodiscard]] bool IsStopped() const { return isStopped_; }

 private:
  /// Fields of a frame's header.
  struct Frame {
    LONGLONG Time;
    LONGLONG Duration;
    LONGLONG Picture;
    LONGLONG Drop;
    ULONG Options;
    bool IsWhole;
    std::size_t Bytes;
  };

  [[nodiscard]] bool IsWhole(std::span<const std::byte> picture) const;
  void Check(const Frame& frame);
  void CheckNumbers(const Frame& frame);
  void ForgetFrames();
  void NoteState(KSSTATE wanted, NTSTATUS status);

  Stage& stage_;
  const bool isSound_;
  client::VideoFormat format_;
  const std::uint32_t room_;  ///< of each buffer: the pin's framing stays that of the first format
  std::unique_ptr<client::Stream> pin_;
  bool hasClock_ = false;
  bool isStateKnown_ = true;  ///< false: the request for the state had no memory
  bool isStopped_ = true;
  bool isRunning_ = false;
  std::uint64_t framesSinceRun_ = 0;
  LONGLONG lastTime_ = 0;
  LONGLONG lastPicture_ = 0;
  bool isFirst_ = true;                 ///< no frame to compare the next one with
  bool isFresh_ = true;                 ///< no frame has come since the stream was stopped
  std::optional<LONGLONG> nextNumber_;  ///< the next frame's, if none can have been lost
};

}  // namespace lidcam::scenarios
