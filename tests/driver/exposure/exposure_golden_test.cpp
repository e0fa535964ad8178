// The trace of steps and light transitions, line by line, against the golden files.

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "driver/exposure/auto_exposure.h"
#include "driver/exposure/light_state.h"
#include "tests/driver/exposure/support/exposure_bench.h"

namespace lidcam::test {
namespace {

// Lines that begin with ';' are comments.
std::string Golden(const std::string& name) {
  const std::string path = LIDCAM_SOURCE_ROOT "/tests/driver/exposure/golden/" + name + ".txt";
  std::ifstream file(path);
  EXPECT_TRUE(file) << path;
  std::string text;
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with(';')) text += line + "\n";
  }
  return text;
}

// Both lists loaded, the user's sharpness and saturation set, the LED following the light.
class GoldenCamera : public ExposureBench {
 public:
  explicit GoldenCamera(LightState state = LightStateInitial) {
    CameraContext& context = Context();
    LoadList(context.NormalRegisters, {{0x33, 0x09, 0x2F},
                                       {0x11, 0x0F, 0x40},
                                       {0x11, 0x43, 0x30},
                                       {0x11, 0x78, 0x90},
                                       {0x33, 0x2F, 0x83}});
    LoadList(context.LowLightRegisters, {{0x33, 0x09, 0x1F},
                                         {0x11, 0x0F, 0x60},
                                         {0x11, 0x43, 0x30},
                                         {0x11, 0x78, 0x90},
                                         {0x33, 0x2F, 0x83}});
    context.UserSharpness = 0x45;
    context.UserSaturation = 0xC8;
    context.LED = 4;
    Bridge[0x09] = 0xA5;
    StandIn(state);
  }
};

struct TransitionRow {
  const char* Name;
  LightState From;
  std::uint8_t Exposure;
  std::uint8_t Luma;
  int Frames;
};

constexpr TransitionRow kTransitionRows[] = {
    {"initial_to_normal", LightStateInitial, 4, 88, 1},
    {"initial_to_low_light", LightStateInitial, 5, 88, 1},
    {"normal_to_dummy", LightStateNormal, 7, 41, 11},
    {"low_light_to_dummy", LightStateLowLight, 19, 64, 6},
    {"dummy_to_low_light", LightStateDummy, 19, 21, 11},
    {"dummy_to_normal", LightStateDummy, 8, 81, 6},
};

class TransitionTrace : public testing::TestWithParam<TransitionRow> {};

TEST_P(TransitionTrace, IsWhatTheFileSays) {
  const TransitionRow& row = GetParam();
  GoldenCamera camera(row.From);
  camera.Light(row.Exposure, row.Luma, row.Frames);
  EXPECT_EQ(camera.TraceText(), Golden(row.Name));
}

INSTANTIATE_TEST_SUITE_P(EveryTransition, TransitionTrace, testing::ValuesIn(kTransitionRows),
                         [](const auto& row) { return std::string(row.param.Name); });

TEST(ExposureTrace, SaysWhichTransitionIsGivenUp) {
  GoldenCamera camera;
  camera.Context().AppRegisterBusy = 1;
  camera.Light(4, 88);
  camera.Light(5, 88);
  camera.StandIn(LightStateNormal);
  camera.Light(7, 41, 12);
  camera.Context().LightTransitionCount = 0;
  camera.StandIn(LightStateLowLight);
  camera.Light(19, 64, 7);
  camera.Context().LightTransitionCount = 0;
  camera.StandIn(LightStateDummy);
  camera.Light(19, 21, 12);
  camera.Light(8, 81, 7);
  EXPECT_EQ(camera.TraceText(), Golden("given_up"));
}

TEST(ExposureTrace, OfDuskAndDawnHasEveryStepTransitionAndCommit) {
  GoldenCamera camera;
  camera.Deliver(88);
  camera.Deliver(10, 0, 23);
  camera.Deliver(200, 0, 16);
  EXPECT_EQ(camera.TraceText(), Golden("dusk_and_dawn"));
}

TEST(ExposureTrace, ShowsWritesThatWereRefused) {
  GoldenCamera camera(LightStateNormal);
  camera.Context().AppRegisterBusy = 1;
  camera.Deliver(79);
  EXPECT_EQ(camera.TraceText(), Golden("refused_step"));
}

}  // namespace
}  // namespace lidcam::test
