#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/bus/faults/fake_bus.h"

namespace lidcam::bus::test {
namespace {

using testing::ElementsAre;

struct SettingCase {
  const char* Word;
  FaultKind Kind;
  UsbStatus Status;
};

class SettingFaultStatus : public testing::TestWithParam<SettingCase> {};

TEST_P(SettingFaultStatus, MeetsItsSettingEveryTimeAndNoOther) {
  DisturbedBus camera{"setting 7 " + std::string(GetParam().Word)};
  for (int time = 0; time < 3; ++time) {
    EXPECT_EQ(camera.bus.SelectSetting(0, 7), GetParam().Status);
    EXPECT_EQ(camera.bus.SelectSetting(0, 6), UsbStatus::Ok);
  }
  EXPECT_THAT(camera.Fake.Settings, ElementsAre(6, 6, 6));
  EXPECT_EQ(camera.bus.Counts().Of(FaultPlace::Setting, GetParam().Kind), 3U);
  EXPECT_EQ(camera.Lines[2], "bus  fault setting 7 " + std::string(GetParam().Word));
}

INSTANTIATE_TEST_SUITE_P(
    All, SettingFaultStatus,
    testing::Values(SettingCase{"refuse", FaultKind::Refuse, UsbStatus::NoBandwidth},
                    SettingCase{"stall", FaultKind::Stall, UsbStatus::Stalled},
                    SettingCase{"fail", FaultKind::Fail, UsbStatus::Failed},
                    SettingCase{"silent", FaultKind::Silent, UsbStatus::Silent}));

TEST(SettingFaults, CountEndsTheRefusal) {
  DisturbedBus camera{"setting 7 refuse 2"};
  EXPECT_EQ(camera.bus.SelectSetting(0, 7), UsbStatus::NoBandwidth);
  EXPECT_EQ(camera.bus.SelectSetting(0, 7), UsbStatus::NoBandwidth);
  EXPECT_EQ(camera.bus.SelectSetting(0, 7), UsbStatus::Ok);
}

TEST(SettingFaults, LateSettingIsSelectedAndWaits) {
  DisturbedBus camera{"setting 3 late 250ms 1"};
  EXPECT_EQ(camera.bus.SelectSetting(0, 3), UsbStatus::Ok);
  EXPECT_EQ(camera.bus.SelectSetting(0, 3), UsbStatus::Ok);
  EXPECT_THAT(camera.Fake.Settings, ElementsAre(3, 3));
  EXPECT_THAT(camera.Sleeps, ElementsAre(250'000U));
}

TEST(SettingFaults, PlugIsPulledBySettingZero) {
  DisturbedBus camera{"setting 0 unplug"};
  EXPECT_EQ(camera.bus.SelectSetting(0, 7), UsbStatus::Ok);
  EXPECT_EQ(camera.bus.SelectSetting(0, 0), UsbStatus::Disconnected);
  EXPECT_EQ(camera.Ask().Status, UsbStatus::Disconnected);
}

TEST(SettingFaults, SelectionsAreNoControlRequests) {
  DisturbedBus camera{"control 1 stall"};
  EXPECT_EQ(camera.bus.SelectSetting(0, 1), UsbStatus::Ok);
  EXPECT_EQ(camera.Ask().Status, UsbStatus::Stalled);
}

}  // namespace
}  // namespace lidcam::bus::test
