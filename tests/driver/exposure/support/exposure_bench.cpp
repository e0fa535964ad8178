#include "tests/driver/exposure/support/exposure_bench.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>

#include "driver/core/base/camera_trace.h"
#include "driver/exposure/auto_exposure.h"
#include "driver/exposure/frame_exposure_control.h"
#include "driver/exposure/light_state.h"

namespace lidcam::test {
namespace {

ExposureBench* g_bench = nullptr;
std::vector<std::string> g_trace;

[[gnu::format(printf, 2, 0)]] void TakeLine(const CameraContext*, const char* format,
                                            std::va_list arguments) {
  std::array<char, 160> text{};
  std::vsnprintf(text.data(), text.size(), format, arguments);
  g_trace.emplace_back(text.data());
  if (g_bench != nullptr && g_bench->OnTrace) g_bench->OnTrace(g_trace.back());
}

}  // namespace

SharedExposure SharedExposure::Now() {
  return {AeHoldOff,         AeIndex,  AeOutput.Exposure,    AeOutput.CoarseGain,
          AeOutput.FineGain, AeRatio,  AppliedExposureLines, LastWrittenExposure,
          AeLightMode,       LightMode};
}

void LoadList(RegisterSetTable& table, std::initializer_list<RegisterSetEntry> writes) {
  table.Present = 1;
  table.Count = static_cast<std::uint32_t>(writes.size());
  std::copy(writes.begin(), writes.end(), table.Entries);
}

ExposureBench::ExposureBench() {
  ResetSharedExposure();
  g_trace.clear();
  g_bench = this;
  SetCameraTraceSink(TakeLine);
  CameraContext& context = Context();
  context.SensorType = SensorTypeVGA0708;
  context.AutoExposure = 1;
  context.Flicker = 1;
  context.FlickerBandStep = 174;
  context.LightState = LightStateInitial;
  context.FrameSettleCount = 1;
}

ExposureBench::~ExposureBench() {
  SetCameraTraceSink(nullptr);
  g_bench = nullptr;
}

void ExposureBench::Deliver(std::uint8_t luma, std::uint8_t level, int frames) {
  std::array<std::uint8_t, 24> header{};
  header.fill(0xEE);
  header[16] = level;
  header[23] = luma;
  for (int frame = 0; frame < frames; ++frame) RunFrameExposureControl(Context(), header.data());
}

void ExposureBench::Light(std::uint8_t exposure, std::uint8_t luma, int frames) {
  for (int frame = 0; frame < frames; ++frame) UpdateLightState(Context(), exposure, luma);
}

void ExposureBench::StandIn(LightState state) {
  constexpr std::uint32_t kModes[] = {0, 1, 0, 2};
  Context().LightState = state;
  LightMode = kModes[state];
  AeLightMode = kModes[state];
}

std::string ExposureBench::TraceText() {
  std::string text;
  for (const std::string& line : g_trace) text += line + "\n";
  return text;
}

const std::vector<std::string>& ExposureBench::Trace() {
  return g_trace;
}

}  // namespace lidcam::test
