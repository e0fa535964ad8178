// The file that the driver writes when an application asks for a still.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/host/nt/system/debug_print.h"
#include "tests/compliance/support/compliance_world.h"
#include "tests/compliance/support/frame_rules.h"
#include "tests/compliance/support/property_table.h"
#include "tests/driver/support/system_root.h"

namespace lidcam::compliance {
namespace {

using client::Camera;
using client::Stream;

struct StillSize {
  std::int32_t Width;
  std::int32_t Height;
  std::int32_t RawWidth;
  std::int32_t RawHeight;
  std::uint32_t Bytes;  ///< of the raw picture
  std::uint8_t SizeIndex;
};

class StillFile : public ::testing::TestWithParam<StillSize> {
 protected:
  [[nodiscard]] std::string Contents() const {
    std::ifstream file(disk_.Drivers() / "SnapFile.dat", std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

 private:
  test::TemporarySystemRoot disk_;
};

TEST_P(StillFile, HasTheNextRawPictureWithItsMarksAndReplacesTheOneBefore) {
  const StillSize& size = GetParam();
  RunOn(CameraKind::Simulated, [&](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(size.Width, size.Height));
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 3), STATUS_SUCCESS);
    EXPECT_EQ(Contents(), "");
    for (const LONG value : {0x12345, 0x0102}) {
      SCOPED_TRACE(value);
      const host::DebugPrintCapture debug;
      camera.SetLevel(kPrivate, 19, {value});
      EXPECT_EQ(TakeFrames(stream, 4), STATUS_SUCCESS);
      const std::string still = Contents();
      ASSERT_EQ(still.size(), size.Bytes);
      const std::string marks = {static_cast<char>(size.SizeIndex), 0,
                                 static_cast<char>(value & 0xFF),
                                 static_cast<char>(value >> 8 & 0xFF)};
      EXPECT_EQ(still.substr(size.Bytes - 4), marks);
      EXPECT_NE(still.substr(0, 64), std::string(64, '\0'));
      const std::string width = "ulWidth = " + std::to_string(size.RawWidth);
      const std::string height = "ulHeight = " + std::to_string(size.RawHeight);
      EXPECT_THAT(debug.Messages(),
                  ::testing::ElementsAre(width + ", " + height, "Write file true", width, height,
                                         "srcIndex = " + std::to_string(size.SizeIndex)));
    }
  });
}

INSTANTIATE_TEST_SUITE_P(, StillFile,
                         ::testing::Values(StillSize{640, 480, 640, 480, 614400, 3},
                                           StillSize{320, 240, 320, 240, 153600, 2},
                                           StillSize{160, 120, 320, 240, 153600, 2},
                                           StillSize{352, 288, 640, 480, 614400, 3}),
                         [](const auto& test) {
                           return std::to_string(test.param.Width) + "x" +
                                  std::to_string(test.param.Height);
                         });

}  // namespace
}  // namespace lidcam::compliance
