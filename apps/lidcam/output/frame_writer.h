#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace lidcam::app {

/// One delivered frame on its way to an output. The bytes live as long as the call that hands it over.
struct OutputFrame {
  std::span<const std::uint8_t> Yuy2;  ///< rows top to bottom without padding
  std::chrono::microseconds Time{};    ///< bus time since the stream's start
  std::uint64_t Number = 0;            ///< of the delivered frames, from 1 on; 0: not counted yet
  bool IsGood = true;                  ///< made of a raw frame of the right size
};

/// Takes delivered frames one by one. One thread at a time.
class FrameWriter {
 public:
  FrameWriter() = default;
  FrameWriter(const FrameWriter&) = delete;
  FrameWriter& operator=(const FrameWriter&) = delete;
  virtual ~FrameWriter() = default;

  /// Writes one frame, whose time is not before that of the one before. Throws CommandError.
  virtual void Write(const OutputFrame& frame) = 0;

  /// Completes the output: the frames that were written whole stand under its final name from here on,
  /// also after a write that failed. Throws CommandError.
  virtual void Finish() = 0;

  /// Where the frames are, in words for a person. Empty if there are none.
  [[nodiscard]] virtual std::string Place() const = 0;

  /// The stream ends by a fault. Ahead of Finish().
  virtual void NoteFault() {}

  /// Frames in the output, if they are others than those that were written to it.
  [[nodiscard]] virtual std::optional<std::uint64_t> Kept() const { return std::nullopt; }

  /// What a person should know of the output once it is finished, as a line; or empty.
  [[nodiscard]] virtual std::string Note() const { return {}; }
};

}  // namespace lidcam::app
