#include "apps/lidcam/delivery_watch.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <span>
#include <utility>

#include "apps/lidcam/frame_path.h"

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
                             std::function<std::uint64_t()> microframes)
    : context_(context), microframes_(std::move(microframes)) {
  observer_.emplace([this](std::string_view line) { See(line); });
}

// The raw frame is whole until the next one is published, a frame's time from here.
void DeliveryWatch::See(std::string_view line) {
  if (!line.starts_with("pin frame ")) return;
  const auto picture = NumberBehind<std::int64_t>(line, "picture=");
  const auto bytes = NumberBehind<std::uint32_t>(line, "bytes=");
  if (!picture || !bytes) return;
  const void* const raw = context_.LastRawFrame;
  const std::span rawFrame(static_cast<const std::uint8_t*>(raw), raw != nullptr ? *bytes : 0);
  DeliveryReport report{
      .PictureNumber = *picture,
      .RawBytes = *bytes,
      .IsGood = IsGoodRawFrame(context_, *bytes),
      .IsAutoExposure = context_.AutoExposure != 0,
      .Loop =
          ReadFrameRow(context_, {.Yuy2 = {}, .RawFrame = rawFrame, .Microframe = microframes_()},
                       events_.OfNewestFrame()),
  };
  const std::lock_guard lock(mutex_);
  reports_.push_back(report);
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
