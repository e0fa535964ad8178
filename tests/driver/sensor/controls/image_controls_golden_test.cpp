#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "driver/sensor/controls/image_controls.h"
#include "tests/driver/sensor/controls/image_controls_golden.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAreArray;

struct Axis {
  std::string Field;
  std::vector<std::int64_t> Values;
};

struct CasesOfAStep {
  std::uint32_t Step;
  std::vector<Axis> Axes;
};

const std::vector<std::int64_t> kFormatTags = {0x32595559, 0xE436EB7D, 0x30323449};

// Required content of a golden file: each control at its least, default and largest value and one
// beyond at either end, and every other input of the step.
const std::vector<CasesOfAStep>& RequiredCases() {
  static const std::vector<CasesOfAStep> kRequired = {
      {1, {{"Brightness", {-101, -100, 20, 100, 101}}}},
      {2, {{"Contrast", {0, 1, 10, 16, 17}}}},
      {3, {}},
      {4, {{"Saturation", {-1, 0, 28, 29, 120, 255, 256}}}},
      {5, {{"Sharpness", {-1, 0, 3, 8, 9}}}},
      {6, {{"Gamma", {0, 1, 2, 3, 11, 20, 21, 22}}}},
      {7, {}},
      {8, {{"BackLight", {-1, 0, 1, 2}}}},
      {9, {{"ColorEnable", {-1, 0, 1, 2}}}},
      {10,
       {{"AutoExposure", {0, 1}},
        {"RawSizeMode", {1, 2, 4, 6}},
        {"Flicker", {0, 1, 2}},
        {"ClockDivider", {1, 2, 4, 8}},
        {"FlickerBandStep", {0, 50}},
        {"Exposure", {0, 1, 3, 100, 101}}}},
      {11, {{"FormatTag", kFormatTags}, {"Vertical", {0, 1}}, {"Mirror", {-1, 0, 1, 2}}}},
      {12, {{"FormatTag", kFormatTags}, {"Mirror", {0, 1}}, {"Vertical", {-1, 0, 1, 2}}}},
      {13,
       {{"AutoExposure", {0, 1}}, {"Flicker", {-1, 0, 1, 2, 3}}, {"ClockDivider", {1, 2, 4, 8}}}},
      {14, {{"ColorEnable", {0, 1, 2}}, {"Effect", {-1, 0, 1, 2, 3, 4, 5, 6}}}},
      {15, {{"LDMode", {-1, 0, 1, 2}}, {"LED", {1, 2, 3, 4, 5}}}},
      {16,
       {{"RawRegisterAddress", {0xFF42, 0x1234ABCD}}, {"RawRegisterValue", {0x12, 0x5678FEDC}}}},
      {17, {}},
      {18, {}},
      {19, {{"LED", {1, 2, 3, 4, 5}}, {"LDMode", {0, 1, 2}}, {"LightState", {0, 1, 2, 3}}}},
  };
  return kRequired;
}

std::vector<std::string> RequiredKeys() {
  std::vector<std::string> keys;
  for (const CasesOfAStep& step : RequiredCases()) {
    std::vector<GoldenCase> cases = {{step.Step, {}, {}}};
    for (const Axis& axis : step.Axes) {
      std::vector<GoldenCase> longer;
      for (const GoldenCase& shorter : cases) {
        for (const std::int64_t value : axis.Values) {
          longer.push_back(shorter);
          longer.back().Values.emplace_back(axis.Field, value);
        }
      }
      cases = longer;
    }
    for (const GoldenCase& golden : cases) keys.push_back(golden.Key());
  }
  std::sort(keys.begin(), keys.end());
  return keys;
}

class ImageControlTrace : public ::testing::TestWithParam<NamedSensor> {};

TEST_P(ImageControlTrace, EveryStepAndValueIsInTheFileOnce) {
  const GoldenFile file(GetParam());
  std::vector<std::string> keys;
  for (const GoldenCase& golden : file.Cases()) keys.push_back(golden.Key());
  std::sort(keys.begin(), keys.end());
  EXPECT_EQ(keys, RequiredKeys());
}

TEST_P(ImageControlTrace, EveryStepWritesWhatTheFileSays) {
  const GoldenFile file(GetParam());
  for (const GoldenCase& golden : file.Cases()) {
    RegisterSpace camera;
    file.Prepare(camera, golden);
    EXPECT_EQ(ApplyImageControl(golden.Step, camera.Context()), 0) << golden.Key();
    EXPECT_THAT(camera.Accesses(), ElementsAreArray(golden.Traffic)) << golden.Key();
  }
}

// Steps 10 and 13 have sections of their own for these three, and no other step uses them.
TEST_P(ImageControlTrace, OnlyExposureAndFlickerDependOnExposureModeFlickerAndClockDivider) {
  const GoldenFile file(GetParam());
  for (const GoldenCase& golden : file.Cases()) {
    if (golden.Step == 10 || golden.Step == 13) continue;
    for (const std::uint32_t autoExposure : {0U, 1U}) {
      for (const std::int32_t flicker : {0, 1, 2}) {
        for (const std::int32_t clockDivider : {1, 2, 4, 8}) {
          RegisterSpace camera;
          file.Prepare(camera, golden);
          CameraContext& context = camera.Context();
          context.AutoExposure = autoExposure;
          context.Flicker = flicker;
          context.ClockDivider = clockDivider;
          EXPECT_EQ(ApplyImageControl(golden.Step, context), 0) << golden.Key();
          EXPECT_THAT(camera.Accesses(), ElementsAreArray(golden.Traffic))
              << golden.Key() << " AutoExposure=" << autoExposure << " Flicker=" << flicker
              << " ClockDivider=" << clockDivider;
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AllSensors, ImageControlTrace, ::testing::ValuesIn(kSensors),
                         [](const auto& sensor) { return std::string(sensor.param.Name); });

}  // namespace
}  // namespace lidcam::test
