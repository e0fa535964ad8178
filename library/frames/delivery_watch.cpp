#include "library/frames/delivery_watch.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <span>
#include <utility>

namespace lidcam::app {
namespace {

// The number behind a name in a trace line.
template <typename Number>
std::optional<Number> NumberBehind(std::string_view line, std::string_view name) {
  const std::size_t at = line.find(name);
  if (at == std::string_view::npos) return std::nullopt;
  Number number{};
  const char* const begin = line.data() + at + name.size();
  const auto result = std::from_chars(begin, line.data() + line.size(), number);
  if (result.ec != std::errc{}) return std::nullopt;
  return number;
}

}  // namespace

DeliveryWatch::DeliveryWatch(const CameraContext& context,
                             std::function<std::uint64_t()> microframes, DeliveryHandler delivered)
    : context_(context),
      microframes_(std::move(microframes)),
      delivered_(std::move(delivered)),
      events_(&context) {
  observer_.emplace([this](const CameraContext* camera, std::string_view line) {
    if (camera == &context_) See(line);
  });
}

// A stream's first frame start ends no frame, and the trace has an end of 0 bytes. When the driver
// settles, it drops the current frame and the one after it.
void SentFrameCounter::See(std::string_view line) {
  if (line.starts_with("frame end ")) {
    if (NumberBehind<std::uint32_t>(line, " bytes=").value_or(0) == 0) return;
    ++sent_.Ended;
    if (!line.ends_with(" settling")) return;
    ++sent_.Settling;
    isSettling_ = true;
  } else if (line == "frame discarded" && isSettling_) {
    ++sent_.Settling;
    isSettling_ = false;
  }
}

// The raw frame stays unchanged until the next one is published, a frame's time later.
void DeliveryWatch::See(std::string_view line) {
  sent_.See(line);
  if (!line.starts_with("pin frame ")) return;
  const auto picture = NumberBehind<std::int64_t>(line, "picture=");
  const auto bytes = NumberBehind<std::uint32_t>(line, "bytes=");
  if (!picture || !bytes) return;
  const void* const raw = context_.LastRawFrame;
  const std::span rawFrame(static_cast<const std::uint8_t*>(raw), raw != nullptr ? *bytes : 0);
  const std::uint64_t microframe = microframes_();
  DeliveryReport report{
      .PictureNumber = *picture,
      .RawBytes = *bytes,
      .IsGood = IsGoodRawFrame(context_, *bytes),
      .IsAutoExposure = context_.AutoExposure != 0,
      .Sent = sent_.Sent(),
      .Microframe = microframe,
      .Loop = ReadFrameRow(context_, {.Yuy2 = {}, .RawFrame = rawFrame, .Microframe = microframe},
                           events_.OfNewestFrame()),
  };
  {
    const std::lock_guard lock(mutex_);
    reports_.push_back(report);
  }
  ++count_;
  if (delivered_) delivered_(count_);
}

std::optional<DeliveryReport> DeliveryWatch::Take(std::int64_t pictureNumber) {
  const std::lock_guard lock(mutex_);
  const auto found = std::ranges::find(reports_, pictureNumber, &DeliveryReport::PictureNumber);
  if (found == reports_.end()) return std::nullopt;
  const DeliveryReport report = *found;
  reports_.erase(reports_.begin(), found + 1);
  return report;
}

}  // namespace lidcam::app
