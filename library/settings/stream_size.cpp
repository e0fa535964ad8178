#include "library/settings/stream_size.h"

#include <algorithm>
#include <span>
#include <string>

#include "driver/core/record/camera_context.h"
#include "driver/frame/raw/raw_sizes.h"
#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

constexpr std::uint8_t kWidestOfLongConfiguration = 7;
constexpr std::uint8_t kWidestOfShortConfiguration = 3;

// The setting below it carries no picture of its own size.
constexpr std::uint8_t kNarrowestSetting = 2;

// Up to this width the sensor that the host steers is read out at half size.
constexpr std::int32_t kHalvedUpToWidth = 320;

std::string ListOf(std::span<const PictureSize> sizes) {
  std::string list;
  for (const PictureSize& size : sizes) {
    if (!list.empty()) list += &size == &sizes.back() ? " or " : ", ";
    list += ToString(size);
  }
  return list;
}

bool IsHalvedAtWidestSetting(const StreamSize& size, const CameraKind& kind) {
  return kind.SensorType == SensorTypeVGA0708 && size.Delivered.Width <= kHalvedUpToWidth;
}

PictureSize RawSizeOfSetting(std::uint8_t setting, const StreamSize& size, const CameraKind& kind) {
  if (setting <= 3) return {160, 120};
  if (setting < kWidestOfLongConfiguration) return {320, 240};
  return IsHalvedAtWidestSetting(size, kind) ? PictureSize{320, 240} : PictureSize{640, 480};
}

std::string ReasonAgainst(const StreamSize& size, const CameraKind& kind) {
  if (!kind.HasLongConfiguration) {
    return "needs the long configuration; this camera sends 160x120 only";
  }
  return "is not sent for a stream of " + ToString(size.Delivered) +
         ": up to 320 pixels wide this sensor sends 320x240 or 160x120";
}

}  // namespace

PictureSize ParseStreamSize(const std::string& text) {
  const PictureSize size = ParsePictureSize(text);
  if (std::ranges::find(kStreamSizes, size) != std::end(kStreamSizes)) return size;
  throw UsageError("size '" + text + "' is not one that a stream has: use " + ListOf(kStreamSizes));
}

PictureSize ParseRawSize(const std::string& text) {
  const PictureSize size = ParsePictureSize(text);
  if (std::ranges::find(kRawSizes, size) != std::end(kRawSizes)) return size;
  throw UsageError("raw size '" + text + "' is not one that the camera sends: use " +
                   ListOf(kRawSizes));
}

std::uint32_t RawSizeModeOf(PictureSize rawSize) {
  for (const RawPictureSize& size : kRawPictureSizes) {
    if (rawSize == PictureSize{size.Width, size.Height}) return size.Mode;
  }
  return RawMode160x120;
}

std::optional<PictureSize> RawSizeOf(std::uint32_t rawSizeMode) {
  const RawPictureSize* const size = FindRawPictureSize(rawSizeMode);
  if (size == nullptr || !size->IsDelivered) return std::nullopt;
  return PictureSize{size->Width, size->Height};
}

std::vector<std::uint8_t> SettingsFor(const StreamSize& size, const CameraKind& kind) {
  std::vector<std::uint8_t> settings;
  for (std::uint8_t setting = kind.HasLongConfiguration ? kWidestOfLongConfiguration
                                                        : kWidestOfShortConfiguration;
       setting >= kNarrowestSetting; --setting) {
    if (!size.Raw || RawSizeOfSetting(setting, size, kind) == *size.Raw) {
      settings.push_back(setting);
    }
  }
  if (settings.empty()) {
    throw CommandError("raw size " + ToString(*size.Raw) + " " + ReasonAgainst(size, kind));
  }
  return settings;
}

}  // namespace lidcam::app
