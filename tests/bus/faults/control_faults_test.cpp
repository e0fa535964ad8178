#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/bus/faults/fake_bus.h"

namespace lidcam::bus::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(ControlFaults, EmptyScriptPassesEverythingOn) {
  DisturbedBus camera{""};
  EXPECT_EQ(camera.Ask(), (ControlResult{UsbStatus::Ok, 4}));
  EXPECT_THAT(camera.Answer, ElementsAre(0x10, 0x11, 0x12, 0x13, kUntouched, kUntouched));
  camera.bus.Abort(0x82);
  EXPECT_THAT(camera.Fake.Aborted, ElementsAre(0x82));
  camera.Fake.Microframe = 80;
  EXPECT_EQ(camera.bus.FrameNumber(), 10U);
  camera.bus.Unplug();
  EXPECT_TRUE(camera.Fake.IsUnplugged);
  EXPECT_EQ(camera.bus.Counts(), FaultCounts{});
  EXPECT_EQ(ToText(camera.bus.Counts()), "none");
  EXPECT_THAT(camera.Lines, IsEmpty());
}

struct StatusCase {
  const char* Word;
  FaultKind Kind;
  UsbStatus Status;
};

class ControlFaultStatus : public testing::TestWithParam<StatusCase> {};

// Requests count from 1; the second and third do not reach the device.
TEST_P(ControlFaultStatus, EndsTheSecondAndThirdRequestWithoutTheDevice) {
  DisturbedBus camera{"control 2 " + std::string(GetParam().Word) + " 2"};
  EXPECT_EQ(camera.Ask().Status, UsbStatus::Ok);
  EXPECT_EQ(camera.Ask(), (ControlResult{GetParam().Status, 0}));
  EXPECT_EQ(camera.Ask(), (ControlResult{GetParam().Status, 0}));
  EXPECT_THAT(camera.Answer, testing::Each(kUntouched));
  EXPECT_EQ(camera.Ask().Status, UsbStatus::Ok);
  EXPECT_EQ(camera.Fake.Requests, 2);
  EXPECT_EQ(camera.bus.Counts().Of(FaultPlace::Control, GetParam().Kind), 2U);
  EXPECT_EQ(camera.bus.Counts().Total(), 2U);
  const std::string word = GetParam().Word;
  EXPECT_THAT(camera.Lines,
              ElementsAre("bus  fault control 2 " + word, "bus  fault control 3 " + word));
}

INSTANTIATE_TEST_SUITE_P(All, ControlFaultStatus,
                         testing::Values(StatusCase{"stall", FaultKind::Stall, UsbStatus::Stalled},
                                         StatusCase{"fail", FaultKind::Fail, UsbStatus::Failed},
                                         StatusCase{"silent", FaultKind::Silent,
                                                    UsbStatus::Silent}));

TEST(ControlFaults, LateAnswerIsRightAndWaitsInTheGivenTime) {
  DisturbedBus camera{"control 1 late 4999ms"};
  EXPECT_EQ(camera.Ask(), (ControlResult{UsbStatus::Ok, 4}));
  EXPECT_EQ(camera.Answer[3], 0x13);
  EXPECT_THAT(camera.Sleeps, ElementsAre(4'999'000U));
  camera.Ask();
  EXPECT_EQ(camera.Sleeps.size(), 1U);
  EXPECT_THAT(camera.Lines, ElementsAre("bus  fault control 1 late 4999ms"));
}

TEST(ControlFaults, LateStallComesLate) {
  DisturbedBus camera{"control 1 late 1s; control 1 stall"};
  EXPECT_EQ(camera.Ask().Status, UsbStatus::Stalled);
  EXPECT_THAT(camera.Sleeps, ElementsAre(1'000'000U));
}

TEST(ControlFaults, ShortAnswerLeavesTheRestOfTheHostsBufferAlone) {
  DisturbedBus camera{"control 1 short 1"};
  EXPECT_EQ(camera.Ask(), (ControlResult{UsbStatus::Ok, 1}));
  EXPECT_THAT(camera.Answer,
              ElementsAre(0x10, kUntouched, kUntouched, kUntouched, kUntouched, kUntouched));
}

TEST(ControlFaults, AnswerThatIsShortAnywayDoesNotCount) {
  DisturbedBus camera{"control 1 short 4"};
  EXPECT_EQ(camera.Ask(), (ControlResult{UsbStatus::Ok, 4}));
  EXPECT_EQ(camera.bus.Counts().Total(), 0U);
  EXPECT_THAT(camera.Lines, IsEmpty());
}

TEST(ControlFaults, CorruptAnswerHasWrongBitsWithinItsLength) {
  DisturbedBus camera{"control 2 corrupt"};
  camera.Ask();
  const auto right = camera.Answer;
  EXPECT_EQ(camera.Ask(), (ControlResult{UsbStatus::Ok, 4}));
  int wrong = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    wrong += std::popcount<unsigned>(right[i] ^ camera.Answer[i]);
  }
  EXPECT_GE(wrong, 1);
  EXPECT_LE(wrong, 8);
  EXPECT_EQ(camera.Answer[4], kUntouched);
  EXPECT_EQ(camera.Answer[5], kUntouched);
}

TEST(ControlFaults, CorruptLeavesWhatTheHostWritesAlone) {
  DisturbedBus camera{"control 1 corrupt"};
  std::vector<std::uint8_t> data{1, 2, 3};
  EXPECT_EQ(camera.bus.ControlTransfer({0x40, 0xA0, 0, 0xFF00, 3}, data).Status, UsbStatus::Ok);
  EXPECT_THAT(camera.Fake.Written, ElementsAre(1, 2, 3));
  EXPECT_EQ(camera.bus.Counts().Total(), 0U);
}

TEST(ControlFaults, RefusalOfTheDeviceStays) {
  DisturbedBus camera{"control 1 corrupt; control 1 short 0"};
  camera.Fake.ControlStatus = UsbStatus::Stalled;
  EXPECT_EQ(camera.Ask(), (ControlResult{UsbStatus::Stalled, 0}));
  EXPECT_EQ(camera.bus.Counts().Total(), 0U);
}

TEST(ControlFaults, UnpluggedDeviceIsGoneForEverythingThatFollows) {
  DisturbedBus camera{"control 2 unplug; control 3 stall; setting 7 refuse; at 1s unplug"};
  EXPECT_EQ(camera.Ask().Status, UsbStatus::Ok);
  EXPECT_EQ(camera.Ask().Status, UsbStatus::Disconnected);
  EXPECT_TRUE(camera.Fake.IsUnplugged);
  EXPECT_EQ(camera.Ask().Status, UsbStatus::Disconnected);
  EXPECT_EQ(camera.bus.SelectSetting(0, 7), UsbStatus::Disconnected);
  EXPECT_EQ(camera.Read(8).Status, UsbStatus::Disconnected);
  EXPECT_EQ(ToText(camera.bus.Counts()), "control: 1 unplug");
  EXPECT_THAT(camera.Lines, ElementsAre("bus  fault control 2 unplug"));
}

TEST(ControlFaults, TimeOfUnpluggingCountsForRequestsToo) {
  DisturbedBus camera{"at 10ms unplug"};
  camera.Fake.Microframe = 79;
  EXPECT_EQ(camera.Ask().Status, UsbStatus::Ok);
  camera.Fake.Microframe = 80;
  EXPECT_EQ(camera.Ask().Status, UsbStatus::Disconnected);
  EXPECT_THAT(camera.Lines, ElementsAre("bus  fault at 10ms unplug"));
}

}  // namespace
}  // namespace lidcam::bus::test
