#include "integrations/v4l2/loopback_share.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <exception>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "integrations/camera/notice_picture.h"
#include "tests/integrations/lidcam_stand_in.h"
#include "tests/integrations/v4l2/loopback_stand_in.h"

namespace lidcam::integrations::v4l2 {
namespace {

using ::testing::Each;
using ::testing::HasSubstr;

class LoopbackShareTest : public ::testing::Test {
 protected:
  LoopbackShareTest() { stand_.Reset(); }
  ~LoopbackShareTest() override { End(); }

  void Share(PictureSize size = {160, 120}) {
    thread_ = std::thread([this, size] {
      try {
        ShareWithV4l2(
            {.Address = {}, .Device = loopback_.Path(), .Size = size}, [](const std::string&) {},
            [this] { return isEnding_.load(); }, loopback_);
      } catch (const ShareUsageError& error) {
        usageError_ = error.what();
      } catch (const ShareError& error) {
        error_ = error.what();
      }
    });
  }

  void End() {
    isEnding_ = true;
    if (thread_.joinable()) thread_.join();
  }

  bool AwaitLastPicture(const std::vector<std::uint8_t>& picture) {
    return stand_.Await([&](StandIn&) {
      return !loopback_.Pictures.empty() && loopback_.Pictures.back() == picture;
    });
  }

  static std::vector<std::uint8_t> Notice(const std::string& text) {
    return DrawNotice(160, 120, text);
  }

  StandIn& stand_ = StandIn::The();
  LoopbackStandIn loopback_;
  std::atomic<bool> isEnding_ = false;
  std::string error_;
  std::string usageError_;
  std::thread thread_;
};

TEST_F(LoopbackShareTest, TheCameraIsOffWhileNobodyLooks) {
  Share();
  ASSERT_TRUE(AwaitLastPicture(Notice("camera starts")));
  End();
  EXPECT_EQ(stand_.Starts, 0);
  EXPECT_EQ(loopback_.OpenCount, 0);
}

TEST_F(LoopbackShareTest, EveryPictureOfTheCameraIsWrittenWhileSomebodyLooks) {
  Share();
  ASSERT_TRUE(AwaitLastPicture(Notice("camera starts")));
  const OtherProcess looker(loopback_.Path());
  ASSERT_TRUE(stand_.Await([](const StandIn& stand) { return stand.FrameNumber > 20; }));
  End();
  ASSERT_EQ(loopback_.Pictures.size(), 8U);
  for (std::size_t at = 0; at < loopback_.Pictures.size(); ++at) {
    ASSERT_EQ(loopback_.Pictures[at].size(), 160U * 120 * 2);
    EXPECT_THAT(loopback_.Pictures[at],
                Each(static_cast<std::uint8_t>(loopback_.Pictures[0][0] + at)));
  }
}

TEST_F(LoopbackShareTest, TheProgramThatLooksIsNamedAsAViewer) {
  Share();
  const OtherProcess looker(loopback_.Path());
  const std::vector<std::string> expected = {"V4L2 " + loopback_.Path() + ": sleep (" +
                                             std::to_string(looker.Number()) + ")"};
  EXPECT_TRUE(stand_.Await([&](const StandIn& stand) { return stand.Viewers == expected; }));
}

TEST_F(LoopbackShareTest, TheCameraGoesOffWithTheLastLookerAndLeavesNoPictureBehind) {
  Share();
  auto looker = std::make_unique<OtherProcess>(loopback_.Path());
  ASSERT_TRUE(stand_.Await([](const StandIn& stand) { return stand.FrameNumber > 3; }));
  looker.reset();
  ASSERT_TRUE(stand_.Await([](const StandIn& stand) { return !stand.IsStreaming; }));
  ASSERT_TRUE(stand_.Await([&](StandIn&) {
    return std::ranges::all_of(loopback_.Pictures, [](const std::vector<std::uint8_t>& picture) {
      return picture == Notice("camera starts");
    });
  }));
}

TEST_F(LoopbackShareTest, AnUnpluggedCameraIsShownAsSuchAndComesBack) {
  Share();
  const OtherProcess looker(loopback_.Path());
  ASSERT_TRUE(stand_.Await([](const StandIn& stand) { return stand.FrameNumber > 3; }));
  stand_.Unplug();
  ASSERT_TRUE(AwaitLastPicture(Notice("camera unplugged")));
  std::int64_t before = 0;
  {
    const std::lock_guard lock(stand_.Mutex);
    before = stand_.FrameNumber;
  }
  stand_.Replug("usb:1-4:1af0:0511");
  EXPECT_TRUE(stand_.Await([&](const StandIn& stand) { return stand.FrameNumber > before + 3; }));
}

TEST_F(LoopbackShareTest, ASizeThatTheCameraHasNotIsWrongUse) {
  Share({123, 45});
  thread_.join();
  EXPECT_EQ(usageError_, "the camera has no size 123x45, but 640x480, 160x120");
  EXPECT_TRUE(loopback_.Requests.empty());
}

TEST_F(LoopbackShareTest, ADeviceThatIsRemovedEndsTheShare) {
  Share();
  ASSERT_TRUE(AwaitLastPicture(Notice("camera starts")));
  {
    const std::lock_guard lock(stand_.Mutex);
    loopback_.IsRemoved = true;
  }
  const OtherProcess looker(loopback_.Path());
  thread_.join();
  EXPECT_THAT(error_, HasSubstr("takes no pictures any more"));
}

}  // namespace
}  // namespace lidcam::integrations::v4l2
