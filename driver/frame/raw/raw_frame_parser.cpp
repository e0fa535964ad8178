#include "driver/frame/raw/raw_frame_parser.h"

#include "driver/core/base/camera_trace.h"
#include "platform/kernel.h"

namespace lidcam {
namespace {

/// Bytes by which a frame may miss its expected size and still be good.
constexpr std::uint32_t kSizeTolerance = 10;

/// Values of `FrameSettleCount`. Only 0 has an effect; then the count becomes 4, and stays at 5.
constexpr std::uint32_t kSettleWanted = 0;
constexpr std::uint32_t kSettleTaken = 4;
constexpr std::uint32_t kSettleLast = 5;

// Unsigned on purpose: an expected size below the tolerance wraps the lower bound and no frame is
// good, which keeps a camera without a size table entry from publishing fragments as frames.
bool HasExpectedSize(std::uint32_t received, std::uint32_t expected) {
  return received <= expected + kSizeTolerance && received >= expected - kSizeTolerance;
}

void PrintWrongSize(std::uint32_t received, std::uint32_t expected) {
  DbgPrint("ReceivedRawFrameBuffer = %d", static_cast<std::int32_t>(received));
  DbgPrint("Correct RawFrameBuffer = %d", static_cast<std::int32_t>(expected));
}

// One load and one store: a settling that the light state machine requests in between is lost.
bool TakeSettling(CameraContext& context) {
  const std::uint32_t count = context.FrameSettleCount;
  if (count == kSettleWanted) {
    context.FrameSettleCount = kSettleTaken;
    return true;
  }
  if (count < kSettleLast) context.FrameSettleCount = count + 1;
  return false;
}

}  // namespace

void CloseRawFrame(CameraContext& context, std::uint8_t& frameEnd, std::uint32_t& flags) {
  const std::uint32_t received = context.ReceivedFrameBytes;
  const std::uint32_t expected = context.RawFrameSize;
  const bool isGood = HasExpectedSize(received, expected);
  if (!isGood) PrintWrongSize(received, expected);
  const std::uint32_t starts = context.FrameStartCount;
  context.FrameStartCount = starts + 1;
  const bool isSettling = TakeSettling(context);
  context.FramePacketCount = 0;
  context.ReceivedFrameBytes = 0;

  frameEnd = isSettling ? 0 : 1;
  flags = isGood && !isSettling ? 0 : kPacketFlagBadFrame;
  TraceCamera(&context, "frame end bytes=%u expected=%u %s", received, expected,
              isSettling ? "settling" : (isGood ? "good" : "bad"));
}

}  // namespace lidcam
