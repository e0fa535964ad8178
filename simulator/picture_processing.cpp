#include "simulator/picture_processing.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace lidcam::simulator {
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

constexpr std::uint8_t ToPixel(int value) {
  return static_cast<std::uint8_t>(std::clamp(value, 1, 254));
}

// What a screen value stands for as light, 0 to 1.
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

// The straight lines through the knots, from 0 at no light to 256 at full light.
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
    // The lens stands the picture on its head: reading both ways round is what makes it upright.
    settings.IsMirrored = (sensor.Peek(0x0C) & 0x20) == 0;
    settings.IsFlipped = (sensor.Peek(0x0C) & 0x40) == 0;
  }
  if (isVga0708) {
    // Reading the other way round begins with another colour of the filter mosaic. The bridge is told
    // by two bits: the direction in a row, and whether the two directions differ.
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

const PictureProcessor::Curves& PictureProcessor::CurvesFor(double exposure) {
  const int steps = static_cast<int>(std::lround(std::clamp(exposure, 0.0, 64.0) * 256));
  for (const Curves& known : curves_) {
    if (known.Exposure == steps) return known;
  }
  if (curves_.size() > 512) curves_.clear();
  Curves curves;
  curves.Exposure = steps;
  for (std::size_t channel = 0; channel < 3; ++channel) {
    for (std::size_t value = 0; value < 256; ++value) {
      const double light = std::min(LightOfScreenValue()[value] * steps / 256, 1.0);
      const double out = GammaAt(settings_.GammaKnots[channel], light * 256);
      curves.Channels[channel][value] =
          static_cast<std::uint8_t>(std::clamp(std::lround(out), 0L, 255L));
    }
  }
  return curves_.emplace_back(curves);
}

void PictureProcessor::Process(const RgbImage& scene, const PictureSettings& settings,
                               std::span<const double> exposure) {
  const bool isSameView = hasPicture_ && settings == settings_ && scene.Width == lastScene_.Width &&
                          scene.Height == lastScene_.Height;
  if (!isSameView) {
    settings_ = settings;
    BuildTables();
    lastExposure_.assign(scene.Height, -1);
    lastScene_.Resize(scene.Width, scene.Height);
    picture_.assign(std::size_t{scene.Width} * scene.Height * 2, 0);
    luma_.assign(scene.Width, 0);
    filtered_.assign(scene.Width, 0);
    hasPicture_ = true;
  }
  const std::size_t sceneRowBytes = std::size_t{scene.Width} * 3;
  for (std::uint32_t y = 0; y < scene.Height; ++y) {
    const std::uint32_t from = settings_.IsFlipped ? scene.Height - 1 - y : y;
    const Curves& curves = CurvesFor(exposure[exposure.size() == 1 ? 0 : y]);
    const std::uint8_t* row = scene.Row(from);
    if (lastExposure_[y] == curves.Exposure &&
        std::memcmp(lastScene_.Row(from), row, sceneRowBytes) == 0) {
      continue;
    }
    lastExposure_[y] = curves.Exposure;
    std::memcpy(lastScene_.Row(from), row, sceneRowBytes);
    ProcessRow(row, curves, picture_.data() + std::size_t{y} * scene.Width * 2);
  }
}

void PictureProcessor::ProcessRow(const std::uint8_t* scene, const Curves& curves,
                                  std::uint8_t* out) {
  const std::size_t width = luma_.size();
  const std::size_t red = settings_.RedAndBlueSwapped ? 2 : 0;
  const std::size_t blue = 2 - red;
  const Curve& redCurve = curves.Channels[0];
  const Curve& greenCurve = curves.Channels[1];
  const Curve& blueCurve = curves.Channels[2];
  const bool isMirrored = settings_.IsMirrored;
  for (std::size_t x = 0; x < width; x += 2) {
    int sumR = 0;
    int sumG = 0;
    int sumB = 0;
    for (std::size_t i = 0; i < 2; ++i) {
      const std::uint8_t* pixel = scene + 3 * (isMirrored ? width - 1 - x - i : x + i);
      const int r = redCurve[pixel[red]];
      const int g = greenCurve[pixel[1]];
      const int b = blueCurve[pixel[blue]];
      luma_[x + i] = static_cast<std::uint8_t>((66 * r + 129 * g + 25 * b + 128) / 256 + 16);
      sumR += r;
      sumG += g;
      sumB += b;
    }
    const int u = (-38 * sumR - 74 * sumG + 112 * sumB) / 512 + 128;
    const int v = (112 * sumR - 94 * sumG - 18 * sumB) / 512 + 128;
    out[2 * x + 1] = curveU_[static_cast<std::size_t>(u)];
    out[2 * x + 3] = curveV_[static_cast<std::size_t>(v)];
  }
  FilterLuma();
  for (std::size_t x = 0; x < width; ++x) out[2 * x] = lumaCurve_[filtered_[x]];
}

void PictureProcessor::FilterLuma() {
  const std::size_t width = luma_.size();
  const bool isSketch = (settings_.Effects & kSketch) != 0;
  const bool isRelief = (settings_.Effects & kRelief) != 0;
  const bool isSharpening = (settings_.Sharpness & 0x40) != 0;
  const int amount = isSharpening ? settings_.Sharpness & 0x3F : 0;
  if (amount == 0 && !isSketch && !isRelief) {
    filtered_ = luma_;
    return;
  }
  for (std::size_t x = 0; x < width; ++x) {
    const int left = luma_[x == 0 ? 0 : x - 1];
    const int here = luma_[x];
    const int right = luma_[x + 1 == width ? x : x + 1];
    int value = here + (2 * here - left - right) * amount / 16;
    if (isRelief) value = 128 + (right - left) * 2;
    if (isSketch) value = 235 - std::abs(right - left) * 4;
    filtered_[x] = static_cast<std::uint8_t>(std::clamp(value, 0, 255));
  }
}

}  // namespace lidcam::simulator
