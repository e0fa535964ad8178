// Property requests as the camera answers them.

#include "driver/avstream/properties/property_requests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/driver/avstream/properties/camera_properties_requests.h"

namespace lidcam::test {
namespace {

using ::testing::IsEmpty;

TEST(CameraProperties, ASetOfSaturationTo300ReachesTheControlAs300) {
  PropertyCamera camera;
  EXPECT_EQ(camera.Set(kClientVideoProcAmp, 3, Block(40).Put(24, 300).Put(28, 2)).Status, kSuccess);
  EXPECT_EQ(camera.Context().Saturation, 300);
}

TEST(CameraProperties, SettingsComeBackAsTheyWereSet) {
  struct Row {
    const GUID& Set;
    ULONG Id;
    std::size_t Bytes;
    std::uint32_t Value;
  };
  const Row rows[] = {{kClientVideoProcAmp, 0, 40, 0xFFFFFFF6},
                      {kClientVideoProcAmp, 1, 40, 3},
                      {kClientVideoProcAmp, 3, 40, 121},
                      {kClientVideoProcAmp, 4, 40, 5},
                      {kClientVideoProcAmp, 5, 40, 7},
                      {kClientVideoProcAmp, 6, 40, 1},
                      {kClientVideoProcAmp, 8, 40, 1},
                      {kClientCameraControl, 4, 40, 44},
                      {kClientPrivate, 11, 52, 2},
                      {kClientPrivate, 13, 52, 1},
                      {kClientPrivate, 14, 52, 1},
                      {kClientPrivate, 15, 52, 1},
                      {kClientPrivate, 20, 52, 501},
                      {kClientPrivate, 21, 52, 41},
                      {kClientPrivate, 22, 52, 0xFFFFFFFF}};
  PropertyCamera camera;
  for (const Row& row : rows) {
    SCOPED_TRACE(::testing::Message() << "set " << row.Set.Data1 << " id " << row.Id);
    const Reply set = camera.Set(row.Set, row.Id, Block(row.Bytes).Put(24, row.Value).Put(28, 2));
    EXPECT_EQ(set.Status, kSuccess);
    EXPECT_EQ(set.Information, kUntouched);
    const Reply reply = camera.Get(row.Set, row.Id, Block(row.Bytes));
    EXPECT_EQ(reply.Status, kSuccess);
    EXPECT_EQ(reply.Information, kUntouched);
    EXPECT_EQ(reply.Data.Word(24), row.Value);
  }
}

TEST(CameraProperties, ExposureIsAutomaticByExactlyTheAutomaticFlag) {
  PropertyCamera camera;
  camera.Set(kClientCameraControl, 4, Block(40).Put(24, 9).Put(28, 1));
  EXPECT_EQ(camera.Get(kClientCameraControl, 4, Block(40)).Data,
            Block(40).Put(24, 9).Put(28, 1).Put(32, 3));
  camera.Set(kClientCameraControl, 4, Block(40).Put(24, 9).Put(28, 3));
  EXPECT_EQ(camera.Get(kClientCameraControl, 4, Block(40)).Data,
            Block(40).Put(24, 9).Put(28, 2).Put(32, 3));
  camera.Set(kClientCameraControl, 4, Block(40).Put(24, 9).Put(28, 0x11));
  EXPECT_EQ(camera.Context().AutoExposure, 0U) << "automatic and relative is not automatic";
}

TEST(CameraProperties, CapabilitiesOfTheTriggerAreRepliedAs0) {
  PropertyCamera camera;
  const Reply reply = camera.Get(kClientVideoControl, 0, Block(32));
  EXPECT_EQ(reply.Status, kSuccess);
  EXPECT_EQ(reply.Data, Block(32).Put(28, 0));
}

TEST(CameraProperties, TriggerModeIsRepliedAs0EvenWithBothTriggersSet) {
  PropertyCamera camera;
  camera.Context().TriggerFlagA = 1;
  camera.Context().TriggerFlagB = 1;
  const Reply reply = camera.Get(kClientVideoControl, 3, Block(32));
  EXPECT_EQ(reply.Status, kSuccess);
  EXPECT_EQ(reply.Data, Block(32).Put(28, 0));
}

TEST(CameraProperties, ASetOfTheTriggerModeClearsTheTriggers) {
  PropertyCamera camera;
  camera.Context().TriggerFlagA = 1;
  EXPECT_EQ(camera.Set(kClientVideoControl, 3, Block(32).Put(28, 0xC)).Status, kSuccess);
  EXPECT_EQ(camera.Context().TriggerFlagA, 0U);
}

TEST(CameraProperties, ActualFrameRateComesFromTheAlternateSettingAndTheWidth) {
  PropertyCamera camera;
  camera.Context().MaxAlternateSetting = 7;
  camera.Context().CaptureWidth = 640;
  const Reply reply = camera.Get(kClientVideoControl, 1, Block(56));
  EXPECT_EQ(reply.Status, kSuccess);
  EXPECT_EQ(reply.Information, kUntouched);
  EXPECT_EQ(reply.Data, Block(56).Put(40, 333333).Put(44, 0).Put(48, 666666).Put(52, 0));
}

TEST(CameraProperties, PrivateIds10And12CannotBeAsked) {
  PropertyCamera camera;
  for (const ULONG id : {10U, 12U}) {
    const Reply reply = camera.Get(kClientPrivate, id, Block(52));
    EXPECT_EQ(reply.Status, kNotSupported);
    EXPECT_EQ(reply.Data, Block(52));
  }
}

TEST(CameraProperties, SetsOfPrivateIds10And17AreRefusedWithNothingChanged) {
  PropertyCamera camera;
  camera.Context().ClearOnReadValue = 6;
  const auto before = std::vector<std::uint8_t>(
      reinterpret_cast<std::uint8_t*>(&camera.Context()),
      reinterpret_cast<std::uint8_t*>(&camera.Context()) + sizeof(CameraContext));
  for (const ULONG id : {10U, 17U}) {
    EXPECT_EQ(camera.Set(kClientPrivate, id, Block(52)).Status, kNotSupported);
  }
  EXPECT_EQ(std::memcmp(before.data(), &camera.Context(), before.size()), 0);
  EXPECT_THAT(camera.Packets(), IsEmpty());
}

TEST(CameraProperties, PrivateId17Gives0TwiceAsNothingStoresThere) {
  PropertyCamera camera;
  for (int i = 0; i < 2; ++i) {
    const Reply reply = camera.Get(kClientPrivate, 17, Block(52));
    EXPECT_EQ(reply.Status, kSuccess);
    EXPECT_EQ(reply.Data, Block(52).Put(24, 0));
  }
}

TEST(CameraProperties, PrivateId17IsClearedByAsking) {
  PropertyCamera camera;
  camera.Context().ClearOnReadValue = 8;
  EXPECT_EQ(camera.Get(kClientPrivate, 17, Block(52)).Data.Word(24), 8U);
  EXPECT_EQ(camera.Get(kClientPrivate, 17, Block(52)).Data.Word(24), 0U);
}

TEST(CameraProperties, ARegisterIsReadByTheNumberAtOffset128) {
  PropertyCamera camera;
  camera.Bridge[0x0B] = 0xFE;
  camera.Bridge[0x0C] = 0x11;
  const Block block = Block(132).Put(32, 0xFF0C).Put(128, 0xFF0B);
  const Reply reply = camera.Get(kClientPrivate, 16, block);
  EXPECT_EQ(reply.Status, kSuccess);
  EXPECT_EQ(reply.Information, kUntouched);
  Block expected = block;
  EXPECT_EQ(reply.Data, expected.Put(24, 0xFE));
}

TEST(CameraProperties, AFailedRegisterReadIsNotSupportedAndWritesNothing) {
  PropertyCamera camera;
  camera.Failure = [](const std::string&) { return -9; };
  const Block block = Block(132).Put(128, 0xFF0B);
  const Reply reply = camera.Get(kClientPrivate, 16, block);
  EXPECT_EQ(reply.Status, kNotSupported);
  EXPECT_EQ(reply.Data, block);
}

TEST(CameraProperties, ARegisterIsWrittenByTheNumberAtOffset32) {
  PropertyCamera camera;
  EXPECT_EQ(camera.Set(kClientPrivate, 16, Block(52).Put(24, 0x42).Put(32, 0xFF0B)).Status,
            kSuccess);
  EXPECT_EQ(camera.Context().RawRegisterAddress, 0xFF0BU);
  EXPECT_EQ(camera.Context().RawRegisterValue, 0x42U);
  EXPECT_EQ(camera.Bridge[0x0B], 0x42);
}

TEST(CameraProperties, AFailedStepIsNotSupportedWhateverItsStatus) {
  PropertyCamera camera;
  camera.Failure = [](const std::string&) { return -9; };
  EXPECT_EQ(camera.Set(kClientPrivate, 16, Block(52).Put(24, 1).Put(32, 0xFF0B)).Status,
            kNotSupported);
}

TEST(CameraProperties, LightModeAndLedComeTogether) {
  PropertyCamera camera;
  camera.Context().LDMode = 1;
  camera.Context().LED = 4;
  const Reply reply = camera.Get(kClientPrivate, 18, Block(52));
  EXPECT_EQ(reply.Status, kSuccess);
  EXPECT_EQ(reply.Data, Block(52).Put(24, 1).Put(36, 4));
  EXPECT_EQ(camera.Set(kClientPrivate, 18, Block(52).Put(24, 1).Put(36, 3)).Status, kSuccess);
  EXPECT_EQ(camera.Context().LED, 3);
}

TEST(CameraProperties, PrivateId19ArmsAStillAndTellsOfStreaming) {
  PropertyCamera camera;
  EXPECT_EQ(camera.Set(kClientPrivate, 19, Block(52).Put(24, 2)).Status, kSuccess);
  EXPECT_EQ(camera.Context().StillRequested, 1U);
  EXPECT_EQ(camera.Context().StillRequestValue, 2U);
  EXPECT_EQ(camera.Get(kClientPrivate, 19, Block(52)).Data.Word(24), 0U);
  camera.Context().Streaming = 1;
  EXPECT_EQ(camera.Get(kClientPrivate, 19, Block(52)).Data.Word(24), 1U);
}

Block Intervals(std::uint32_t size, const std::vector<std::uint32_t>& intervals) {
  Block block(8 + 8 * intervals.size());
  block.Put(0, size).Put(4, static_cast<std::uint32_t>(intervals.size()));
  for (std::size_t i = 0; i < intervals.size(); ++i) {
    block.Put(8 + 8 * i, intervals[i]).Put(12 + 8 * i, 0);
  }
  return block;
}

const std::vector<std::uint32_t> kSmall = {1000000, 833333, 666666, 555555, 500000, 400000, 333333};
const std::vector<std::uint32_t> kLarge = {1666666, 1000000, 833333, 666666};

TEST(CameraProperties, FrameRatesBelow640AreSevenAndFrom640Four) {
  PropertyCamera camera;
  for (const LONG width : {-2147483647 - 1, -1, 0, 160, 639}) {
    const Reply reply = camera.Get(kClientVideoControl, 2, Block(64), width);
    EXPECT_EQ(reply.Status, kSuccess) << width;
    EXPECT_EQ(reply.Information, 64U) << width;
    EXPECT_EQ(reply.Data, Intervals(56, kSmall)) << width;
  }
  for (const LONG width : {640, 641, 800, 2147483647}) {
    const Reply reply = camera.Get(kClientVideoControl, 2, Block(40), width);
    EXPECT_EQ(reply.Status, kSuccess) << width;
    EXPECT_EQ(reply.Information, 40U) << width;
    EXPECT_EQ(reply.Data, Intervals(32, kLarge)) << width;
  }
}

TEST(CameraProperties, FrameRatesWith63BytesAreTooSmallAndWith64Whole) {
  PropertyCamera camera;
  const Reply tooSmall = camera.Get(kClientVideoControl, 2, Block(63), 639);
  EXPECT_EQ(tooSmall.Status, kTooSmall);
  EXPECT_EQ(tooSmall.Information, 64U);
  const Reply whole = camera.Get(kClientVideoControl, 2, Block(64), 639);
  EXPECT_EQ(whole.Status, kSuccess);
  EXPECT_EQ(whole.Data.Word(0), 56U);
  EXPECT_EQ(whole.Data.Word(4), 7U);
  EXPECT_EQ(whole.Data.Long(8), 1000000U);
  EXPECT_EQ(whole.Data.Long(56), 333333U);
}

TEST(CameraProperties, FrameRatesAskTheCameraNothing) {
  PropertyCamera camera;
  camera.Context().CaptureWidth = 640;
  EXPECT_EQ(camera.Get(kClientVideoControl, 2, Block(64), 320).Data, Intervals(56, kSmall));
  EXPECT_THAT(camera.Packets(), IsEmpty());
}

TEST(CameraProperties, RequestsForPanTiltZoomIrisAndFocusAreRefused) {
  PropertyCamera camera;
  for (const ULONG id : {0U, 1U, 2U, 3U, 5U, 6U, 7U}) {
    EXPECT_EQ(camera.Get(kClientCameraControl, id, Block(40)).Status, kNotSupported) << id;
    EXPECT_EQ(camera.Set(kClientCameraControl, id, Block(40)).Status, kNotSupported) << id;
  }
}

TEST(CameraProperties, AForeignSetReachesTheControlOfItsId) {
  PropertyCamera camera;
  EXPECT_EQ(camera.Get(kForeignSet, 38, Block(52)).Status, kSuccess);
  EXPECT_EQ(camera.Get(kForeignSet, 38, Block(52)).Data, Block(52));
  EXPECT_EQ(camera.Get(kForeignSet, 48, Block(52)).Status, kNotSupported);
  EXPECT_EQ(camera.Set(kForeignSet, 48, Block(52)).Status, kNotSupported);
}

}  // namespace
}  // namespace lidcam::test
