#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "viewer/camera/camera_state.h"

namespace lidcam::viewer {

/// Writes pictures into a file. On one thread.
class PictureWriter {
 public:
  PictureWriter() = default;
  PictureWriter(const PictureWriter&) = delete;
  PictureWriter& operator=(const PictureWriter&) = delete;
  virtual ~PictureWriter() = default;

  /// @param time  of the picture since the first one; never less than that of the one before. Throws.
  virtual void Write(const Picture& picture, std::chrono::microseconds time) = 0;
  /// Completes the file. Throws.
  virtual void Finish() = 0;
};

/// Makes the writer of a file, whose ending says its form: "clip.mkv". Throws.
using MakePictureWriter =
    std::function<std::unique_ptr<PictureWriter>(const std::string& path, app::PictureSize size)>;

/// A file that a camera's pictures are written into, on a thread of its own: a slow disk does not hold up the camera.
class PictureRecording {
 public:
  PictureRecording(MakePictureWriter make, std::string path);
  PictureRecording(const PictureRecording&) = delete;
  PictureRecording& operator=(const PictureRecording&) = delete;
  /// Completes the file.
  ~PictureRecording();

  /// Any thread; doesn't wait. A picture that finds the queue full, or has another size than the first, is lost.
  void Take(std::shared_ptr<const Picture> picture);

  struct Result {
    std::uint64_t Frames = 0;
    std::uint64_t Lost = 0;
    std::string Error{};  ///< empty if the file is whole
  };
  /// Completes the file with the pictures so far. Waits. The second call gives the same.
  Result Finish();

  /// Nothing more is written: the file could not be opened, or the disk is full. Any thread.
  [[nodiscard]] bool HasFailed();

  [[nodiscard]] const std::string& Path() const { return path_; }

  /// Two seconds, 37 MB of the largest pictures.
  static constexpr std::size_t kMostWaiting = 60;

 private:
  void Run();
  void Write(const Picture& picture);

  const MakePictureWriter make_;
  const std::string path_;

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::shared_ptr<const Picture>> waiting_;
  bool isEnding_ = false;
  Result result_;

  // Of the thread alone.
  std::unique_ptr<PictureWriter> writer_;
  app::PictureSize size_{};
  double last_ = 0;    ///< stream's time of the last picture, s
  double offset_ = 0;  ///< from there to the file's time, s

  std::thread thread_;
};

}  // namespace lidcam::viewer
