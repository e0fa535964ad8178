#pragma once

#include <cstdio>
#include <string>

#include "tests/on_wine/client/camera/camera_stream.h"

namespace lidcam::wine {

/// Frames of one stream on disk: NAME.yuy2 with the pictures in sequence, NAME.txt with a line for
/// each ("frame picture=3 dropped=1 time=1333332 duration=333333 bytes=614400") and a line "pause"
/// where the stream paused.
class FrameRecord {
 public:
  /// @param path  without a suffix
  explicit FrameRecord(const std::wstring& path);
  FrameRecord(const FrameRecord&) = delete;
  FrameRecord& operator=(const FrameRecord&) = delete;
  ~FrameRecord();

  void Add(const ReadFrame& frame);
  void MarkPause();

 private:
  std::FILE* pictures_;
  std::FILE* heads_;
};

}  // namespace lidcam::wine
