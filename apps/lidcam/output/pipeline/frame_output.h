#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "apps/lidcam/output/frame_writer.h"
#include "library/base/units.h"

namespace lidcam::app {

/// What an output contains of a stream's frames, and how.
struct FrameOutputSetup {
  std::string Path;
  PictureSize Size{};
  std::chrono::microseconds FramePeriod{};             ///< nominal
  std::uint64_t Skip = 0;                              ///< frames left out at the beginning
  std::optional<std::chrono::microseconds> Every{};    ///< one frame in this time
  std::optional<std::chrono::microseconds> Segment{};  ///< length of each file of a series
  std::optional<std::chrono::microseconds> Ring{};     ///< length of what a trigger saves
  std::optional<double> MotionPercent{};    ///< of the picture that has to move: a trigger
  std::optional<std::string> Timestamps{};  ///< file with the times of the frames
  bool IsConstantRate = false;              ///< frames repeated or left out
  bool IsStamped = false;                   ///< time and number in the picture
  bool TellsDate = false;                   ///< the stamp is the date of this machine's clock
  std::function<void(const std::string& line)> Tell{};  ///< of each saved ring
};

/// The output of a stream: takes frames with the times of their stream, numbers them, and passes on what the
/// setup asks for. Throws CommandError as its files do.
class FrameOutput : public FrameWriter {
 public:
  explicit FrameOutput(const FrameOutputSetup& setup);
  ~FrameOutput() override;

  /// A stream begins, whose times begin at 0.
  ///
  /// @param start  of this one, behind the first one's; 0 for the first
  void BeginPart(std::chrono::microseconds start) { partStart_ = start; }

  void Write(const OutputFrame& frame) override;
  void Finish() override;
  [[nodiscard]] std::string Place() const override;
  void NoteFault() override;
  [[nodiscard]] std::optional<std::uint64_t> Kept() const override;
  [[nodiscard]] std::string Note() const override;

 private:
  [[nodiscard]] bool IsWanted(const OutputFrame& frame);

  const std::uint64_t skip_;
  const std::optional<std::chrono::microseconds> every_;
  std::unique_ptr<FrameWriter> next_;
  std::chrono::microseconds partStart_{};
  std::chrono::microseconds newest_{-1};
  std::chrono::microseconds due_{};  ///< of the next wanted frame
  std::uint64_t count_ = 0;
  std::uint64_t passed_ = 0;
};

/// The writer of one file, or of one series of pictures, without further stages. Throws CommandError, also for a
/// form that this program was built without.
[[nodiscard]] std::unique_ptr<FrameWriter> MakeFileWriter(const std::string& path, PictureSize size,
                                                          std::chrono::microseconds framePeriod);

}  // namespace lidcam::app
