#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "driver/core/record/camera_context.h"
#include "platform/host/nt/objects/handles.h"
#include "platform/host/nt/system/debug_print.h"
#include "tests/driver/support/system_root.h"

namespace lidcam::test {

using Bytes = std::vector<std::uint8_t>;
using Messages = std::vector<std::string>;

/// The name that the still's file has in the drivers folder.
inline constexpr const char* kStillFileName = "SnapFile.dat";

/// Pixels that differ from their neighbours and from one `seed` to another.
inline Bytes Picture(std::size_t bytes, std::uint8_t seed = 0) {
  Bytes pixels(bytes);
  for (std::size_t i = 0; i < bytes; ++i) {
    pixels[i] = static_cast<std::uint8_t>(i * 7 + i / 251 + seed);
  }
  return pixels;
}

/// A picture with other last bytes.
inline Bytes WithMarks(Bytes pixels, const Bytes& marks) {
  std::copy(marks.begin(), marks.end(), pixels.end() - static_cast<std::ptrdiff_t>(marks.size()));
  return pixels;
}

/// The messages written during a still.
inline Messages StillMessages(const std::string& width, const std::string& height,
                              const std::string& index, bool isWritten) {
  Messages messages = {"ulWidth = " + width + ", ulHeight = " + height};
  if (isWritten) messages.emplace_back("Write file true");
  messages.push_back("ulWidth = " + width);
  messages.push_back("ulHeight = " + height);
  messages.push_back("srcIndex = " + index);
  return messages;
}

/// A camera's record, a system disk and the debug output.
class StillFixture {
 public:
  StillFixture() = default;
  StillFixture(const StillFixture&) = delete;
  StillFixture& operator=(const StillFixture&) = delete;
  ~StillFixture() { EXPECT_EQ(host::OpenHandleCount(), 0U); }

  void Ask(std::uint32_t rawSizeMode, std::uint32_t value) {
    Context.RawSizeMode = rawSizeMode;
    Context.StillRequestValue = value;
    Context.StillRequested = 1;
  }

  [[nodiscard]] std::filesystem::path FilePath() const { return Disk.Drivers() / kStillFileName; }
  [[nodiscard]] bool HasFile() const { return std::filesystem::exists(FilePath()); }
  [[nodiscard]] Bytes File() const {
    std::ifstream file(FilePath(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  TemporarySystemRoot Disk;
  host::DebugPrintCapture Debug;
  CameraContext Context{};
};

}  // namespace lidcam::test
