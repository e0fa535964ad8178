#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "apps/lidcam/output/frame_writer.h"

namespace lidcam::app {

/// Makes the file of a number, from 1 on.
using FileMaker = std::function<std::unique_ptr<FrameWriter>(std::uint64_t number)>;

/// A series of files of equal length, each complete as soon as the next one begins. The time in a file counts from
/// the beginning of its segment: a multiple of the length since the stream's start.
class SegmentedOutput : public FrameWriter {
 public:
  SegmentedOutput(std::string path, std::chrono::microseconds length, FileMaker makeFile)
      : path_(std::move(path)), length_(length), makeFile_(std::move(makeFile)) {}

  void Write(const OutputFrame& frame) override;
  void Finish() override;
  [[nodiscard]] std::string Place() const override;
  [[nodiscard]] std::optional<std::uint64_t> Kept() const override;
  [[nodiscard]] std::string Note() const override { return note_; }

 private:
  void Complete();

  const std::string path_;
  const std::chrono::microseconds length_;
  const FileMaker makeFile_;
  std::unique_ptr<FrameWriter> file_;
  std::int64_t segment_ = 0;  ///< of the file
  std::uint64_t files_ = 0;
  std::uint64_t written_ = 0;    ///< to the file
  std::uint64_t completed_ = 0;  ///< frames in the files before it
  std::string note_;             ///< of the first file that had one
};

}  // namespace lidcam::app
