#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <vector>

#include "apps/lidcam/output/frame_writer.h"
#include "apps/lidcam/output/pipeline/motion.h"
#include "apps/lidcam/output/pipeline/segmented_output.h"
#include "library/base/units.h"

namespace lidcam::app {

struct RingSetup {
  std::string Path;  ///< of the numbered files
  std::chrono::microseconds Length{};
  PictureSize Size{};
  std::optional<double> MotionPercent{};
  std::function<void(const std::string& line)> Tell{};  ///< of each file; may be empty
};

/// Keeps the last seconds of a stream in memory, and saves them to a file of their own on a trigger: a signal
/// (SIGUSR1, see WatchForSaveRequest()), a frame of a wrong size, the stream's end by a fault, or motion. Motion is
/// saved with the seconds around it: half the length goes by before. The ring is empty after a save, so that no
/// frame is in two files.
///
/// Files are written by a thread of their own, and the stream goes on meanwhile; a second trigger waits for the
/// first file. Times in a file count from its first frame.
class RingOutput : public FrameWriter {
 public:
  RingOutput(RingSetup setup, FileMaker makeFile);
  ~RingOutput() override;

  void Write(const OutputFrame& frame) override;
  void NoteFault() override { Save("the stream's end"); }
  /// Frames that no trigger has saved are gone.
  void Finish() override { AwaitFile(); }
  [[nodiscard]] std::string Place() const override;
  [[nodiscard]] std::optional<std::uint64_t> Kept() const override { return kept_; }
  [[nodiscard]] std::string Note() const override;

 private:
  struct KeptFrame {
    std::vector<std::uint8_t> Yuy2;
    OutputFrame Frame;  ///< its bytes are those above
  };

  void Keep(const OutputFrame& frame);
  void LookForMotion(const OutputFrame& frame);
  void Save(const std::string& reason);
  void AwaitFile();

  const RingSetup setup_;
  const FileMaker makeFile_;
  std::deque<KeptFrame> frames_;
  MotionWatch motion_;
  std::optional<std::chrono::microseconds> motionSave_;  ///< when the motion that was seen is saved
  std::future<void> file_;                               ///< that is being written
  std::uint64_t files_ = 0;
  std::uint64_t kept_ = 0;
};

}  // namespace lidcam::app
