#include "camera_model/optics/picture_processing.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>

namespace lidcam::camera_model {
namespace {

constexpr int kKnotLevels[] = {2, 4, 8, 12, 16, 24, 32, 40, 48, 64, 80, 96, 128, 160, 192};
constexpr double kScreenExponent = 0.45;
constexpr int kNeutralContrast = 0x80;
constexpr int kNeutralShadows = 0xA0;
constexpr int kNeutralHighlights = 0xD0;
constexpr int kNeutralSaturation = 0xA0;

// Bits of bridge register 0x42.
constexpr std::uint8_t kSolarise = 0x01;
constexpr std::uint8_t kNegative = 0x02;
constexpr std::uint8_t kSketch = 0x04;
constexpr std::uint8_t kRelief = 0x08;
constexpr std::uint8_t kTint = 0x20;
constexpr std::uint8_t kMonochrome = 0x40;

// Luma of black and white, before the controls.
constexpr double kBlackLuma = 16;
constexpr double kWhiteLuma = 235;

constexpr std::uint8_t ToPixel(int value) {
  return static_cast<std::uint8_t>(std::clamp(value, 1, 254));
}

// The light that a screen value represents, 0 to 1.
const std::array<double, 256>& LightOfScreenValue() {
  static const auto table = [] {
    std::array<double, 256> light{};
    for (std::size_t value = 0; value < light.size(); ++value) {
      light[value] = std::pow(static_cast<double>(value) / 255.0, 1 / kScreenExponent);
    }
    return light;
  }();
  return table;
}

// Linear interpolation between the knots, from 0 at no light to 256 at full light.
double GammaAt(const std::array<std::uint8_t, 15>& knots, double level) {
  double fromLevel = 0;
  double fromValue = 0;
  for (std::size_t knot = 0; knot <= knots.size(); ++knot) {
    const bool isLast = knot == knots.size();
    const double toLevel = isLast ? 256.0 : kKnotLevels[knot];
    const double toValue = isLast ? 256.0 : knots[knot];
    if (level <= toLevel) {
      return fromValue + (toValue - fromValue) * (level - fromLevel) / (toLevel - fromLevel);
    }
    fromLevel = toLevel;
    fromValue = toValue;
  }
  return 256.0;
}

// Exposures in steps of 1/256 of a doubling, a quarter of a per cent each: smaller than a step of
// the eight bits at any level.
constexpr int kStepsOfDoubling = 256;
constexpr int kNoLight = -32 * kStepsOfDoubling;
constexpr int kNotExposed = kNoLight - 1;

int StepOf(double exposure) {
  if (!(exposure > 0)) return kNoLight;
  const double steps = std::log2(exposure) * kStepsOfDoubling;
  return static_cast<int>(std::lround(std::clamp(steps, 1.0 * kNoLight, -1.0 * kNoLight)));
}

double ExposureOf(int step) {
  return step == kNoLight ? 0.0 : std::exp2(static_cast<double>(step) / kStepsOfDoubling);
}

/// The pixels of a row, in blocks, from the first to the last one that differs.
PixelRange ChangedPixels(const std::uint8_t* last, const std::uint8_t* now, std::size_t width) {
  constexpr std::size_t kBlock = 32;
  const auto differs = [&](std::size_t begin) {
    const std::size_t count = std::min(kBlock, width - begin);
    return std::memcmp(last + 3 * begin, now + 3 * begin, 3 * count) != 0;
  };
  PixelRange changed;
  for (std::size_t begin = 0; begin < width; begin += kBlock) {
    if (!differs(begin)) continue;
    if (changed.IsEmpty()) changed.Begin = begin;
    changed.End = std::min(begin + kBlock, width);
  }
  return changed;
}

int Scale(int value, int factor, int unit) {
  return static_cast<int>(std::lround(static_cast<double>(value) * factor / unit));
}

}  // namespace

PictureSettings ReadPictureSettings(const Bridge& bridge) {
  PictureSettings settings;
  constexpr std::size_t kBanks[] = {0x31, 0x81, 0x91};
  for (std::size_t channel = 0; channel < 3; ++channel) {
    for (std::size_t knot = 0; knot < 15; ++knot) {
      settings.GammaKnots[channel][knot] =
          bridge.Peek(static_cast<std::uint8_t>(kBanks[channel] + knot));
    }
  }
  settings.Brightness = static_cast<std::int8_t>(bridge.Peek(0x77));
  settings.Contrast = bridge.Peek(0x0F);
  settings.ShadowContrast = bridge.Peek(0x13);
  settings.HighlightContrast = bridge.Peek(0x14);
  settings.SaturationU = bridge.Peek(0x78);
  settings.SaturationV = bridge.Peek(0x79);
  settings.Sharpness = bridge.Peek(0x43);
  settings.Effects = bridge.Peek(0x42);
  settings.TintU = bridge.Peek(0x0B);
  settings.TintV = bridge.Peek(0x0C);

  const Sensor& sensor = bridge.AttachedSensor();
  const bool isVga0708 = sensor.Model() == SensorModel::VGA0708;
  if (isVga0708 || sensor.Model() == SensorModel::VGA0408) {
    // The lens turns the picture upside down: reading in both directions reversed makes it upright.
    settings.IsMirrored = (sensor.Peek(0x0C) & 0x20) == 0;
    settings.IsFlipped = (sensor.Peek(0x0C) & 0x40) == 0;
  }
  if (isVga0708) {
    // Reading in the reverse direction begins with another colour of the filter mosaic. Two bits of
    // the bridge say so: the direction in a row, and whether the two directions differ.
    const bool toldMirrored = (bridge.Peek(0x26) & 0x20) == 0;
    const bool toldFlipped = ((bridge.Peek(0x26) & 0x10) != 0) != toldMirrored;
    settings.RedAndBlueSwapped =
        toldMirrored != settings.IsMirrored || toldFlipped != settings.IsFlipped;
  }
  return settings;
}

void PictureProcessor::BuildTables() {
  curves_.clear();
  const std::uint8_t effects = settings_.Effects;
  for (int value = 0; value < 256; ++value) {
    const auto at = static_cast<std::size_t>(value);
    const int shape = value < 128 ? settings_.ShadowContrast - kNeutralShadows
                                  : settings_.HighlightContrast - kNeutralHighlights;
    int luma = Scale(value - 128, 256 + shape, 256);
    luma = 128 + Scale(luma, settings_.Contrast, kNeutralContrast) + settings_.Brightness / 2;
    luma = std::clamp(luma, 0, 255);
    if ((effects & kSolarise) != 0 && luma >= 128) luma = 255 - luma;
    if ((effects & kNegative) != 0) luma = 255 - luma;
    lumaCurve_[at] = ToPixel(luma);

    const bool isGrey = (effects & (kMonochrome | kSketch | kRelief)) != 0;
    const int sign = (effects & kNegative) != 0 ? -1 : 1;
    const int difference = isGrey ? 0 : sign * (value - 128);
    curveU_[at] = ToPixel(128 + Scale(difference, settings_.SaturationU, kNeutralSaturation));
    curveV_[at] = ToPixel(128 + Scale(difference, settings_.SaturationV, kNeutralSaturation));
  }
  if ((effects & kTint) != 0) {
    curveU_.fill(ToPixel(settings_.TintU));
    curveV_.fill(ToPixel(settings_.TintV));
  }
}

void PictureProcessor::BuildNoise() {
  // Standard deviation of a luma: the light's noise times the slope of the green curve there. A
  // saturated pixel has no noise.
  LumaNoise::Deviations deviations{};
  constexpr double kBlack = 16;
  constexpr double kLumaOfFullValue = 220.0 / 256;
  const auto& knots = settings_.GammaKnots[1];
  double fromLevel = 0;
  double fromValue = 0;
  for (std::size_t knot = 0; knot <= knots.size(); ++knot) {
    const bool isLast = knot == knots.size();
    const double toLevel = isLast ? 256.0 : kKnotLevels[knot];
    const double toValue = isLast ? 256.0 : knots[knot];
    const double steepness = (toValue - fromValue) / (toLevel - fromLevel);
    const double toLuma = kBlack + toValue * kLumaOfFullValue;
    for (double luma = std::ceil(kBlack + fromValue * kLumaOfFullValue); luma < toLuma; ++luma) {
      const double value = (luma - kBlack) / kLumaOfFullValue;
      const double level = fromLevel + (value - fromValue) / steepness;
      deviations[static_cast<std::size_t>(luma)] =
          std::sqrt(noise_.Variance(level / 256)) * 256 * steepness * kLumaOfFullValue;
    }
    fromLevel = toLevel;
    fromValue = toValue;
  }
  std::fill(deviations.begin() + 235, deviations.end(), 0.0);
  lumaNoise_ = LumaNoise{deviations};
}

const PictureProcessor::Curves& PictureProcessor::CurvesFor(double exposure) {
  const int step = StepOf(exposure);
  for (const Curves& known : curves_) {
    if (known.Exposure == step) return known;
  }
  if (curves_.size() > 512) curves_.clear();
  Curves curves;
  curves.Exposure = step;
  const double factor = ExposureOf(step);
  for (std::size_t channel = 0; channel < 3; ++channel) {
    for (std::size_t value = 0; value < 256; ++value) {
      const double light = std::min(LightOfScreenValue()[value] * factor + noise_.DarkLight, 1.0);
      const double out = GammaAt(settings_.GammaKnots[channel], light * 256);
      curves.Channels[channel][value] =
          static_cast<std::uint8_t>(std::clamp(std::lround(out), 0L, 255L));
    }
  }
  return curves_.emplace_back(curves);
}

void PictureProcessor::Process(const RgbImage& scene, const PictureSettings& settings,
                               std::span<const double> exposure, const PixelNoise& noise,
                               std::uint64_t seed) {
  const bool isSameView = hasPicture_ && settings == settings_ && noise == noise_ &&
                          scene.Width == lastScene_.Width && scene.Height == lastScene_.Height;
  if (!isSameView) {
    settings_ = settings;
    noise_ = noise;
    BuildTables();
    BuildNoise();
    lastExposure_.assign(scene.Height, kNotExposed);
    lastScene_.Resize(scene.Width, scene.Height);
    lumaPlane_.assign(std::size_t{scene.Width} * scene.Height, 0);
    lumaSums_.assign(scene.Height, 0);
    picture_.assign(std::size_t{scene.Width} * scene.Height * 2, 0);
    luma_.assign(scene.Width, 0);
    filtered_.assign(scene.Width, 0);
    hasPicture_ = true;
  }
  const bool isNoisy = !lumaNoise_.IsSilent();
  const bool mustFinishAll = isNoisy || pictureIsNoisy_;
  pictureIsNoisy_ = isNoisy;
  for (std::uint32_t y = 0; y < scene.Height; ++y) {
    const std::uint32_t from = settings_.IsFlipped ? scene.Height - 1 - y : y;
    const Curves& curves = CurvesFor(exposure[exposure.size() == 1 ? 0 : y]);
    const std::uint8_t* row = scene.Row(from);
    std::uint8_t* const lastRow = lastScene_.Row(from);
    const PixelRange changed = lastExposure_[y] != curves.Exposure
                                   ? PixelRange{0, scene.Width}
                                   : ChangedPixels(lastRow, row, scene.Width);
    if (!changed.IsEmpty()) {
      lastExposure_[y] = curves.Exposure;
      std::memcpy(lastRow + 3 * changed.Begin, row + 3 * changed.Begin,
                  3 * (changed.End - changed.Begin));
      ExposeRow(row, changed, curves, y);
    }
    if (!changed.IsEmpty() || mustFinishAll) FinishRow(y, seed + y);
  }
}

void PictureProcessor::ExposeRow(const std::uint8_t* scene, const PixelRange& changed,
                                 const Curves& curves, std::uint32_t y) {
  const std::size_t width = luma_.size();
  std::uint8_t* luma = lumaPlane_.data() + y * width;
  std::uint8_t* out = picture_.data() + 2 * y * width;
  const std::size_t red = settings_.RedAndBlueSwapped ? 2 : 0;
  const std::size_t blue = 2 - red;
  const Curve& redCurve = curves.Channels[0];
  const Curve& greenCurve = curves.Channels[1];
  const Curve& blueCurve = curves.Channels[2];
  const bool isMirrored = settings_.IsMirrored;
  // Two pixels have one chroma.
  const std::size_t begin = isMirrored ? width - changed.End : changed.Begin;
  const std::size_t end = isMirrored ? width - changed.Begin : changed.End;
  for (std::size_t x = begin / 2 * 2; x < end; x += 2) {
    int sumR = 0;
    int sumG = 0;
    int sumB = 0;
    for (std::size_t i = 0; i < 2; ++i) {
      const std::uint8_t* pixel = scene + 3 * (isMirrored ? width - 1 - x - i : x + i);
      const int r = redCurve[pixel[red]];
      const int g = greenCurve[pixel[1]];
      const int b = blueCurve[pixel[blue]];
      luma[x + i] = static_cast<std::uint8_t>((66 * r + 129 * g + 25 * b + 128) / 256 + 16);
      sumR += r;
      sumG += g;
      sumB += b;
    }
    const int u = (-38 * sumR - 74 * sumG + 112 * sumB) / 512 + 128;
    const int v = (112 * sumR - 94 * sumG - 18 * sumB) / 512 + 128;
    out[2 * x + 1] = curveU_[static_cast<std::size_t>(u)];
    out[2 * x + 3] = curveV_[static_cast<std::size_t>(v)];
  }
}

void PictureProcessor::FinishRow(std::uint32_t y, std::uint64_t seed) {
  const std::size_t width = luma_.size();
  std::memcpy(luma_.data(), lumaPlane_.data() + y * width, width);
  if (!lumaNoise_.IsSilent()) lumaNoise_.AddTo(luma_, seed);
  lumaSums_[y] = std::accumulate(luma_.begin(), luma_.end(), std::uint32_t{0});
  const LineFilter filter = Filter();
  if (filter.HasEffect()) {
    FilterLine(filter, luma_, filtered_);
  } else {
    filtered_.swap(luma_);
  }
  std::uint8_t* out = picture_.data() + 2 * y * width;
  for (std::size_t x = 0; x < width; ++x) out[2 * x] = lumaCurve_[filtered_[x]];
}

LineFilter PictureProcessor::Filter() const {
  if ((settings_.Effects & kSketch) != 0) return {.Kind = LineFilterKind::Sketch};
  if ((settings_.Effects & kRelief) != 0) return {.Kind = LineFilterKind::Relief};
  const bool isSharpening = (settings_.Sharpness & 0x40) != 0;
  return {.Amount = isSharpening ? settings_.Sharpness & 0x3F : 0};
}

std::uint8_t PictureProcessor::MeanLuminance() const {
  if (lumaPlane_.empty()) return 0;
  const auto sum = std::accumulate(lumaSums_.begin(), lumaSums_.end(), std::uint64_t{0});
  const double mean = static_cast<double>(sum) / static_cast<double>(lumaPlane_.size());
  const double luminance = (mean - kBlackLuma) * 255 / (kWhiteLuma - kBlackLuma);
  return static_cast<std::uint8_t>(std::clamp(luminance, 0.0, 255.0));
}

}  // namespace lidcam::camera_model
