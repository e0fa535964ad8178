#include "driver/frame/delivery/frame_delivery.h"

#include <cstdint>
#include <cstring>
#include <limits>

#include "driver/core/base/camera_trace.h"
#include "driver/exposure/frame_exposure_control.h"
#include "driver/frame/raw/raw_frame_parser.h"
#include "driver/frame/raw/raw_sizes.h"
#include "driver/frame/resampler/image_resampler.h"
#include "driver/frame/still/still_capture.h"

namespace lidcam {
namespace {

/// Calls that a stream start skips before its first frame.
constexpr std::int64_t kFirstCounter = 2;

constexpr std::uint32_t kYuy2BytesPerPixel = 2;

const RawPictureSize* FindNativeSize(std::uint32_t rawSizeMode) {
  const RawPictureSize* const size = FindRawPictureSize(rawSizeMode);
  return size != nullptr && size->IsDelivered ? size : nullptr;
}

// Times come from the application's format and clock; sums and differences wrap rather than
// overflow.
Time100ns TimeAfter(Time100ns time, Time100ns interval) {
  return static_cast<Time100ns>(static_cast<std::uint64_t>(time) +
                                static_cast<std::uint64_t>(interval));
}

std::int64_t Difference(std::int64_t left, std::int64_t right) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(left) -
                                   static_cast<std::uint64_t>(right));
}

std::int64_t CountDropped(std::int64_t counter, Time100ns time, Time100ns interval) {
  if (interval == 0 || time < interval) return 0;
  const std::int64_t due = time / interval;
  const std::int64_t dropped = due > counter ? Difference(due, counter) : 0;
  return dropped < 0 ? 0 : dropped;
}

struct RequestedSize {
  std::int32_t Width;
  std::int32_t Height;
};

std::uint32_t Yuy2Bytes(const RequestedSize& size) {
  return static_cast<std::uint32_t>(size.Width) * static_cast<std::uint32_t>(size.Height) *
         kYuy2BytesPerPixel;
}

// The resampler takes positive sizes only.
bool HasRoomFor(const DeliveryBuffer& buffer, const RequestedSize& size) {
  if (size.Width <= 0 || size.Height <= 0) return true;
  const auto pixels =
      static_cast<std::uint64_t>(size.Width) * static_cast<std::uint64_t>(size.Height);
  return pixels <= buffer.Room / kYuy2BytesPerPixel;
}

bool IsNative(const RequestedSize& size, const RawPictureSize& native) {
  return size.Width == native.Width && size.Height == native.Height;
}

void DeliverPixels(std::uint8_t* destination, const std::uint8_t* pixels, const RequestedSize& size,
                   const RawPictureSize& native) {
  if (IsNative(size, native)) {
    std::memcpy(destination, pixels, Yuy2Bytes(size));
  } else {
    ResampleFrame(destination, pixels, native.Width, native.Height, size.Width, size.Height, 1);
  }
}

}  // namespace

FrameStamp StampFrame(std::int64_t counter, Time100ns clockTime, Time100ns lastTime,
                      Time100ns interval) {
  const bool isLater = counter == kFirstCounter || clockTime > lastTime;
  const Time100ns time = isLater ? clockTime : TimeAfter(lastTime, interval);
  const std::int64_t dropped = CountDropped(counter, time, interval);
  return {time, time, dropped, counter + dropped};
}

Status DeliverFrameWithin(CameraContext& context, const DeliveryBuffer& destination,
                          std::uint8_t* rawFrame, std::uint32_t& bytesWritten) {
  RunFrameExposureControl(context, rawFrame);
  context.LastRawFrame = rawFrame;
  context.LastDestination = destination.Data;
  if (context.RequestedCompression != kFourccYuy2) return 0;

  const RequestedSize size{context.RequestedWidth, context.RequestedHeight};
  const RawPictureSize* const native = FindNativeSize(context.RawSizeMode);
  if (native != nullptr) {
    std::uint8_t* const pixels = rawFrame + kRawFrameHeaderSize;
    CaptureStill(context, pixels);  // its marks are part of the delivered frame
    if (HasRoomFor(destination, size)) {
      DeliverPixels(destination.Data, pixels, size, *native);
    } else {
      TraceCamera(&context, "frame too large for its buffer size=%dx%d room=%u", size.Width,
                  size.Height, destination.Room);
    }
  }
  bytesWritten = Yuy2Bytes(size);
  return 0;
}

Status DeliverFrame(CameraContext& context, std::uint8_t* destination, std::uint32_t,
                    std::uint8_t* rawFrame, std::uint32_t, std::uint32_t& bytesWritten) {
  const DeliveryBuffer buffer{destination, std::numeric_limits<std::uint32_t>::max()};
  return DeliverFrameWithin(context, buffer, rawFrame, bytesWritten);
}

}  // namespace lidcam
