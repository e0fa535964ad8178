#include "library/frames/stream_format.h"

#include "driver/core/control/stream_modes.h"

namespace lidcam::app {
namespace {

// 30 frames a second, as the camera's formats say it.
constexpr Time100ns kFrameInterval = 333333;

}  // namespace

std::uint32_t DeliverAs(CameraContext& context, PictureSize size) {
  const FormatRequest request{
      .Width = size.Width,
      .Height = size.Height,
      .BitCount = 16,
      .Compression = kFourccYuy2,
      .ImageSize = static_cast<std::uint32_t>(size.Yuy2Bytes()),
      .Spare = 0,
      .AvgTimePerFrame = kFrameInterval,
      .AlternateSetting = 0,
  };
  std::uint32_t bufferSize = 0;
  std::uint8_t widestSetting = 0;
  NegotiateFormat(context, request, bufferSize, widestSetting);
  return bufferSize;
}

}  // namespace lidcam::app
