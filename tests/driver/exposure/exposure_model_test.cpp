// The driver against the model, over random streams of two cameras.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "driver/exposure/auto_exposure.h"
#include "driver/exposure/frame_exposure_control.h"
#include "driver/exposure/light_state.h"
#include "platform/host/nt/system/debug_print.h"
#include "tests/driver/exposure/support/exposure_bench.h"
#include "tests/driver/exposure/support/exposure_model.h"

namespace lidcam::test {
namespace {

constexpr int kFramesPerSeed = 125000;

// A camera of the driver whose bus records what the model records.
class RealCamera {
 public:
  RealCamera() {
    context_.TransportContext = this;
    context_.WriteRequest = OnWrite;
    context_.ReadRequest = OnRead;
  }
  RealCamera(const RealCamera&) = delete;
  RealCamera& operator=(const RealCamera&) = delete;

  CameraContext& Context() { return context_; }
  const std::vector<ModelRequest>& Requests() const { return requests_; }

  void Frame(std::uint8_t level, std::uint8_t luma, const ModelDisturbance& disturbance) {
    requests_.clear();
    disturbance_ = disturbance;
    std::array<std::uint8_t, 24> header{};
    header[16] = level;
    header[23] = luma;
    RunFrameExposureControl(context_, header.data());
  }

  // Controls and an application's access, as the model's camera has them.
  void TakeOver(const ModelCamera& model) {
    context_.SensorType = model.SensorType;
    context_.AutoExposure = model.AutoExposure;
    context_.Flicker = model.Flicker;
    context_.LDMode = model.LDMode;
    context_.LED = model.Led;
    context_.LongConfigDescriptor = model.LongConfig;
    context_.FlickerBandStep = model.BandStep;
    context_.UserSharpness = model.Sharpness;
    context_.UserSaturation = model.Saturation;
    context_.AppRegisterBusy = model.AppBusy;
    context_.FrameSettleCount = model.Settle;
  }

  [[nodiscard]] ModelCamera Snapshot() const {
    const CameraContext& from = context_;
    return {from.SensorType,
            from.AutoExposure,
            from.Flicker,
            from.LDMode,
            from.LED,
            from.LongConfigDescriptor,
            from.FlickerBandStep,
            from.UserSharpness,
            from.UserSaturation,
            from.AppRegisterBusy,
            from.DriverRegisterBusy,
            from.LightState,
            from.LightTransitionCount,
            from.LightBrightCount,
            from.LightLimitLow,
            from.LightLimitHigh,
            from.LightLimitCeiling,
            from.FrameSettleCount,
            from.CommitCount,
            from.CommitExposure};
  }

 private:
  static Status OnWrite(void* self, std::uint32_t, std::uint32_t index, std::uint32_t value, void*,
                        std::uint32_t*) {
    return static_cast<RealCamera*>(self)->Note(false, index, value);
  }
  static Status OnRead(void* self, std::uint32_t, std::uint32_t index, std::uint32_t value, void*,
                       std::uint32_t*) {
    return static_cast<RealCamera*>(self)->Note(true, index, value);
  }
  Status Note(bool isRead, std::uint32_t index, std::uint32_t value) {
    const auto number = static_cast<int>(requests_.size());
    const CameraContext& now = context_;
    requests_.push_back({isRead, index, value, now.AppRegisterBusy, now.DriverRegisterBusy,
                         now.LightState, now.LightTransitionCount, now.LightBrightCount,
                         now.FrameSettleCount, LightMode, AeLightMode, LastWrittenExposure,
                         now.CommitCount});
    if (number == disturbance_.ApplicationArrivesAt) context_.AppRegisterBusy = 1;
    return number == disturbance_.FailsAt ? -1 : 0;
  }

  CameraContext context_{};
  ModelDisturbance disturbance_;
  std::vector<ModelRequest> requests_;
};

ModelShared SharedNow() {
  return {AeHoldOff,         AeIndex,  AeOutput.Exposure,    AeOutput.CoarseGain,
          AeOutput.FineGain, AeRatio,  AppliedExposureLines, LastWrittenExposure,
          AeLightMode,       LightMode};
}

// The light of a scene and the level of a self-exposing sensor, which stand for a while with some
// noise, near the thresholds more often than not.
class Scene {
 public:
  void Advance(std::mt19937& random) {
    if (framesLeft_-- > 0) return;
    constexpr int kLumas[] = {0,  10, 21, 22, 30, 48,  49,  63,  64,
                              79, 80, 81, 88, 97, 110, 140, 200, 255};
    constexpr int kLevels[] = {0, 4, 5, 6, 7, 8, 9, 18, 19, 20, 21, 255};
    luma_ = kLumas[random() % std::size(kLumas)];
    level_ = kLevels[random() % std::size(kLevels)];
    noise_ = static_cast<int>(random() % 8 == 0 ? 60 : random() % 2);
    framesLeft_ = static_cast<int>(random() % 60);
  }
  [[nodiscard]] std::uint8_t Luma(std::mt19937& random) const {
    const int noise = static_cast<int>(random() % static_cast<unsigned>(2 * noise_ + 1)) - noise_;
    return static_cast<std::uint8_t>(std::clamp(luma_ + noise, 0, 255));
  }
  [[nodiscard]] std::uint8_t Level() const { return static_cast<std::uint8_t>(level_); }

 private:
  int luma_ = 88;
  int level_ = 0;
  int noise_ = 0;
  int framesLeft_ = 0;
};

bool OneIn(std::mt19937& random, unsigned count) {
  return random() % count == 0;
}

template <typename Value, std::size_t kCount>
Value OneOf(std::mt19937& random, const Value (&values)[kCount]) {
  return values[random() % kCount];
}

// What applications and the streaming layers do between two frames.
void ChangeControls(std::mt19937& random, ModelCamera& camera) {
  if (OneIn(random, 300)) camera.LDMode = OneOf(random, {0, 0, 0, 1, 2});
  if (OneIn(random, 300)) camera.AutoExposure = OneOf(random, {1U, 1U, 1U, 0U, 2U});
  if (OneIn(random, 300)) camera.Flicker = OneOf(random, {1, 2, 1, 2, 0});
  if (OneIn(random, 300)) camera.Led = OneOf(random, {4, 4, 2, 3, 0});
  if (OneIn(random, 500)) camera.SensorType = OneOf(random, {9, 9, 9, 9, 9, 9, 1, 7, 8, 3, 11});
  if (OneIn(random, 100) && camera.SensorType != 9) camera.SensorType = 9;
  if (OneIn(random, 100) && camera.LDMode == 1) camera.LDMode = 0;
  if (OneIn(random, 200)) camera.LongConfig = random() % 2;
  if (OneIn(random, 200)) camera.BandStep = static_cast<std::uint8_t>(random());
  if (OneIn(random, 200)) camera.Sharpness = OneOf<std::uint8_t>(random, {0, 0x45, 0x4F});
  if (OneIn(random, 200)) camera.Saturation = static_cast<std::uint8_t>(random());
  if (OneIn(random, 10)) camera.Settle = random() % 4;
  // An application's access spans a frame now and then, and sometimes many.
  if (camera.AppBusy != 0) {
    if (OneIn(random, 4)) camera.AppBusy = 0;
  } else if (OneIn(random, 40)) {
    camera.AppBusy = 1;
  }
}

ModelDisturbance Disturb(std::mt19937& random) {
  ModelDisturbance disturbance;
  if (OneIn(random, 20)) disturbance.ApplicationArrivesAt = static_cast<int>(random() % 24);
  if (OneIn(random, 20)) disturbance.FailsAt = static_cast<int>(random() % 24);
  return disturbance;
}

constexpr ModelWrite kNormalList[] = {
    {true, 0x09, 0x2F},  {false, 0x0F, 0x40}, {false, 0x43, 0x30}, {false, 0x78, 0x90},
    {false, 0x79, 0x91}, {false, 0x68, 0x32}, {true, 0x43, 0x01},  {true, 0x2F, 0x83},
};
constexpr ModelWrite kLowLightList[] = {
    {true, 0x09, 0x1F},  {false, 0x43, 0x31}, {false, 0x78, 0x92},
    {false, 0x79, 0x93}, {false, 0x68, 0x7D}, {true, 0x2F, 0x83},
};

template <std::size_t kCount>
void GiveList(const ModelWrite (&list)[kCount], RegisterSetTable& table,
              std::vector<ModelWrite>& model) {
  model.assign(std::begin(list), std::end(list));
  table.Present = 1;
  table.Count = static_cast<std::uint32_t>(kCount);
  for (std::size_t at = 0; at < kCount; ++at) {
    table.Entries[at] = {std::uint8_t{list[at].IsSensor ? std::uint8_t{0x33} : std::uint8_t{0x11}},
                         list[at].Register, list[at].Value};
  }
}

class ExposureAgainstModel : public testing::TestWithParam<unsigned> {};

TEST_P(ExposureAgainstModel, AgreesInEveryVariableRequestAndMessageAfterEveryFrame) {
  std::mt19937 random(GetParam());
  ResetSharedExposure();
  ExposureModel model;
  model.CreateCamera();
  std::array<RealCamera, 2> real;
  std::array<ModelCamera, 2> expected;
  std::array<Scene, 2> scenes;
  for (RealCamera& camera : real) {
    camera.TakeOver({});
    GiveList(kNormalList, camera.Context().NormalRegisters, model.NormalList);
    GiveList(kLowLightList, camera.Context().LowLightRegisters, model.LowLightList);
    camera.Context().LightState = LightStateInitial;
  }
  std::vector<std::string> messages;
  host::SetDebugPrintSink([&](const std::string& message) { messages.push_back(message); });

  std::size_t at = 0;
  for (int frame = 0; frame < kFramesPerSeed; ++frame) {
    // Long runs of the one camera, then frames of both mixed.
    const bool mixed = frame / 2000 % 2 == 1;
    if (mixed ? OneIn(random, 3) : OneIn(random, 1000)) at = 1 - at;
    ChangeControls(random, expected[at]);
    real[at].TakeOver(expected[at]);
    if (OneIn(random, 400)) {
      model.StartStream(expected[at]);
      ResetLightState(real[at].Context());
    }
    if (OneIn(random, 1500)) {
      model.CreateCamera();
      AeIndex = 30;
    }
    scenes[at].Advance(random);
    const std::uint8_t luma = scenes[at].Luma(random);
    const std::uint8_t level = scenes[at].Level();
    const ModelDisturbance disturbance = Disturb(random);
    messages.clear();
    model.Frame(expected[at], level, luma, disturbance);
    real[at].Frame(level, luma, disturbance);

    ASSERT_TRUE(real[at].Requests() == model.Requests()) << "requests of frame " << frame;
    ASSERT_TRUE(messages == model.Messages()) << "messages of frame " << frame;
    ASSERT_TRUE(SharedNow() == model.Shared) << "shared variables after frame " << frame;
    for (std::size_t camera = 0; camera < 2; ++camera) {
      ASSERT_TRUE(real[camera].Snapshot() == expected[camera])
          << "camera " << camera << " after frame " << frame;
    }
  }
  host::SetDebugPrintSink(nullptr);

  // The streams have made every transition.
  EXPECT_THAT(model.Made, testing::Each(testing::Ge(20)));
  EXPECT_THAT(model.GivenUp, testing::Each(testing::Ge(5)));
  EXPECT_GE(model.Steps, 1000);
  EXPECT_GE(model.Commits, 1000);
  EXPECT_GE(model.Refusals, 500);
}

INSTANTIATE_TEST_SUITE_P(Seeds, ExposureAgainstModel, testing::Range(1U, 9U),
                         [](const auto& seed) { return std::to_string(seed.param); });

}  // namespace
}  // namespace lidcam::test
