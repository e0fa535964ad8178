#include "library/camera/source/recorded_size.h"

#include <cstdlib>
#include <string>

#include "bus/capture/replay/isochronous_packet_reader.h"
#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

// Header and closing bytes of a raw frame.
constexpr std::int64_t kRawFrameExtra = 66;

// Sensors deviate from their size's pixels by a few lines at most.
constexpr std::int64_t kSizeTolerancePercent = 15;

bool IsOfSize(std::uint64_t rawBytes, PictureSize size) {
  const std::int64_t expected = static_cast<std::int64_t>(size.Yuy2Bytes()) + kRawFrameExtra;
  return std::abs(static_cast<std::int64_t>(rawBytes) - expected) * 100 <=
         expected * kSizeTolerancePercent;
}

}  // namespace

std::uint64_t EstimateRawBytes(const bus::CaptureSource& source) {
  bus::IsochronousPacketReader packets(source);
  const auto estimate = bus::EstimateRawFrameSize(packets);
  if (!estimate) {
    throw CommandError("capture '" + source.Path() +
                       "' holds no two frame starts: there is no whole frame to replay");
  }
  return estimate->Bytes;
}

PictureSize EstimateRawSize(const bus::CaptureSource& source) {
  const std::uint64_t rawBytes = EstimateRawBytes(source);
  for (const PictureSize size : kRawSizes) {
    if (IsOfSize(rawBytes, size)) return size;
  }
  throw CommandError("capture '" + source.Path() + "' holds raw frames of " +
                     std::to_string(rawBytes) +
                     " bytes, which fits none of 640x480, 320x240 and 160x120");
}

StreamSize FitToCamera(const StreamSize& size, const CameraChoice& camera) {
  const std::optional<std::string> capture = CaptureFileOf(camera.Camera);
  if (!capture) return size;
  try {
    const PictureSize raw = EstimateRawSize(OpenCapture(*capture, camera.Device));
    if (size.Raw && *size.Raw != raw) {
      throw CommandError("raw size " + ToString(*size.Raw) + " is not in capture '" + *capture +
                         "': its frames are of " + ToString(raw));
    }
    return {.Delivered = size.Delivered, .Raw = raw, .StartsAsRaw = true};
  } catch (const bus::CaptureError& error) {
    throw CommandError(error.what());
  }
}

}  // namespace lidcam::app
