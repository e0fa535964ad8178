#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "library/base/units.h"

namespace lidcam::app {

/// The sizes that the hardware sends itself, widest first.
inline constexpr PictureSize kRawSizes[] = {{640, 480}, {320, 240}, {160, 120}};

/// The sizes that a stream can have: the driver's formats, widest first.
inline constexpr PictureSize kStreamSizes[] = {
    {640, 480}, {352, 288}, {320, 240}, {176, 144}, {160, 120}};

/// The size that a stream delivers, and the raw size that the camera sends for it.
struct StreamSize {
  PictureSize Delivered;
  std::optional<PictureSize> Raw{};  ///< none: that of the widest setting that the bus accepts
  /// A recorded camera has only its recorded raw size: the stream starts with that
  /// size and delivers its own from the first frame on.
  bool StartsAsRaw = false;
};

/// Reads a stream's size. Throws UsageError, listing the sizes, for one that no stream has.
[[nodiscard]] PictureSize ParseStreamSize(const std::string& text);

/// Reads a raw size. Throws UsageError, listing the sizes, for one that the hardware doesn't send.
[[nodiscard]] PictureSize ParseRawSize(const std::string& text);

/// RawSizeMode in the camera's record for one of kRawSizes.
[[nodiscard]] std::uint32_t RawSizeModeOf(PictureSize rawSize);

/// The size that a RawSizeMode stands for; nothing for a mode that no stream here uses.
[[nodiscard]] std::optional<PictureSize> RawSizeOf(std::uint32_t rawSizeMode);

/// Determines the raw size of an alternate setting.
struct CameraKind {
  std::int32_t SensorType;
  bool HasLongConfiguration;
};

/// The alternate settings to try for a stream, widest first: all that give a raw size, or those
/// that give the one asked for. Throws CommandError with the reason if this camera has none.
[[nodiscard]] std::vector<std::uint8_t> SettingsFor(const StreamSize& size, const CameraKind& kind);

}  // namespace lidcam::app
