#include "integrations/camera/shared_camera.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "integrations/camera/notice_picture.h"
#include "tests/integrations/lidcam_stand_in.h"

namespace lidcam::integrations {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr StreamShape kLarge{.Width = 640, .Height = 480, .FrameInterval = 333'333};
constexpr StreamShape kSmall{.Width = 160, .Height = 120, .FrameInterval = 0};

/// Keeps what a shared camera passes on.
class Looker : public PictureReceiver {
 public:
  void TakePicture(const StreamShape& shape, Picture& picture) override {
    const std::lock_guard lock(StandIn::The().Mutex);
    Shape = shape;
    Last.assign(picture.Data.begin(), picture.Data.end());
    LastTime = picture.Time;
    Places.push_back(picture.Data.data());
    if (KeepsPictures && picture.Lent) Kept.push_back(std::move(picture.Lent));
    if (std::ranges::all_of(Last, [&](std::uint8_t byte) { return byte == Last[0]; })) {
      Numbers.push_back(picture.Number);
    } else {
      ++Notices;
    }
    StandIn::The().Changed.notify_all();
  }
  void LacksPictures() override {
    std::vector<LentPicture> kept;
    {
      const std::lock_guard lock(StandIn::The().Mutex);
      kept.swap(Kept);
      ++Lacks;
    }
  }
  void ControlsChanged() override {
    const std::lock_guard lock(StandIn::The().Mutex);
    ++ControlChanges;
    StandIn::The().Changed.notify_all();
  }

  // Under the stand-in's mutex.
  StreamShape Shape;
  std::vector<std::uint8_t> Last;
  std::int64_t LastTime = 0;
  std::vector<std::int64_t> Numbers;
  std::vector<const std::uint8_t*> Places;
  bool KeepsPictures = false;
  std::vector<LentPicture> Kept;
  int Lacks = 0;
  int Notices = 0;
  int ControlChanges = 0;
};

class SharedCameraTest : public ::testing::Test {
 protected:
  SharedCameraTest() {
    stand_.Reset();
    description_ = *DescribeCamera(
        {}, [](const std::string&) {}, [] { return false; });
    const std::lock_guard lock(stand_.Mutex);
    stand_.Opened.clear();
  }

  void Share(std::chrono::milliseconds linger = std::chrono::milliseconds{10}) {
    camera_ = std::make_unique<SharedCamera>(
        SharedCamera::Options{.Address = description_.Address,
                              .Tell =
                                  [this](const std::string& line) {
                                    const std::lock_guard lock(stand_.Mutex);
                                    told_ += line + "\n";
                                  },
                              .Linger = linger},
        description_.Controls, looker_);
  }

  bool AwaitPicture() {
    std::size_t before = 0;
    {
      const std::lock_guard lock(stand_.Mutex);
      before = looker_.Numbers.size();
    }
    return stand_.Await([&](StandIn&) { return looker_.Numbers.size() > before; });
  }

  bool AwaitNotice(const std::string& text) {
    const std::vector<std::uint8_t> notice = DrawNotice(640, 480, text);
    return stand_.Await([&](StandIn&) { return looker_.Last == notice; });
  }

  std::int32_t ValueOf(const std::string& name) const {
    for (const CameraControl& control : camera_->Controls()) {
      if (control.Name == name) return control.Value;
    }
    ADD_FAILURE() << name;
    return 0;
  }

  StandIn& stand_ = StandIn::The();
  CameraDescription description_;
  Looker looker_;
  std::string told_;
  std::unique_ptr<SharedCamera> camera_;  // ends first
};

TEST_F(SharedCameraTest, IsDescribedAndClosedAgain) {
  EXPECT_EQ(description_.Unit, "usb-1-2");
  EXPECT_EQ(description_.Address.Text, "usb");
  EXPECT_THAT(description_.Sizes, ElementsAre(PictureSize{640, 480}, PictureSize{160, 120}));
  ASSERT_EQ(description_.Controls.size(), 2U);
  EXPECT_EQ(description_.Controls[0].Name, "Brightness");
  EXPECT_EQ(description_.Controls[0].Minimum, -100);
  EXPECT_FALSE(stand_.IsOpen);
}

TEST_F(SharedCameraTest, IsNotOpenedWhileNobodyLooks) {
  Share();
  camera_.reset();
  EXPECT_THAT(stand_.Opened, ElementsAre());
}

TEST_F(SharedCameraTest, PassesEveryPictureInOrderWithItsTime) {
  Share();
  camera_->Show(kLarge);
  ASSERT_TRUE(stand_.Await([&](StandIn&) { return looker_.Numbers.size() >= 5; }));
  camera_.reset();
  for (std::size_t at = 0; at < looker_.Numbers.size(); ++at) {
    EXPECT_EQ(looker_.Numbers[at], static_cast<std::int64_t>(at));
  }
  EXPECT_EQ(looker_.LastTime, 1'000'000 * static_cast<std::int64_t>(looker_.Numbers.size()));
  EXPECT_EQ(looker_.Last.size(), 640U * 480 * 2);
  EXPECT_EQ(stand_.Stream.frame_interval, 333'333);
  EXPECT_EQ(stand_.BorrowedFrames, 0);
}

TEST_F(SharedCameraTest, FillsTheMemoryOfTheOneThatLooks) {
  constexpr std::size_t kPart = std::size_t{2} * 160 * 120;
  std::vector<std::uint8_t> memory(4 * kPart);
  Share();
  camera_->Show(kSmall, {.Bytes = memory, .Buffers = 4});
  ASSERT_TRUE(stand_.Await([&](StandIn&) { return looker_.Places.size() >= 5; }));
  camera_.reset();
  for (const std::uint8_t* const place : looker_.Places) {
    EXPECT_GE(place, memory.data());
    EXPECT_LT(place, memory.data() + memory.size());
  }
}

// Four buffers that are kept leave the camera none; then it says so, and gets them back.
TEST_F(SharedCameraTest, SaysThatItLacksPicturesWhileAllBuffersAreLent) {
  constexpr std::size_t kPart = std::size_t{2} * 160 * 120;
  std::vector<std::uint8_t> memory(4 * kPart);
  looker_.KeepsPictures = true;
  Share();
  camera_->Show(kSmall, {.Bytes = memory, .Buffers = 4});
  ASSERT_TRUE(stand_.Await([&](StandIn&) { return looker_.Numbers.size() >= 9; }));
  camera_.reset();
  EXPECT_GE(looker_.Lacks, 2);
  looker_.Kept.clear();
  EXPECT_EQ(stand_.BorrowedFrames, 0);
}

TEST_F(SharedCameraTest, IsOffAndFreeWhenTheLastLookerHasGone) {
  Share();
  camera_->Show(kLarge);
  ASSERT_TRUE(AwaitPicture());
  camera_->Hide();
  EXPECT_TRUE(stand_.Await([](const StandIn& stand) { return !stand.IsStreaming; }));
  EXPECT_TRUE(stand_.Await([](const StandIn& stand) { return !stand.IsOpen; }));
}

TEST_F(SharedCameraTest, IsOffButStaysOpenForALookerThatComesBackAtOnce) {
  Share(std::chrono::hours{1});
  camera_->Show(kLarge);
  ASSERT_TRUE(AwaitPicture());
  camera_->Hide();
  ASSERT_TRUE(stand_.Await([](const StandIn& stand) { return !stand.IsStreaming; }));
  camera_->Show(kSmall);
  ASSERT_TRUE(stand_.Await([](const StandIn& stand) { return stand.IsStreaming; }));
  camera_.reset();
  EXPECT_EQ(stand_.Opened.size(), 1U);
  EXPECT_EQ(stand_.Starts, 2);
}

TEST_F(SharedCameraTest, ChangesItsSizeForALookerThatAsksForAnother) {
  Share();
  camera_->Show(kLarge);
  ASSERT_TRUE(AwaitPicture());
  camera_->Show(kSmall);
  EXPECT_TRUE(stand_.Await([&](StandIn&) { return looker_.Shape == kSmall; }));
  camera_.reset();
  EXPECT_EQ(looker_.Last.size(), 160U * 120 * 2);
}

TEST_F(SharedCameraTest, SaysThatItIsUnpluggedAndComesBackAtAnotherPort) {
  Share();
  camera_->Show(kLarge);
  ASSERT_TRUE(AwaitPicture());
  stand_.Unplug();
  ASSERT_TRUE(AwaitNotice("camera unplugged"));
  stand_.Replug("usb:1-4:1af0:0511");
  ASSERT_TRUE(AwaitPicture());
  camera_.reset();
  EXPECT_THAT(stand_.Opened, ElementsAre("usb", "usb:1-4:1af0:0511"));
  EXPECT_THAT(told_, HasSubstr("unplugged"));
}

TEST_F(SharedCameraTest, ThatIsUnpluggedWhileNobodyLooksIsShownAsSuchUntilItIsBack) {
  Share();
  stand_.Unplug();
  camera_->Show(kLarge);
  ASSERT_TRUE(AwaitNotice("camera unplugged"));
  stand_.Replug("usb:1-4:1af0:0511");
  EXPECT_TRUE(AwaitPicture());
}

TEST_F(SharedCameraTest, ThatAnotherProgramUsesIsShownAsSuchUntilItIsFree) {
  Share();
  stand_.RefuseToOpen(LIDCAM_ERROR_IN_USE);
  camera_->Show(kLarge);
  ASSERT_TRUE(AwaitNotice("camera in use"));
  stand_.RefuseToOpen(LIDCAM_OK);
  EXPECT_TRUE(AwaitPicture());
}

TEST_F(SharedCameraTest, TellsAReasonOnceHoweverOftenItTries) {
  Share();
  stand_.RefuseToOpen(LIDCAM_ERROR_NO_PERMISSION);
  camera_->Show(kLarge);
  ASSERT_TRUE(AwaitNotice("camera unavailable"));
  ASSERT_TRUE(stand_.Await([](const StandIn& stand) { return stand.Opened.size() >= 2; }));
  camera_.reset();
  EXPECT_EQ(told_, "it is refused\n");
}

TEST_F(SharedCameraTest, StartsAgainWhenItsStreamBreaksOff) {
  Share();
  camera_->Show(kLarge);
  ASSERT_TRUE(AwaitPicture());
  stand_.BreakStream();
  ASSERT_TRUE(AwaitNotice("camera unavailable"));
  EXPECT_TRUE(AwaitPicture());
}

TEST_F(SharedCameraTest, TakesAControlsValueWhileItStreamsAndKeepsIt) {
  Share();
  camera_->Show(kLarge);
  ASSERT_TRUE(AwaitPicture());
  camera_->SetControl("Brightness", 20);
  ASSERT_TRUE(stand_.Await([](StandIn& stand) { return stand.Values["Brightness"] == 20; }));
  camera_->Hide();
  ASSERT_TRUE(stand_.Await([](const StandIn& stand) { return !stand.IsOpen; }));
  EXPECT_EQ(ValueOf("Brightness"), 20);
  EXPECT_THAT(stand_.Saved, ElementsAre("Brightness"));
}

TEST_F(SharedCameraTest, TakesAControlsValueWhileNobodyLooks) {
  Share();
  camera_->SetControl("Mirror", 1);
  ASSERT_TRUE(stand_.Await([](StandIn& stand) { return stand.Values["Mirror"] == 1; }));
  EXPECT_TRUE(stand_.Await([](const StandIn& stand) { return !stand.IsOpen; }));
  EXPECT_EQ(stand_.Starts, 0);
  EXPECT_EQ(ValueOf("Mirror"), 1);
}

TEST_F(SharedCameraTest, AnswersARefusedValueWithTheOneThatHolds) {
  Share();
  camera_->Show(kLarge);
  ASSERT_TRUE(AwaitPicture());
  int before = 0;
  {
    const std::lock_guard lock(stand_.Mutex);
    before = looker_.ControlChanges;
  }
  camera_->SetControl("Brightness", 1000);
  ASSERT_TRUE(stand_.Await([&](StandIn&) { return looker_.ControlChanges > before; }));
  EXPECT_EQ(ValueOf("Brightness"), 0);
  camera_.reset();
  EXPECT_THAT(told_, HasSubstr("Brightness: a value that there is not"));
  EXPECT_THAT(stand_.Saved, ElementsAre());
}

TEST_F(SharedCameraTest, KeepsTheValueBeforeARefusedOne) {
  Share();
  camera_->Show(kLarge);
  ASSERT_TRUE(AwaitPicture());
  camera_->SetControl("Brightness", 20);
  ASSERT_TRUE(stand_.Await([](StandIn& stand) { return stand.Values["Brightness"] == 20; }));
  camera_->SetControl("Brightness", 1000);
  ASSERT_TRUE(stand_.Await([&](StandIn&) { return !told_.ends_with("480\n"); }));
  camera_.reset();
  EXPECT_THAT(stand_.Saved, ElementsAre("Brightness"));
}

TEST_F(SharedCameraTest, GetsAValueAgainThatItLostByAReplug) {
  Share();
  camera_->Show(kLarge);
  ASSERT_TRUE(AwaitPicture());
  camera_->SetControl("Brightness", 20);
  ASSERT_TRUE(stand_.Await([](StandIn& stand) { return stand.Values["Brightness"] == 20; }));
  stand_.Unplug();
  ASSERT_TRUE(AwaitNotice("camera unplugged"));
  {
    const std::lock_guard lock(stand_.Mutex);
    stand_.Values["Brightness"] = 0;
  }
  stand_.Replug("usb:1-2:1af0:0511");
  EXPECT_TRUE(stand_.Await([](StandIn& stand) { return stand.Values["Brightness"] == 20; }));
}

TEST_F(SharedCameraTest, TellsOfAControlThatAnotherProcessChanges) {
  Share();
  camera_->Show(kLarge);
  ASSERT_TRUE(AwaitPicture());
  stand_.ChangeControl("Mirror", 1);
  EXPECT_TRUE(stand_.Await([&](StandIn&) { return looker_.ControlChanges >= 2; }));
  EXPECT_EQ(ValueOf("Mirror"), 1);
}

TEST_F(SharedCameraTest, ThatIsARecordingKeepsItsTimeAndIsPlayedAgainFromItsEnd) {
  stand_.RecordedFrames = 4;
  Share();
  const auto begin = std::chrono::steady_clock::now();
  camera_->Show(kLarge);
  ASSERT_TRUE(stand_.Await([&](StandIn&) { return looker_.Numbers.size() == 6; }));
  // Six frames of 50 ms. A machine that is busy takes longer, but never less.
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds{300});
  camera_.reset();
  EXPECT_EQ(stand_.Starts, 2);
  EXPECT_EQ(looker_.Notices, 0);
}

TEST_F(SharedCameraTest, SaysWhoLooksFromTheOpeningOnAndWhenThatChanges) {
  Share();
  camera_->SetViewers({"PipeWire: obs (7)"});
  camera_->Show(kLarge);
  ASSERT_TRUE(stand_.Await([](const StandIn& stand) {
    return stand.Viewers == std::vector<std::string>{"PipeWire: obs (7)"};
  }));
  camera_->SetViewers({"PipeWire: obs (7)", "PipeWire: firefox (8)"});
  EXPECT_TRUE(stand_.Await([](const StandIn& stand) { return stand.Viewers.size() == 2; }));
}

TEST_F(SharedCameraTest, IsWaitedForWhenItIsNotThereAtTheStart) {
  stand_.Unplug();
  int looks = 0;
  const auto camera = DescribeCamera(
      {.Text = "usb"}, [this](const std::string& line) { told_ += line + "\n"; },
      [&] {
        if (++looks == 3) stand_.Replug("usb:1-2:1af0:0511");
        return false;
      });
  ASSERT_TRUE(camera.has_value());
  EXPECT_EQ(told_, "no camera is plugged in; waiting for it\n");
}

TEST_F(SharedCameraTest, IsNotWaitedForPastTheEnd) {
  stand_.Unplug();
  EXPECT_FALSE(DescribeCamera(
                   {}, [](const std::string&) {}, [] { return true; })
                   .has_value());
}

TEST_F(SharedCameraTest, WithAnAddressThatThereIsNotIsWrongUse) {
  stand_.RefuseToOpen(LIDCAM_ERROR_INVALID_ARGUMENT);
  EXPECT_THROW((void)DescribeCamera(
                   {.Text = "usbb"}, [](const std::string&) {}, [] { return false; }),
               ShareUsageError);
}

TEST(NoticePicture, HasItsTextInTheMiddleOnAGreyGround) {
  const std::vector<std::uint8_t> picture = DrawNotice(160, 120, "l");
  ASSERT_EQ(picture.size(), 160U * 120 * 2);
  // One letter with a margin of one on each side: 18 columns, 8 pixels each; 48 wide, 56 high.
  std::size_t ink = 0;
  for (std::size_t at = 0; at < picture.size(); at += 2) {
    const bool isInk = picture[at] == 235;
    ink += isInk ? 1 : 0;
    EXPECT_TRUE(isInk || picture[at] == 40) << at;
    EXPECT_EQ(picture[at + 1], 128) << at;
    const std::size_t x = at / 2 % 160;
    const std::size_t y = at / 2 / 160;
    EXPECT_TRUE(!isInk || (x >= 56 && x < 104 && y >= 32 && y < 88)) << x << "," << y;
  }
  // Of the letter's pixels 10 are set.
  EXPECT_EQ(ink, 10U * 8 * 8);
}

TEST(NoticePicture, OfATextThatIsTooLongStaysInside) {
  EXPECT_EQ(DrawNotice(16, 4, "camera unplugged").size(), 16U * 4 * 2);
}

}  // namespace
}  // namespace lidcam::integrations
