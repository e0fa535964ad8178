#include "driver/core/control/stream_modes.h"

#include <cstddef>

#include "driver/core/base/camera_trace.h"
#include "driver/sensor/modes/mode_programming.h"
#include "driver/sensor/modes/setup_registers.h"

namespace lidcam {
namespace {

constexpr Time100ns kShortestFrameInterval = 333333;
constexpr Time100ns kLongestFrameInterval = 10000000;

// Three bytes a pixel of the largest picture, and 66 bytes more.
constexpr std::uint32_t kVgaBufferSize = 640 * 480 * 3 + 66;
constexpr std::uint32_t kLargeBufferSize = 1280 * 1024 * 3 + 66;

struct FormatTagRow {
  std::uint32_t Compression;
  std::uint32_t Tag;
};

constexpr FormatTagRow kFormatTags[] = {
    {0, kFormatTagRgb24},
    {kFourccI420, kFourccI420},
    {kFourccYuy2, kFourccYuy2},
};

// A cell of a table that changes nothing.
constexpr std::uint32_t kKeeps = 0;

constexpr std::uint32_t kWidestSetting = 7;

// Raw size by alternate setting below the widest: a narrower pipe carries a smaller picture.
constexpr std::uint32_t kRawSizeOfSetting[kWidestSetting] = {
    /* 0 */ kKeeps,
    /* 1 */ kKeeps,
    /* 2 */ RawMode160x120,
    /* 3 */ RawMode160x120,
    /* 4 */ RawMode320x240,
    /* 5 */ RawMode320x240,
    /* 6 */ RawMode320x240,
};

constexpr std::size_t kRawSizeModes = RawMode1280x1024;

struct RawFrameSizeRow {
  SensorType Sensor;
  std::uint32_t Bytes[kRawSizeModes];  // of RawMode640x480 and up
};

// Exact lengths of the raw frames, header included. They follow no formula; the odd ones are
// intended.
constexpr RawFrameSizeRow kRawFrameSizes[] = {
    {SensorTypeVGA0408, {614466, 153666, 76866, 38466, 19266, kKeeps}},
    {SensorTypeVGA0708, {614466, 153666, 76866, 38466, 19266, kKeeps}},
    {SensorTypeOV7660, {614466, 153666, 75750, 38466, 19266, kKeeps}},
    {SensorTypeOV7663, {614466, 153666, 75750, 38466, 19266, kKeeps}},
    {SensorTypeOV7670, {614466, 153666, 75750, 38466, 19266, kKeeps}},
    {SensorTypeK82, {614458, 153666, 76226, 38462, 19106, kKeeps}},
    {SensorTypeMi1318, {655426, 163906, kKeeps, 41022, kKeeps, 2621506}},
    {SensorTypeVGA7648, {609346, 152386, kKeeps, 38146, kKeeps, kKeeps}},
};

Time100ns ClampFrameInterval(Time100ns interval) {
  if (interval < kShortestFrameInterval) return kShortestFrameInterval;
  return interval > kLongestFrameInterval ? kLongestFrameInterval : interval;
}

// There is no raw mode of 800 by 600: such a stream is captured at 640 by 480 and enlarged.
void StoreSize(CameraContext& context, const FormatRequest& request) {
  const bool isEnlarged = request.Width == 800;
  context.RequestedWidth = request.Width;
  context.CaptureWidth = isEnlarged ? 640 : request.Width;
  context.RequestedHeight = isEnlarged ? 600 : request.Height;
  context.CaptureHeight = isEnlarged ? 480 : request.Height;
}

void StoreFormatTag(CameraContext& context, std::uint32_t compression) {
  for (const FormatTagRow& row : kFormatTags) {
    if (row.Compression == compression) context.FormatTag = row.Tag;
  }
}

const BandwidthRow& WidestRow(bool isLong) {
  return isLong ? kLongBandwidthTable[7] : kShortBandwidthTable[3];
}

std::uint32_t RawSizeOfWidestSetting(const CameraContext& context) {
  const std::int32_t sensor = context.SensorType;
  const std::int32_t width = context.CaptureWidth;
  if (sensor == SensorTypeMi1318 && width > 800 && context.CaptureHeight > 600) {
    return RawMode1280x1024;
  }
  if (sensor == SensorTypeVGA0708 && width <= 320) return RawMode320x240;
  return RawMode640x480;
}

void SelectRawSize(CameraContext& context, std::uint32_t alternateSetting) {
  if (alternateSetting == kWidestSetting) {
    context.RawSizeMode = RawSizeOfWidestSetting(context);
    ApplySetupRegisters(context);
  } else if (alternateSetting < kWidestSetting && kRawSizeOfSetting[alternateSetting] != kKeeps) {
    context.RawSizeMode = kRawSizeOfSetting[alternateSetting];
  }
}

void StoreRawFrameSize(CameraContext& context) {
  const std::uint32_t bytes = RawFrameBytes(context.SensorType, context.RawSizeMode);
  if (bytes != kKeeps) context.RawFrameSize = bytes;
}

}  // namespace

std::uint32_t RawFrameBytes(std::int32_t sensorType, std::uint32_t rawSizeMode) {
  if (rawSizeMode == 0 || rawSizeMode > kRawSizeModes) return kKeeps;
  for (const RawFrameSizeRow& row : kRawFrameSizes) {
    if (row.Sensor == sensorType) return row.Bytes[rawSizeMode - 1];
  }
  return kKeeps;
}

Status NegotiateFormat(CameraContext& context, const FormatRequest& request,
                       std::uint32_t& bufferSize, std::uint8_t& alternateSetting) {
  StoreSize(context, request);
  context.RequestedBitCount = request.BitCount;
  context.RequestedCompression = request.Compression;
  context.RequestedImageSize = request.ImageSize;
  context.RequestedSpare = request.Spare;
  context.FrameInterval = ClampFrameInterval(request.AvgTimePerFrame);
  context.RequestedFrameInterval = context.FrameInterval;
  StoreFormatTag(context, request.Compression);
  bufferSize = context.SensorType == SensorTypeMi1318 ? kLargeBufferSize : kVgaBufferSize;

  const BandwidthRow& widest = WidestRow(context.LongConfigDescriptor != 0);
  context.MaxAlternateSetting = widest.AlternateSetting;
  context.MaxAlternateSettingCopy = widest.AlternateSetting;
  alternateSetting = static_cast<std::uint8_t>(widest.AlternateSetting & 0xFF);
  context.NegotiationMark = 0;
  return 0;
}

Status SelectStreamMode(CameraContext& context, const FormatRequest& request) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  context.Streaming = 1;
  context.StreamAlternateSetting = request.AlternateSetting;
  SelectRawSize(context, request.AlternateSetting);
  StoreRawFrameSize(context);
  TraceCamera(&context, "stream setting=%u size-mode=%u frame-bytes=%u", request.AlternateSetting,
              static_cast<std::uint32_t>(context.RawSizeMode),
              static_cast<std::uint32_t>(context.RawFrameSize));
  return ProgramStreamMode(context);
}

}  // namespace lidcam
