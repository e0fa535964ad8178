#include "camera_model/optics/exposure.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace lidcam::camera_model {
namespace {

using enum SensorModel;

constexpr double kHalfCycleSeconds = 0.01;
constexpr double kRightSeconds = 3 * kHalfCycleSeconds;
constexpr double kLongestSeconds = 20 * kHalfCycleSeconds;
constexpr double kStretchLimitSeconds = 0.25;
constexpr double kNominalFrameSeconds = 1.0 / 30;
constexpr double kHighestAutomaticGain = 1.5;
constexpr double kBacklightFactor = 1.4;

// The VGA pair clocks 860 pixels and a programmable blanking for each line, at 15 MHz.
constexpr double kVgaPixelRate = 15e6;
constexpr unsigned kVgaLineClocks = 860;
constexpr double kVgaFineGainUnit = 128;
// Stages of the analogue amplifier behind the fine gain. Fine gain is used up to 142 of 128 on the first
// stage and 164 of 128 on the second before the next stage takes over at 128: each takeover is a step
// of 3 to 5 per cent then, as between two neighbouring fine gains.
constexpr double kVgaCoarseGain[] = {1.0, 1.0, 1.16, 1.53};
constexpr double kVga0708PowerUpGain = 156 / kVgaFineGainUnit;
// The counter of lines starts at the frame length register, in units of 16 lines, and ends at a
// fixed count: a smaller register value is a longer frame. Larger values would cut the picture's
// lines.
constexpr unsigned kShortestFrameRegister = 0x2F;
constexpr unsigned kLinesOfFrameStep = 16;

// A luma sample is made from the four pixels of a colour cell. Each holds 10000 electrons at white
// with power-up gain, has a read noise of 3 electrons, and a dark current of 20 per second.
constexpr double kPixelsOfSample = 4;
constexpr double kElectronsAtWhite = kPixelsOfSample * 10000;
constexpr double kReadNoiseElectrons = 3;
constexpr double kDarkElectronsPerSecond = kPixelsOfSample * 20;

// Lamps fall to half of their peak between the half cycles.
constexpr double kMainsDepth = 1.0 / 3;

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

unsigned ProgrammedLines(const ExposureRegisters& registers, const Sensor& sensor) {
  switch (sensor.Model()) {
    case VGA0708:
      return registers.Lines;
    case VGA0408:
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

// Relative to the gain of the power-up registers, at which the picture is well exposed.
double ProgrammedGain(const ExposureRegisters& registers, const Sensor& sensor) {
  if (sensor.Model() != VGA0708) return 1.0;
  const double fine = registers.FineGain / kVgaFineGainUnit;
  return fine * kVgaCoarseGain[registers.CoarseGain & 0x03] / kVga0708PowerUpGain;
}

std::uint8_t LevelOf(double seconds) {
  return static_cast<std::uint8_t>(std::clamp(std::lround(seconds / kHalfCycleSeconds), 1L, 20L));
}

void ExposeByTheChip(double strength, SensorExposure& exposure) {
  const double wanted = kRightSeconds / std::max(strength, 1e-6);
  exposure.Seconds = std::min(wanted, kLongestSeconds);
  exposure.Gain = std::clamp(wanted / exposure.Seconds, 1.0, kHighestAutomaticGain);
}

unsigned ExtraLines(const ExposureRegisters& registers, const Sensor& sensor) {
  if (sensor.Model() != VGA0708 || registers.FrameLength >= kShortestFrameRegister) return 0;
  return (kShortestFrameRegister - registers.FrameLength) * kLinesOfFrameStep;
}

/// Integral of light of strength 1.0 since time 0, with the modulation by the mains.
double GatheredUntil(const SceneLight& light, double seconds) {
  if (light.MainsRate == 0) return seconds;
  const double turns = 2 * std::numbers::pi * light.MainsRate;
  return seconds + kMainsDepth * std::sin(turns * seconds) / turns;
}

}  // namespace

SensorExposure ExposureWith(const ExposureRegisters& registers, const Bridge& bridge,
                            double strength) {
  const Sensor& sensor = bridge.AttachedSensor();
  SensorExposure exposure;
  exposure.LineSeconds = LineSeconds(bridge);
  exposure.ExtraLines = ExtraLines(registers, sensor);
  exposure.IsAutomatic = IsAutomatic(bridge);
  if (exposure.IsAutomatic) {
    ExposeByTheChip(strength, exposure);
  } else {
    exposure.Seconds =
        std::min(ProgrammedLines(registers, sensor) * exposure.LineSeconds, kStretchLimitSeconds);
    exposure.Gain = ProgrammedGain(registers, sensor);
  }
  exposure.Sensitivity = exposure.Seconds / kRightSeconds * exposure.Gain;
  if (IsBacklightCompensated(bridge)) exposure.Sensitivity *= kBacklightFactor;
  exposure.Relative = strength * exposure.Sensitivity;
  exposure.Level = LevelOf(exposure.Seconds);
  return exposure;
}

SensorExposure ReadExposure(const Bridge& bridge, const SceneLight& light) {
  return ExposureWith(bridge.AttachedSensor().Exposure().Committed(), bridge, light.At(0));
}

double FrameSeconds(const Bridge& bridge, const SensorExposure& exposure) {
  double seconds = kNominalFrameSeconds * bridge.ClockDivisor();
  const Sensor& sensor = bridge.AttachedSensor();
  if (IsVgaPair(sensor.Model())) seconds = seconds * VgaLineClocks(sensor) / kVgaLineClocks;
  seconds += exposure.ExtraLines * exposure.LineSeconds;
  return std::max(seconds, exposure.Seconds);
}

double MeanLight(const SceneLight& light, double from, double seconds) {
  const double time = std::max(seconds, 1e-9);
  const double to = from + time;
  double sum = 0;
  double begin = from;
  double strength = light.At(from);
  const auto gather = [&](double end) {
    sum += strength * (GatheredUntil(light, end) - GatheredUntil(light, begin));
    begin = end;
  };
  for (const LightStep& step : light.Schedule) {
    if (step.Seconds <= from || step.Seconds >= to) continue;
    gather(step.Seconds);
    strength = light.At(step.Seconds);
  }
  gather(to);
  return sum / time;
}

bool IsSteady(const SceneLight& light, double from, double to) {
  return light.MainsRate == 0 &&
         std::none_of(light.Schedule.begin(), light.Schedule.end(), [&](const LightStep& step) {
           return step.Seconds > from && step.Seconds < to;
         });
}

PixelNoise NoiseOf(const SensorExposure& exposure) {
  const double unit = exposure.Gain / kElectronsAtWhite;
  return {.LightOfElectron = unit,
          .ReadVariance = kPixelsOfSample * kReadNoiseElectrons * kReadNoiseElectrons * unit * unit,
          .DarkLight = kDarkElectronsPerSecond * exposure.Seconds * unit};
}

}  // namespace lidcam::camera_model
