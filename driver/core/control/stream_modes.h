#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"
#include "platform/kernel.h"

namespace lidcam {

/// What an alternate setting of the isochronous pipe carries.
struct BandwidthRow {
  std::uint32_t AlternateSetting;
  std::uint32_t PacketSize;  ///< bytes; informative
  Time100ns Interval;        ///< frame interval
};

/// Rows of a device with the long configuration descriptor; index is the alternate setting.
inline constexpr BandwidthRow kLongBandwidthTable[] = {
    {0, 0, 0},         {1, 128, 1666666}, {2, 512, 833333},  {3, 1024, 666666},
    {4, 2816, 555555}, {5, 3072, 500000}, {6, 4992, 400000}, {7, 5120, 333333},
};

/// Rows of a device without it.
inline constexpr BandwidthRow kShortBandwidthTable[] = {
    {0, 0, 0},
    {1, 128, 2000000},
    {2, 512, 666666},
    {3, 1023, 333333},
};

/// Bytes of a raw frame of a sensor in a raw mode, header included; 0 for a pair that has no size.
[[nodiscard]] std::uint32_t RawFrameBytes(std::int32_t sensorType, std::uint32_t rawSizeMode);

/// Stores the requested format, clamps the frame interval, and returns what the USB side needs.
///
/// @param bufferSize        bytes of one raw buffer
/// @param alternateSetting  the setting to try first: the widest
/// @return 0 always
Status NegotiateFormat(CameraContext& context, const FormatRequest& request,
                       std::uint32_t& bufferSize, std::uint8_t& alternateSetting);

/// Turns the alternate setting obtained into a raw size and the exact length of a raw frame, and
/// programs the camera for it. Called at every stream start after MarkStreaming().
///
/// @return what ProgramStreamMode() returns
_IRQL_requires_max_(PASSIVE_LEVEL)
Status SelectStreamMode(CameraContext& context, const FormatRequest& request);

}  // namespace lidcam
