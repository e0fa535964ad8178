// Effect and result of a step when its n-th register operation fails: the rest goes on, and the
// result is that of the last operation or 0, depending on step and sensor.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <set>

#include "driver/sensor/controls/image_controls.h"
#include "tests/driver/sensor/controls/image_controls_golden.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

struct StepCase {
  std::string Name;
  std::uint32_t Step;
  std::string Key;                // in the golden file
  std::set<SensorType> Silent{};  // sensors on which the step answers 0
};

const std::set<SensorType> kEverySensor = {
    SensorTypeVGA0408, SensorTypeReserved3, SensorTypeVGA7648, SensorTypeK82,    SensorTypeOV7660,
    SensorTypeOV7663,  SensorTypeVGA0708,   SensorTypeMi1318,  SensorTypeOV7670,
};

std::set<SensorType> EverySensorBut(std::initializer_list<SensorType> types) {
  std::set<SensorType> others = kEverySensor;
  for (const SensorType type : types) others.erase(type);
  return others;
}

std::vector<StepCase> StepCases() {
  const std::string manual =
      "step 10 AutoExposure=0 RawSizeMode=1 Flicker=1 ClockDivider=1 FlickerBandStep=50 Exposure=3";
  const std::string automatic =
      "step 10 AutoExposure=1 RawSizeMode=1 Flicker=1 ClockDivider=1 FlickerBandStep=50 Exposure=3";
  return {
      {"Brightness", 1, "step 1 Brightness=20"},
      {"Contrast", 2, "step 2 Contrast=10", {SensorTypeMi1318}},
      {"Saturation", 4, "step 4 Saturation=120"},
      {"Sharpness", 5, "step 5 Sharpness=3"},
      {"Gamma", 6, "step 6 Gamma=11"},
      {"BackLight", 8, "step 8 BackLight=0", {SensorTypeK82, SensorTypeMi1318, SensorTypeVGA0708}},
      {"ColorEnable", 9, "step 9 ColorEnable=1"},
      {"ManualExposure", 10, manual, EverySensorBut({SensorTypeVGA0408, SensorTypeVGA0708})},
      {"AutomaticExposure", 10, automatic, EverySensorBut({SensorTypeVGA0408})},
      {"Effect", 14, "step 14 ColorEnable=1 Effect=3"},
      {"RawRegister", 16, "step 16 RawRegisterAddress=65346 RawRegisterValue=18"},
  };
}

struct ReadFailure {
  SensorType Type;
  std::string Step;
  std::string Read;
  std::string LineBefore;  // the write that depends on the read, and what it becomes
  std::string LineAfter;
};

// A read whose byte is the step's own counts as 0; the exposure of SensorTypeMi1318 keeps the bytes
// of the read before, 0x11 and 0x22.
const std::vector<ReadFailure>& ReadFailures() {
  static const std::vector<ReadFailure> kFailures = {
      {SensorTypeK82, "BackLight", "read sensor FF06", "write sensor FF06=C5",
       "write sensor FF06=00"},
      {SensorTypeK82, "BackLight", "read sensor FFF1", "write bridge FF7F=2F",
       "write bridge FF7F=0C"},
      {SensorTypeMi1318, "BackLight", "read sensor FF06", "write sensor FF06=C5",
       "write sensor FF06=00"},
      {SensorTypeMi1318, "BackLight", "read sensor FFF1", "write bridge FF7F=3F",
       "write bridge FF7F=1C"},
      {SensorTypeVGA0708, "BackLight", "read sensor FF49", "write sensor FF49=5C",
       "write sensor FF49=08"},
      {SensorTypeMi1318, "ManualExposure", "read sensor FF06", "write sensor FF06=85",
       "write sensor FF06=11"},
      {SensorTypeMi1318, "ManualExposure", "read sensor FFF1", "write bridge FF7F=2B",
       "write bridge FF7F=22"},
      {SensorTypeMi1318, "AutomaticExposure", "read sensor FF06", "write sensor FF06=C5",
       "write sensor FF06=51"},
      {SensorTypeMi1318, "AutomaticExposure", "read sensor FFF1", "write bridge FF7F=2B",
       "write bridge FF7F=22"},
  };
  return kFailures;
}

std::string WithoutValueRead(const std::string& access) {
  return access.substr(0, access.find(" -> "));
}

// The golden traffic with operation `failing` failed.
std::vector<std::string> TrafficWithFailure(SensorType type, const StepCase& step,
                                            std::vector<std::string> traffic, std::size_t failing) {
  const std::string access = WithoutValueRead(traffic[failing]);
  traffic[failing] = access + " failed";
  if (!access.starts_with("read")) return traffic;
  for (const ReadFailure& failure : ReadFailures()) {
    if (failure.Type != type || failure.Step != step.Name || failure.Read != access) continue;
    const auto line = std::find(traffic.begin(), traffic.end(), failure.LineBefore);
    if (line == traffic.end()) break;
    *line = failure.LineAfter;
    return traffic;
  }
  ADD_FAILURE() << "no expectation for " << step.Name << " with failing " << access;
  return traffic;
}

// Fails the n-th register operation with a status of its own.
std::function<Status(const std::string&)> FailOperation(std::size_t failing, Status status) {
  return [failing, status, count = std::size_t{0}](const std::string& access) mutable {
    if (access.starts_with("select")) return 0;
    return count++ == failing ? status : 0;
  };
}

class FailingOperation : public ::testing::TestWithParam<NamedSensor> {};

TEST_P(FailingOperation, LeavesTheRestOfTheTrafficAndGivesTheStepsStatus) {
  const SensorType type = GetParam().Type;
  const GoldenFile file(GetParam());
  for (const StepCase& step : StepCases()) {
    const GoldenCase& golden = file.Case(step.Key);
    for (std::size_t failing = 0; failing < golden.Traffic.size(); ++failing) {
      const auto status = static_cast<Status>(100 + failing);
      const bool isLast = failing + 1 == golden.Traffic.size();
      RegisterSpace camera;
      file.Prepare(camera, golden);
      camera.Failure = FailOperation(failing, status);
      EXPECT_EQ(ApplyImageControl(step.Step, camera.Context()),
                isLast && !step.Silent.contains(type) ? status : 0)
          << step.Name << " operation " << failing;
      EXPECT_THAT(camera.Accesses(),
                  ElementsAreArray(TrafficWithFailure(type, step, golden.Traffic, failing)))
          << step.Name;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AllSensors, FailingOperation, ::testing::ValuesIn(kSensors),
                         [](const auto& sensor) { return std::string(sensor.param.Name); });

struct LedFailure {
  std::uint32_t Step;
  std::string Key;
  std::size_t Failing;
  Status Answer;
  std::vector<std::string> Traffic;
};

// Of the bits in bridge register 0xFF09 a failed read ends the one operation, not the step.
TEST(FailingLedOperation, EndsTheReadWritePairAtAFailedReadOnly) {
  const std::string leave = "step 15 LDMode=0 LED=4";
  const std::string follow = "step 19 LED=4 LDMode=0 LightState=0";
  const std::vector<LedFailure> failures = {
      {15,
       leave,
       0,
       0,
       {"write sensor FF20=01 failed", "write bridge FF50=02", "read bridge FF09 -> D6",
        "write bridge FF09=C6", "read bridge FF09 -> C6", "write bridge FF09=C6"}},
      {15,
       leave,
       1,
       0,
       {"write sensor FF20=01", "write bridge FF50=02 failed", "read bridge FF09 -> D6",
        "write bridge FF09=C6", "read bridge FF09 -> C6", "write bridge FF09=C6"}},
      {15,
       leave,
       2,
       0,
       {"write sensor FF20=01", "write bridge FF50=02", "read bridge FF09 failed",
        "read bridge FF09 -> D6", "write bridge FF09=C6"}},
      {15,
       leave,
       3,
       0,
       {"write sensor FF20=01", "write bridge FF50=02", "read bridge FF09 -> D6",
        "write bridge FF09=C6 failed", "read bridge FF09 -> D6", "write bridge FF09=C6"}},
      {15,
       leave,
       4,
       104,
       {"write sensor FF20=01", "write bridge FF50=02", "read bridge FF09 -> D6",
        "write bridge FF09=C6", "read bridge FF09 failed"}},
      {15,
       leave,
       5,
       105,
       {"write sensor FF20=01", "write bridge FF50=02", "read bridge FF09 -> D6",
        "write bridge FF09=C6", "read bridge FF09 -> C6", "write bridge FF09=C6 failed"}},
      {19, follow, 0, 0, {"read bridge FF09 failed"}},
      {19, follow, 1, 0, {"read bridge FF09 -> D6", "write bridge FF09=C6 failed"}},
  };
  const GoldenFile file({SensorTypeOV7660, "SensorTypeOV7660"});
  for (const LedFailure& failure : failures) {
    RegisterSpace camera;
    file.Prepare(camera, file.Case(failure.Key));
    camera.Failure = FailOperation(failure.Failing, static_cast<Status>(100 + failure.Failing));
    EXPECT_EQ(ApplyImageControl(failure.Step, camera.Context()), failure.Answer);
    EXPECT_THAT(camera.Accesses(), ElementsAreArray(failure.Traffic)) << failure.Failing;
  }
}

}  // namespace
}  // namespace lidcam::test
