#include "bus/faults/fault_script.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace lidcam::bus {
namespace {

using testing::ElementsAre;

struct LineCase {
  std::string Text;
  BusFault Fault;
  std::string Canonical;
};

class FaultLine : public testing::TestWithParam<LineCase> {};

TEST_P(FaultLine, ReadsAndPrints) {
  const LineCase& line = GetParam();
  EXPECT_THAT(ParseFaultScript(line.Text).Faults, ElementsAre(line.Fault));
  EXPECT_EQ(ToText(line.Fault), line.Canonical);
  EXPECT_THAT(ParseFaultScript(line.Canonical).Faults, ElementsAre(line.Fault));
}

constexpr FaultPlace kControl = FaultPlace::Control;
constexpr FaultPlace kSetting = FaultPlace::Setting;
constexpr FaultPlace kTime = FaultPlace::Time;
constexpr FaultPlace kFrame = FaultPlace::Frame;

INSTANTIATE_TEST_SUITE_P(
    Grammar, FaultLine,
    testing::Values(
        LineCase{"control 1 stall", {kControl, FaultKind::Stall, 1, 0, 1}, "control 1 stall"},
        LineCase{"control 12 fail 3", {kControl, FaultKind::Fail, 12, 0, 3}, "control 12 fail 3"},
        LineCase{"control 2 silent 1", {kControl, FaultKind::Silent, 2, 0, 1}, "control 2 silent"},
        LineCase{"control 9 late 1.5s",
                 {kControl, FaultKind::Late, 9, 1'500'000, 1},
                 "control 9 late 1500ms"},
        LineCase{"control 9 late 6s 2",
                 {kControl, FaultKind::Late, 9, 6'000'000, 2},
                 "control 9 late 6s 2"},
        LineCase{"control 3 short 0", {kControl, FaultKind::Short, 3, 0, 1}, "control 3 short 0"},
        LineCase{
            "control 3 short 17 2", {kControl, FaultKind::Short, 3, 17, 2}, "control 3 short 17 2"},
        LineCase{"control 1000000000 corrupt",
                 {kControl, FaultKind::Corrupt, 1'000'000'000, 0, 1},
                 "control 1000000000 corrupt"},
        LineCase{"control 40 unplug", {kControl, FaultKind::Unplug, 40, 0, 1}, "control 40 unplug"},
        LineCase{"setting 7 refuse", {kSetting, FaultKind::Refuse, 7, 0, 0}, "setting 7 refuse"},
        LineCase{"setting 0 stall 1", {kSetting, FaultKind::Stall, 0, 0, 1}, "setting 0 stall 1"},
        LineCase{"setting 255 fail", {kSetting, FaultKind::Fail, 255, 0, 0}, "setting 255 fail"},
        LineCase{"setting 7 silent", {kSetting, FaultKind::Silent, 7, 0, 0}, "setting 7 silent"},
        LineCase{"setting 7 late 250ms",
                 {kSetting, FaultKind::Late, 7, 250'000, 0},
                 "setting 7 late 250ms"},
        LineCase{"setting 7 unplug", {kSetting, FaultKind::Unplug, 7, 0, 0}, "setting 7 unplug"},
        LineCase{"at 0s lose", {kTime, FaultKind::Lose, 0, 0, 1}, "at 0s lose"},
        LineCase{"at 2s short 3", {kTime, FaultKind::Short, 2'000'000, 0, 3}, "at 2s short 3"},
        LineCase{
            "at 2000ms oversize", {kTime, FaultKind::Oversize, 2'000'000, 0, 1}, "at 2s oversize"},
        LineCase{
            "at 0.000125s corrupt", {kTime, FaultKind::Corrupt, 125, 0, 1}, "at 125us corrupt"},
        LineCase{
            "at 1.125ms marker 4", {kTime, FaultKind::Marker, 1125, 0, 4}, "at 1125us marker 4"},
        LineCase{
            "at 7us false-start", {kTime, FaultKind::FalseStart, 7, 0, 1}, "at 7us false-start"},
        LineCase{"at 500000s error 1000000000",
                 {kTime, FaultKind::Error, 500'000'000'000, 0, 1'000'000'000},
                 "at 500000s error 1000000000"},
        LineCase{"at 3s fail", {kTime, FaultKind::Fail, 3'000'000, 0, 1}, "at 3s fail"},
        LineCase{"at 3s silent 2", {kTime, FaultKind::Silent, 3'000'000, 0, 2}, "at 3s silent 2"},
        LineCase{"at 3s silence 300ms",
                 {kTime, FaultKind::Silence, 3'000'000, 300'000, 1},
                 "at 3s silence 300ms"},
        LineCase{
            " \tat  3s\tunplug \r", {kTime, FaultKind::Unplug, 3'000'000, 0, 1}, "at 3s unplug"},
        LineCase{"frame 3 packet 5 lose 4",
                 {kFrame, FaultKind::Lose, FramePacket(3, 5), 0, 4},
                 "frame 3 packet 5 lose 4"},
        LineCase{"frame 1000000000 packet 1000000000 stall",
                 {kFrame, FaultKind::Stall, FramePacket(1'000'000'000, 1'000'000'000), 0, 1},
                 "frame 1000000000 packet 1000000000 stall"},
        LineCase{"frame 1 packet 1 pause 0.875ms",
                 {kFrame, FaultKind::Pause, FramePacket(1, 1), 875, 1},
                 "frame 1 packet 1 pause 875us"}));

TEST(FaultScriptText, LinesSemicolonsAndCommentsPartFaults) {
  const FaultScript script = ParseFaultScript(
      "# after two seconds; all goes wrong\n"
      "bits 77; at 2s lose 5 ;; control 1 stall # here too; at 3s fail\r\n"
      "\n"
      "setting 7 refuse");
  EXPECT_EQ(script.Bits, 77U);
  EXPECT_EQ(ToText(script), "bits 77\nat 2s lose 5\ncontrol 1 stall\nsetting 7 refuse\n");
  EXPECT_EQ(ParseFaultScript(ToText(script)), script);
}

TEST(FaultScriptText, EmptyTextIsAScriptWithoutFaults) {
  EXPECT_EQ(ParseFaultScript(""), FaultScript{});
  EXPECT_EQ(ParseFaultScript("\n \n;;#x"), FaultScript{});
  EXPECT_EQ(ToText(FaultScript{}), "");
}

struct ErrorCase {
  std::string Text;
  std::string What;
};

class FaultScriptMistake : public testing::TestWithParam<ErrorCase> {};

TEST_P(FaultScriptMistake, NamesLineWordReasonAndWhatIsRight) {
  try {
    (void)ParseFaultScript("\nat 1s lose\n" + GetParam().Text, "bad.txt");
    FAIL() << "was accepted";
  } catch (const FaultScriptError& error) {
    EXPECT_EQ(error.what(), "bad.txt:3: " + GetParam().What);
    EXPECT_EQ(error.Line(), 3U);
  }
}

const std::string kTimes = " with its unit and at most 500000s, such as 2s, 1.5ms or 125us";
const std::string kOfControl =
    "one of stall [COUNT], fail [COUNT], silent [COUNT], late TIME [COUNT], short BYTES [COUNT], "
    "corrupt [COUNT], unplug";
const std::string kOfSetting =
    "one of refuse [COUNT], stall [COUNT], fail [COUNT], silent [COUNT], late TIME [COUNT], unplug";
const std::string kOfTime =
    "one of lose [COUNT], short [COUNT], oversize [COUNT], corrupt [COUNT], marker [COUNT], "
    "false-start [COUNT], error [COUNT], fail [COUNT], silent [COUNT], silence TIME, unplug";
const std::string kOfFrame =
    "one of lose [COUNT], short [COUNT], oversize [COUNT], corrupt [COUNT], marker [COUNT], "
    "false-start [COUNT], error [COUNT], pause TIME, silence TIME, stall";
const std::string kTooMuch =
    " is too much: the line is complete before it; ';' or a new line begins another fault";

INSTANTIATE_TEST_SUITE_P(
    Grammar, FaultScriptMistake,
    testing::Values(
        ErrorCase{"lose 5",
                  "'lose' is no place; right would be control NUMBER, setting NUMBER, at TIME, "
                  "frame NUMBER packet NUMBER or bits NUMBER"},
        ErrorCase{"control 0 stall",
                  "'0' is not the number of a control request from 1 to 1000000000"},
        ErrorCase{"control stall",
                  "'stall' is not the number of a control request from 1 to 1000000000"},
        ErrorCase{"control",
                  "'control' is the last word; the number of a control request from 1 to "
                  "1000000000 should follow"},
        ErrorCase{
            "control 4 stal",
            "'stal' is nothing that happens to a control request; right would be " + kOfControl},
        ErrorCase{
            "control 4 lose",
            "'lose' is nothing that happens to a control request; right would be " + kOfControl},
        ErrorCase{"control 4", "'4' is the last word; " + kOfControl + " should follow"},
        ErrorCase{"control 4 late",
                  "'late' is the last word; a time above 0" + kTimes + " should follow"},
        ErrorCase{"control 4 late 0s", "'0s' is not a time above 0" + kTimes},
        ErrorCase{"control 4 late 5", "'5' is not a time above 0" + kTimes},
        ErrorCase{"control 4 short -1", "'-1' is not a number of bytes from 0 to 65535"},
        ErrorCase{"control 4 stall 0", "'0' is not a count from 1 to 1000000000"},
        ErrorCase{"control 4 stall 2 3", "'3'" + kTooMuch},
        ErrorCase{"setting 256 refuse",
                  "'256' is not the number of an alternate setting from 0 to 255"},
        ErrorCase{"setting 7 lose",
                  "'lose' is nothing that happens to a setting; right would be " + kOfSetting},
        ErrorCase{"at 2 lose", "'2' is not a time" + kTimes},
        ErrorCase{"at 2h lose", "'2h' is not a time" + kTimes},
        ErrorCase{"at 1e3s lose", "'1e3s' is not a time" + kTimes},
        ErrorCase{"at .5s lose", "'.5s' is not a time" + kTimes},
        ErrorCase{"at 1.s lose", "'1.s' is not a time" + kTimes},
        ErrorCase{"at 0.5us lose", "'0.5us' is not a time" + kTimes},
        ErrorCase{"at 1.1.1s lose", "'1.1.1s' is not a time" + kTimes},
        ErrorCase{"at 500000.000001s lose", "'500000.000001s' is not a time" + kTimes},
        ErrorCase{"at 99999999999999999999s lose",
                  "'99999999999999999999s' is not a time" + kTimes},
        ErrorCase{
            "at 2s stall",
            "'stall' is nothing that happens to isochronous reads; right would be " + kOfTime},
        ErrorCase{"at 2s unplug 2", "'2'" + kTooMuch},
        ErrorCase{"at 2s silence 1s 2", "'2'" + kTooMuch},
        ErrorCase{"bits",
                  "'bits' is the last word; a number from 0 to 18446744073709551615 should "
                  "follow"},
        ErrorCase{"bits x", "'x' is not a number from 0 to 18446744073709551615"},
        ErrorCase{"at 1s lose; \x01\xFF",
                  "'?"
                  "?' is no place; right would be control NUMBER, "
                  "setting NUMBER, at TIME, frame NUMBER packet NUMBER or bits NUMBER"},
        ErrorCase{"frame 0 packet 1 lose", "'0' is not the number of a frame from 1 to 1000000000"},
        ErrorCase{"frame 2 lose", "'lose' is not packet NUMBER"},
        ErrorCase{"frame 2", "'2' is the last word; packet NUMBER should follow"},
        ErrorCase{"frame 2 packet 0 lose",
                  "'0' is not the number of a packet from 1 to 1000000000"},
        ErrorCase{
            "frame 2 packet 1 unplug",
            "'unplug' is nothing that happens to a packet of a frame; right would be " + kOfFrame},
        ErrorCase{"frame 2 packet 1 stall 2", "'2'" + kTooMuch}));

TEST(FaultScriptText, LongWordIsNamedByItsBeginning) {
  try {
    (void)ParseFaultScript(std::string(5000, 'x'));
    FAIL() << "was accepted";
  } catch (const FaultScriptError& error) {
    EXPECT_THAT(error.what(),
                testing::StartsWith("faults:1: '" + std::string(40, 'x') + "...' is"));
  }
}

TEST(FaultScriptText, HoldsAHundredThousandFaultsAndNoMore) {
  std::string text;
  for (int count = 0; count < 100'000; ++count) text += "at 1s lose\n";
  EXPECT_EQ(ParseFaultScript(text).Faults.size(), 100'000U);
  EXPECT_THROW((void)ParseFaultScript(text + "at 1s lose"), FaultScriptError);
}

}  // namespace
}  // namespace lidcam::bus
