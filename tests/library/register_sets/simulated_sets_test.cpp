// The simulated cameras' sets on the simulated cameras.

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>

#include "camera_model/chips/bridge.h"
#include "camera_model/device/camera_identity.h"
#include "camera_model/frames/raw_frame_geometry.h"
#include "camera_model/optics/exposure.h"
#include "camera_model/optics/picture_processing.h"
#include "driver/core/record/camera_context.h"
#include "driver/sensor/identification/sensor_identification.h"
#include "driver/sensor/modes/setup_registers.h"
#include "driver/sensor/register_sets/register_set_file.h"
#include "driver/sensor/register_sets/register_set_list.h"
#include "library/register_sets/set_files.h"
#include "platform/host/nt/files/files.h"
#include "tests/driver/support/system_root.h"

namespace lidcam::app {
namespace {

using camera_model::SensorModel;

Status Request(void* bridge, std::uint8_t requestType, std::uint32_t request, std::uint32_t index,
               std::uint32_t value, void* buffer, std::uint32_t length) {
  const bus::SetupPacket setup = {
      .RequestType = requestType,
      .Request = static_cast<std::uint8_t>(request),
      .Value = static_cast<std::uint16_t>(value),
      .Index = static_cast<std::uint16_t>(index),
      .Length = static_cast<std::uint16_t>(length),
  };
  const auto answer = static_cast<camera_model::Bridge*>(bridge)->VendorRequest(
      setup, {static_cast<std::uint8_t*>(buffer), length});
  return answer.has_value() ? 0 : -1;
}

Status WriteRequest(void* bridge, std::uint32_t request, std::uint32_t index, std::uint32_t value,
                    void* buffer, std::uint32_t* length) {
  return Request(bridge, 0x40, request, index, value, buffer, *length);
}

Status ReadRequest(void* bridge, std::uint32_t request, std::uint32_t index, std::uint32_t value,
                   void* buffer, std::uint32_t* length) {
  return Request(bridge, 0xC0, request, index, value, buffer, *length);
}

struct FittedCamera {
  SensorModel Model;
  std::uint16_t ProductId;
};

void PrintTo(const FittedCamera& camera, std::ostream* out) {
  *out << NameOf(camera.Model);
}

constexpr FittedCamera kCameras[] = {
    {SensorModel::K82, 0x6011},    {SensorModel::VGA0708, 0x0511}, {SensorModel::OV7660, 0x6010},
    {SensorModel::OV7663, 0x6010}, {SensorModel::Mi1318, 0x6011},  {SensorModel::VGA7648, 0x6010},
    {SensorModel::OV7670, 0x6010},
};

// A camera that was identified and programmed from the installed sets, with the picture settings of
// one never adjusted.
class ProgrammedCamera : public ::testing::TestWithParam<FittedCamera> {
 protected:
  ProgrammedCamera() {
    EXPECT_EQ(InstallSimulatedSets(host::SystemRoot()), std::nullopt);
    CameraContext& context = *context_;
    context.TransportContext = &bridge_;
    context.WriteRequest = WriteRequest;
    context.ReadRequest = ReadRequest;
    context.Brightness = 20;
    context.Contrast = 10;
    context.Saturation = 120;
    context.Sharpness = 3;
    context.Gamma = 11;
    context.ColorEnable = 1;
    context.Flicker = 1;
    context.Exposure = 1;
    context.AutoExposure = 1;
    context.RawSizeMode = 1;
    context.SensorType = SensorTypeVGA0408;
    std::array<std::uint8_t, 18> descriptor{};
    const std::uint16_t product = GetParam().ProductId;
    descriptor[8] = 0xF0;
    descriptor[9] = 0x1A;
    descriptor[10] = static_cast<std::uint8_t>(product & 0xFF);
    descriptor[11] = static_cast<std::uint8_t>(product >> 8);
    IdentifySensor(context, descriptor.data());
    LoadRegisterSets(context);
    ApplySetupRegisters(context);
  }

  CameraContext& Context() { return *context_; }
  [[nodiscard]] const camera_model::Bridge& Bridge() const { return bridge_; }

 private:
  test::TemporarySystemRoot disk_;
  camera_model::Sensor sensor_{GetParam().Model};
  camera_model::Bridge bridge_{sensor_};
  std::unique_ptr<CameraContext> context_ = std::make_unique<CameraContext>();
};

TEST_P(ProgrammedCamera, HasASetForItsSensor) {
  EXPECT_EQ(Context().SensorType, static_cast<std::int32_t>(GetParam().Model));
  EXPECT_EQ(Context().SetupRegisters.Present, 1U);
  EXPECT_EQ(Context().NormalRegisters.Present, 1U);
  EXPECT_EQ(Context().LowLightRegisters.Present, 1U);
}

TEST_P(ProgrammedCamera, RunsWith640By480And30Frames) {
  EXPECT_TRUE(Bridge().IsSensorRunning());
  EXPECT_FALSE(Bridge().IsLedOn());
  EXPECT_EQ(Bridge().ClockDivisor(), 1U);
  EXPECT_EQ(Context().ClockDivider, 1);
  EXPECT_EQ(SelectedRawSize(Bridge()), camera_model::RawSize::Full);
  const camera_model::SensorExposure exposure = ReadExposure(Bridge(), {});
  EXPECT_NEAR(FrameSeconds(Bridge(), exposure), 1.0 / 30, 0.0005);
}

TEST_P(ProgrammedCamera, IsUprightAndRightlyExposed) {
  const camera_model::PictureSettings picture = ReadPictureSettings(Bridge());
  EXPECT_FALSE(picture.IsMirrored);
  EXPECT_FALSE(picture.IsFlipped);
  EXPECT_FALSE(picture.RedAndBlueSwapped);
  EXPECT_NEAR(ReadExposure(Bridge(), {}).Relative, 1.0, 0.02);
}

TEST_P(ProgrammedCamera, TakesColourAndSharpnessBackInTheDarkAndGivesThemBackInTheLight) {
  const camera_model::PictureSettings before = ReadPictureSettings(Bridge());
  EXPECT_EQ(ApplyRegisterSet(Context(), RegisterList::LowLight, RegisterPath::Frame), 0);
  const camera_model::PictureSettings dark = ReadPictureSettings(Bridge());
  EXPECT_LT(dark.SaturationU, before.SaturationU);
  EXPECT_LT(dark.SaturationV, before.SaturationV);
  EXPECT_LT(dark.Sharpness, before.Sharpness);
  EXPECT_EQ(ApplyRegisterSet(Context(), RegisterList::Normal, RegisterPath::Frame), 0);
  EXPECT_EQ(ReadPictureSettings(Bridge()), before);
}

INSTANTIATE_TEST_SUITE_P(AllSensorsWithFiles, ProgrammedCamera, ::testing::ValuesIn(kCameras),
                         [](const auto& camera) {
                           return std::string(NameOf(camera.param.Model));
                         });

}  // namespace
}  // namespace lidcam::app
