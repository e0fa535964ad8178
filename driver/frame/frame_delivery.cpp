#include "driver/frame/frame_delivery.h"

#include <cstring>

#include "driver/frame/raw_frame_parser.h"

namespace lidcam {
namespace {

/// Calls that a stream start skips before its first frame.
constexpr std::int64_t kFirstCounter = 2;

constexpr std::uint32_t kYuy2BytesPerPixel = 2;

struct NativeSize {
  std::uint32_t RawSizeMode;
  std::int32_t Width;
  std::int32_t Height;
};

constexpr NativeSize kNativeSizes[] = {
    {RawMode640x480, 640, 480},
    {RawMode320x240, 320, 240},
    {RawMode160x120, 160, 120},
};

const NativeSize* FindNativeSize(std::uint32_t rawSizeMode) {
  for (const NativeSize& size : kNativeSizes) {
    if (size.RawSizeMode == rawSizeMode) return &size;
  }
  return nullptr;
}

// Times come from the application's format and clock; the sum wraps rather than overflows.
Time100ns TimeAfter(Time100ns time, Time100ns interval) {
  return static_cast<Time100ns>(static_cast<std::uint64_t>(time) +
                                static_cast<std::uint64_t>(interval));
}

std::int64_t CountDropped(std::int64_t counter, Time100ns time, Time100ns interval) {
  if (interval == 0 || time < interval) return 0;
  const std::int64_t due = time / interval;
  return due > counter ? due - counter : 0;
}

struct RequestedSize {
  std::int32_t Width;
  std::int32_t Height;
};

std::uint32_t Yuy2Bytes(const RequestedSize& size) {
  return static_cast<std::uint32_t>(size.Width) * static_cast<std::uint32_t>(size.Height) *
         kYuy2BytesPerPixel;
}

bool IsNative(const RequestedSize& size, const NativeSize& native) {
  return size.Width == native.Width && size.Height == native.Height;
}

void DeliverPixels(std::uint8_t* destination, const std::uint8_t* pixels, const RequestedSize& size,
                   const NativeSize& native) {
  if (IsNative(size, native)) std::memcpy(destination, pixels, Yuy2Bytes(size));
}

}  // namespace

FrameStamp StampFrame(std::int64_t counter, Time100ns clockTime, Time100ns lastTime,
                      Time100ns interval) {
  const bool isLater = counter == kFirstCounter || clockTime > lastTime;
  const Time100ns time = isLater ? clockTime : TimeAfter(lastTime, interval);
  const std::int64_t dropped = CountDropped(counter, time, interval);
  return {time, time, dropped, counter + dropped};
}

Status DeliverFrame(CameraContext& context, std::uint8_t* destination, std::uint32_t,
                    std::uint8_t* rawFrame, std::uint32_t, std::uint32_t& bytesWritten) {
  context.LastRawFrame = rawFrame;
  context.LastDestination = destination;
  if (context.RequestedCompression != kFourccYuy2) return 0;

  const RequestedSize size{context.RequestedWidth, context.RequestedHeight};
  const NativeSize* const native = FindNativeSize(context.RawSizeMode);
  if (native != nullptr) {
    DeliverPixels(destination, rawFrame + kRawFrameHeaderSize, size, *native);
  }
  bytesWritten = Yuy2Bytes(size);
  return 0;
}

}  // namespace lidcam
