#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "driver/core/base/camera_trace.h"

namespace lidcam::test {

/// The lines of the camera's trace while the object lives; one at a time. Those of register
/// accesses are left out unless requested.
class TraceLines {
 public:
  enum class Accesses { LeftOut, Kept };

  explicit TraceLines(Accesses accesses = Accesses::LeftOut)
      : isEveryLineKept_(accesses == Accesses::Kept) {
    Current() = this;
    SetCameraTraceSink(Keep);
  }
  TraceLines(const TraceLines&) = delete;
  TraceLines& operator=(const TraceLines&) = delete;
  ~TraceLines() {
    SetCameraTraceSink(nullptr);
    Current() = nullptr;
  }

  /// The lines since the last call.
  [[nodiscard]] std::vector<std::string> Take() { return std::exchange(lines_, {}); }

 private:
  static TraceLines*& Current() {
    static TraceLines* current = nullptr;
    return current;
  }

  [[gnu::format(printf, 2, 0)]] static void Keep(const CameraContext*, const char* format,
                                                 std::va_list arguments) {
    char text[200];
    std::vsnprintf(text, sizeof(text), format, arguments);
    const std::string line = text;
    TraceLines& current = *Current();
    if (current.isEveryLineKept_ || !line.starts_with("bus ")) current.lines_.push_back(line);
  }

  bool isEveryLineKept_;
  std::vector<std::string> lines_;
};

}  // namespace lidcam::test
