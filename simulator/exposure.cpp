#include "simulator/exposure.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace lidcam::simulator {
namespace {

using enum SensorModel;

constexpr double kHalfCycleSeconds = 0.01;
constexpr double kRightSeconds = 3 * kHalfCycleSeconds;
constexpr double kLongestSeconds = 20 * kHalfCycleSeconds;
constexpr double kStretchLimitSeconds = 0.25;
constexpr double kNominalFrameSeconds = 1.0 / 30;
constexpr double kHighestAutomaticGain = 1.5;
constexpr double kBacklightFactor = 1.4;

// The VGA pair clocks 860 pixels and a programmable rest for each line, at 15 MHz.
constexpr double kVgaPixelRate = 15e6;
constexpr unsigned kVgaLineClocks = 860;
constexpr double kVgaFineGainUnit = 128;
// Stages of the analogue amplifier behind the fine gain.
constexpr double kVgaCoarseGain[] = {1.0, 1.0, 1.16, 1.53};
constexpr double kVga0708PowerUpGain = 156 / kVgaFineGainUnit;

bool IsVgaPair(SensorModel model) {
  return model == VGA0408 || model == VGA0708;
}

unsigned VgaLineClocks(const Sensor& sensor) {
  return kVgaLineClocks + (sensor.Peek(0x13) & 0x0FU) * 256 + sensor.Peek(0x14);
}

double LineSeconds(const Bridge& bridge) {
  const Sensor& sensor = bridge.AttachedSensor();
  const double divisor = bridge.ClockDivisor();
  switch (sensor.Model()) {
    case VGA0408:
    case VGA0708:
      return VgaLineClocks(sensor) / kVgaPixelRate * divisor;
    case OV7660:
    case OV7663:
    case OV7670:
      return kHalfCycleSeconds / 187 * divisor;
    case VGA7648:
      return kHalfCycleSeconds / 166 * divisor;
    case Mi1318:
      return kHalfCycleSeconds / 159 * divisor;
    case K82:
    case Reserved3:
      return kHalfCycleSeconds / 174 * divisor;
  }
  return kHalfCycleSeconds / 174 * divisor;
}

unsigned ProgrammedLines(const Sensor& sensor) {
  switch (sensor.Model()) {
    case VGA0408:
    case VGA0708:
      return (sensor.Peek(0x03) & 0x0FU) << 8 | sensor.Peek(0x04);
    case OV7660:
    case OV7663:
    case OV7670:
      return static_cast<unsigned>(sensor.Peek(0x10) << 2) | (sensor.Peek(0x04) & 0x03U);
    case VGA7648:
      return static_cast<unsigned>(sensor.Peek(0x10) << 2) | (sensor.Peek(0x76) & 0x03U);
    case Mi1318:
      return sensor.Peek(0x09);
    case K82:
    case Reserved3:
      return 0;
  }
  return 0;
}

bool IsAutomatic(const Bridge& bridge) {
  const Sensor& sensor = bridge.AttachedSensor();
  switch (sensor.Model()) {
    case VGA0408:
    case VGA0708:
      return (bridge.Peek(0x0D) & 0x03) == 0x03;
    case OV7660:
    case OV7663:
    case OV7670:
    case VGA7648:
      return (sensor.Peek(0x13) & 0x01) != 0;
    case Mi1318:
      return (sensor.Peek(0x06, 1) & 0x4000) != 0;
    case K82:
    case Reserved3:
      return true;
  }
  return true;
}

bool IsBacklightCompensated(const Bridge& bridge) {
  const Sensor& sensor = bridge.AttachedSensor();
  switch (sensor.Model()) {
    case VGA0708:
      return (sensor.Peek(0x49) & 0x08) == 0;
    case K82:
    case Mi1318:
      return (sensor.Peek(0x06, 1) & 0x08) == 0;
    default:
      return (bridge.Peek(0x64) & 0x08) != 0;
  }
}

// Against the gain of the power-up registers, for which the picture is well exposed.
double ProgrammedGain(const Sensor& sensor) {
  if (sensor.Model() != VGA0708) return 1.0;
  const double fine = sensor.Peek(0x5D) / kVgaFineGainUnit;
  return fine * kVgaCoarseGain[sensor.Peek(0x60) & 0x03] / kVga0708PowerUpGain;
}

std::uint8_t LevelOf(double seconds) {
  return static_cast<std::uint8_t>(std::clamp(std::lround(seconds / kHalfCycleSeconds), 1L, 20L));
}

void ExposeByTheChip(const SceneLight& light, SensorExposure& exposure) {
  const double wanted = kRightSeconds / std::max(light.Level, 1e-6);
  exposure.Seconds = std::min(wanted, kLongestSeconds);
  exposure.Gain = std::clamp(wanted / exposure.Seconds, 1.0, kHighestAutomaticGain);
}

}  // namespace

SensorExposure ReadExposure(const Bridge& bridge, const SceneLight& light) {
  const Sensor& sensor = bridge.AttachedSensor();
  SensorExposure exposure;
  exposure.LineSeconds = LineSeconds(bridge);
  exposure.IsAutomatic = IsAutomatic(bridge);
  if (exposure.IsAutomatic) {
    ExposeByTheChip(light, exposure);
  } else {
    exposure.Seconds =
        std::min(ProgrammedLines(sensor) * exposure.LineSeconds, kStretchLimitSeconds);
    exposure.Gain = ProgrammedGain(sensor);
  }
  exposure.Relative = light.Level * exposure.Seconds / kRightSeconds * exposure.Gain;
  if (IsBacklightCompensated(bridge)) exposure.Relative *= kBacklightFactor;
  exposure.Level = LevelOf(exposure.Seconds);
  return exposure;
}

double FrameSeconds(const Bridge& bridge, const SensorExposure& exposure) {
  double seconds = kNominalFrameSeconds * bridge.ClockDivisor();
  const Sensor& sensor = bridge.AttachedSensor();
  if (IsVgaPair(sensor.Model())) {
    seconds = seconds * VgaLineClocks(sensor) / kVgaLineClocks;
  }
  return std::max(seconds, exposure.Seconds);
}

double MainsFactor(const SceneLight& light, const SensorExposure& exposure, double lineStart) {
  if (light.MainsRate == 0) return 1.0;
  // Lamps fall to half of their peak between the half cycles; the line collects the mean of that
  // wave over its time.
  constexpr double kDepth = 1.0 / 3;
  const double turns = 2 * std::numbers::pi * light.MainsRate;
  const double time = std::max(exposure.Seconds, 1e-6);
  const double area = std::sin(turns * (lineStart + time)) - std::sin(turns * lineStart);
  return 1.0 + kDepth * area / (turns * time);
}

}  // namespace lidcam::simulator
