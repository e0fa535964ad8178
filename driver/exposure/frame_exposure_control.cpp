#include "driver/exposure/frame_exposure_control.h"

#include <cstdint>

#include "driver/core/base/camera_trace.h"
#include "driver/exposure/auto_exposure.h"
#include "driver/exposure/light_state.h"
#include "driver/frame/raw/raw_frame_parser.h"
#include "driver/sensor/registers/register_access.h"
#include "driver/sensor/registers/register_names.h"

namespace lidcam {

constinit Shared<std::uint32_t> AppliedExposureLines{0};
constinit Shared<std::uint8_t> LastWrittenExposure{0};
constinit Shared<std::uint32_t> AeLightMode{0};

namespace {

// A standing exposure is committed soon after its last change, and then repeatedly; a long one more
// often.
constexpr std::uint16_t kFirstCommit = 2;
constexpr std::uint16_t kNextCommit = 45;
constexpr std::uint16_t kNextCommitOfLongExposure = 25;
constexpr std::uint32_t kLongExposure = 8;
constexpr std::uint16_t kCountAtCommit = 3;

std::uint8_t LowByte(std::uint32_t value) {
  return static_cast<std::uint8_t>(value & 0xFF);
}

bool LoopRuns(const CameraContext& context) {
  return context.SensorType == SensorTypeVGA0708 && context.AutoExposure == 1 &&
         context.Flicker != FlickerOff;
}

void TraceStep(const CameraContext& context, std::uint32_t lines) {
  const std::int32_t index = AeIndex;
  const std::uint32_t exposure = AeOutput.Exposure;
  const std::uint32_t coarse = AeOutput.CoarseGain;
  const std::uint32_t fine = AeOutput.FineGain;
  TraceCamera(&context, "exposure index=%d exposure=%u coarse=%u fine=%u lines=%u", index, exposure,
              coarse, fine, lines);
}

void WriteOperatingPoint(CameraContext& context) {
  context.DriverRegisterBusy = 1;
  const std::uint32_t bandStep = context.FlickerBandStep;
  const std::uint32_t lines = bandStep * AeOutput.Exposure;
  AppliedExposureLines = lines;
  TraceStep(context, lines);
  DriverWriteSensorRegister(context, SensorRegister::Vga0708CoarseGain, AeOutput.CoarseGain);
  DriverWriteSensorRegister(context, SensorRegister::Vga0708FineGain, AeOutput.FineGain);
  DriverWriteSensorRegister(context, SensorRegister::VgaExposureLow, lines & 0xFF);
  DriverWriteSensorRegister(context, SensorRegister::VgaExposureHigh, (lines >> 8) & 0x0F);
  context.DriverRegisterBusy = 0;
  LastWrittenExposure = LowByte(AeOutput.Exposure);
}

bool IsCommitDue(std::uint16_t count, std::uint32_t exposure) {
  return count == kFirstCommit || count >= kNextCommit ||
         (count >= kNextCommitOfLongExposure && exposure >= kLongExposure);
}

void CommitStandingExposure(CameraContext& context) {
  const std::uint32_t current = AeOutput.Exposure;
  if (current != context.CommitExposure) {
    context.CommitExposure = current;
    context.CommitCount = 0;
    return;
  }
  if (IsCommitDue(context.CommitCount, current)) {
    // On the waiting path, unlike all other accesses here.
    WriteSensorRegister(context, SensorRegister::Commit, kCommitExposure);
    context.CommitCount = kCountAtCommit;
  }
  const std::uint16_t count = context.CommitCount;
  context.CommitCount = static_cast<std::uint16_t>(count + 1);
}

}  // namespace

void RunFrameExposureControl(CameraContext& context, const std::uint8_t* rawFrame) {
  const std::uint8_t level = rawFrame[kRawFrameLevelOffset];
  const std::uint8_t luma = rawFrame[kRawFrameLumaOffset];
  if (LoopRuns(context)) {
    if (AutoExposureStep(luma, AeOutput, AeLightMode)) WriteOperatingPoint(context);
    AeLightMode = UpdateLightState(context, LowByte(AeOutput.Exposure), luma);
  } else {
    UpdateLightState(context, level, luma);
  }
  if (context.SensorType == SensorTypeVGA0708) CommitStandingExposure(context);
}

}  // namespace lidcam
