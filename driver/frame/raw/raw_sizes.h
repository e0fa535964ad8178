#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"

namespace lidcam {

/// A picture size that the camera itself sends.
struct RawPictureSize {
  std::uint32_t Mode;  ///< value of RawSizeMode
  std::int32_t Width;
  std::int32_t Height;
  std::uint32_t StillIndex;  ///< its index in the mark of a still
  bool IsDelivered;          ///< streams get frames of it; else no stream format has it
};

inline constexpr RawPictureSize kRawPictureSizes[] = {
    {RawMode640x480, 640, 480, 3, true},
    {RawMode320x240, 320, 240, 2, true},
    {RawMode160x120, 160, 120, 1, true},
    {RawMode1280x1024, 1280, 1024, 4, false},
};

/// The size of a raw mode; null for a mode that has none.
constexpr const RawPictureSize* FindRawPictureSize(std::uint32_t rawSizeMode) {
  for (const RawPictureSize& size : kRawPictureSizes) {
    if (size.Mode == rawSizeMode) return &size;
  }
  return nullptr;
}

}  // namespace lidcam
