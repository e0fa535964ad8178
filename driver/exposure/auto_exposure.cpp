#include "driver/exposure/auto_exposure.h"

#include <cstddef>
#include <cstdint>

#include "driver/exposure/exposure_table.h"
#include "driver/exposure/light_state.h"
#include "platform/kernel.h"

namespace lidcam {

constinit Shared<std::uint16_t> AeHoldOff{0};
constinit Shared<std::int32_t> AeIndex{30};
constinit AeOutputRecord AeOutput{};
constinit Shared<std::uint32_t> AeRatio{0};

namespace {

constexpr std::uint32_t kRatioOne = 1024;

// The sensor's statistic shows a new exposure only after some frames.
constexpr std::uint16_t kCallsBetweenSteps = 5;

enum class Ratio : std::uint8_t { Above, Below, Any };
enum class Store : std::uint8_t { Ratio, Bound };

struct Rung {
  Ratio Test;
  std::uint32_t Bound;
  Store InAeRatio;
  std::int32_t Step;
};

// The first matching rung counts. The first two limit AeRatio; no luminance byte gives a ratio
// below 128.
constexpr Rung kLadder[] = {
    {Ratio::Above, 9012, Store::Bound, +24}, {Ratio::Below, 128, Store::Bound, -24},
    {Ratio::Above, 3584, Store::Ratio, +24}, {Ratio::Above, 2560, Store::Ratio, +16},
    {Ratio::Above, 1792, Store::Ratio, +8},  {Ratio::Above, 1280, Store::Ratio, +4},
    {Ratio::Above, 1024, Store::Ratio, +1},  {Ratio::Above, 819, Store::Ratio, -1},
    {Ratio::Above, 716, Store::Ratio, -4},   {Ratio::Above, 655, Store::Ratio, -8},
    {Ratio::Above, 593, Store::Ratio, -16},  {Ratio::Any, 0, Store::Ratio, -24},
};

bool Holds(const Rung& rung, std::uint32_t ratio) {
  switch (rung.Test) {
    case Ratio::Above:
      return ratio > rung.Bound;
    case Ratio::Below:
      return ratio < rung.Bound;
    case Ratio::Any:
      break;
  }
  return true;
}

const Rung& RungOf(std::uint32_t ratio) {
  const Rung* rung = kLadder;
  while (!Holds(*rung, ratio)) ++rung;
  return *rung;
}

std::int32_t IndexLimit(std::uint32_t lightMode) {
  switch (lightMode) {
    case LightModeNormal:
      return 54;
    case LightModeDummy:
      return 76;
    default:
      return 80;
  }
}

bool IsNearTarget(std::uint32_t luma) {
  return luma >= kTargetLuma - kDeadBand && luma <= kTargetLuma + kDeadBand;
}

std::int32_t WantedStep(std::uint32_t luma) {
  const std::uint32_t ratio = kTargetLuma * kRatioOne / (luma == 0 ? 1 : luma);
  AeRatio = ratio;
  const Rung& rung = RungOf(ratio);
  if (rung.InAeRatio == Store::Bound) AeRatio = rung.Bound;
  return rung.Step;
}

// The index read at the start is used throughout, whatever another camera changes meanwhile: the
// row taken is in the table.
std::int32_t MoveIndex(std::int32_t index, std::int32_t step, std::int32_t limit) {
  const std::int32_t sum = index + step;
  AeIndex = sum;
  AeHoldOff = kCallsBetweenSteps;
  if (sum > limit) {
    AeIndex = limit;
    return limit;
  }
  if (sum < 0) {
    AeIndex = 0;
    return 0;
  }
  return sum;
}

void CopyRow(const AeTableEntry& row, AeOutputRecord& output) {
  output.Exposure = row.Exposure;
  output.FineGain = row.FineGain;
  output.CoarseGain = row.CoarseGain;
}

}  // namespace

bool AutoExposureStep(std::uint32_t luma, AeOutputRecord& output, std::uint32_t lightMode) {
  const std::uint16_t holdOff = AeHoldOff;
  if (holdOff > 0) {
    AeHoldOff = static_cast<std::uint16_t>(holdOff - 1);
    return false;
  }
  const std::int32_t limit = IndexLimit(lightMode);
  if (IsNearTarget(luma)) return false;

  const std::int32_t step = WantedStep(luma);
  const std::int32_t index = AeIndex;
  // Tests for equality only: an index above the limit may move, and then falls to the limit.
  if (index == (step > 0 ? limit : 0)) return false;
  const std::int32_t row = MoveIndex(index, step, limit);
  NT_ASSERT(row >= 0 && row < static_cast<std::int32_t>(kAeTableRows));
  CopyRow(AeTable[static_cast<std::size_t>(row)], output);
  return true;
}

}  // namespace lidcam
