#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "library/api_error.h"
#include "library/base/command_error.h"
#include "library/camera_handle.h"
#include "library/lidcam.h"
#include "library/settings/stream_size.h"

using lidcam::api::FailForNull;
using lidcam::api::Guard;
namespace app = lidcam::app;

namespace {

constexpr std::uint32_t kUsualBuffers = 6;
constexpr std::uint32_t kMostBuffers = 64;
constexpr std::uint32_t kBytesPerPixel = 2;

/// A frame as it is handed out; the description comes first.
struct HeldFrame {
  lidcam_frame Description;
  std::unique_ptr<app::LentFrame> Frame;
};

struct HeldStill {
  lidcam_still Description;
  app::StillPicture Picture;
};

const lidcam_frame* HandOut(std::unique_ptr<app::LentFrame> frame) {
  const app::FrameFacts& facts = frame->Facts();
  const auto width = static_cast<std::uint32_t>(facts.Size.Width);
  auto held = std::make_unique<HeldFrame>();
  held->Description = {
      .data = reinterpret_cast<const std::uint8_t*>(frame->Bytes().data()),
      .size = frame->Bytes().size(),
      .pixels = LIDCAM_PIXELS_YUY2,
      .width = width,
      .height = static_cast<std::uint32_t>(facts.Size.Height),
      .stride = width * kBytesPerPixel,
      .stream_time = facts.Position.PresentationTime,
      .monotonic_ns = facts.MonotonicNanoseconds,
      .duration = facts.Duration,
      .picture_number = facts.Position.PictureNumber,
      .drop_count = facts.LostCount,
      .auto_exposure = facts.IsAutoExposure ? 1 : 0,
      .exposure = facts.Loop.Exposure,
      .coarse_gain = facts.Loop.CoarseGain,
      .fine_gain = facts.Loop.FineGain,
      .exposure_lines = facts.Loop.Lines,
      .light_state = static_cast<lidcam_light_state>(facts.Loop.State),
  };
  held->Frame = std::move(frame);
  return &held.release()->Description;
}

std::int32_t SideOf(std::uint32_t pixels) {
  constexpr std::uint32_t kLongest = 1U << 16;
  return static_cast<std::int32_t>(pixels < kLongest ? pixels : kLongest);
}

void RequireFormat(const lidcam_camera& camera, const app::SessionStream& stream) {
  const app::PictureSize size = stream.Size;
  for (const app::SessionFormat& format : camera.Session->Facts().Formats) {
    if (format.Size != size) continue;
    if (!stream.FrameInterval || (*stream.FrameInterval >= format.ShortestInterval &&
                                  *stream.FrameInterval <= format.LongestInterval)) {
      return;
    }
    throw app::UsageError("frame interval " + std::to_string(*stream.FrameInterval) +
                          " is not offered by camera '" + camera.Address + "': from " +
                          std::to_string(format.ShortestInterval) + " to " +
                          std::to_string(format.LongestInterval) + ", in units of 100 ns");
  }
  std::string sizes;
  for (const app::PictureSize known : app::kStreamSizes) {
    sizes += (sizes.empty() ? "" : ", ") + app::ToString(known);
  }
  throw app::UsageError("size " + app::ToString(size) + " is not offered by camera '" +
                        camera.Address + "': " + sizes);
}

std::span<std::byte> MemoryOf(const lidcam_stream_options& options, app::PictureSize size) {
  const std::span memory(reinterpret_cast<std::byte*>(options.memory), options.memory_size);
  if (options.buffers == 0) {
    throw app::UsageError("memory for buffers needs their number: buffers is 0");
  }
  if (memory.size() / options.buffers < size.Yuy2Bytes()) {
    throw app::UsageError("memory of " + std::to_string(memory.size()) +
                          " bytes is too small for " + std::to_string(options.buffers) +
                          " buffers of " + std::to_string(size.Yuy2Bytes()));
  }
  return memory;
}

app::SessionStream StreamOf(lidcam_camera& camera, const lidcam_stream_options* options) {
  app::SessionStream stream{.Buffers = kUsualBuffers};
  if (options == nullptr) return stream;
  if (LIDCAM_HAS_FIELD(options, lidcam_stream_options, height)) {
    stream.Size = {SideOf(options->width), SideOf(options->height)};
  }
  if (LIDCAM_HAS_FIELD(options, lidcam_stream_options, frame_interval) &&
      options->frame_interval != 0) {
    stream.FrameInterval = options->frame_interval;
  }
  if (LIDCAM_HAS_FIELD(options, lidcam_stream_options, buffers) && options->buffers != 0) {
    if (options->buffers > kMostBuffers) {
      throw app::UsageError(std::to_string(options->buffers) + " buffers are too many: at most " +
                            std::to_string(kMostBuffers));
    }
    stream.Buffers = options->buffers;
  }
  if (LIDCAM_HAS_FIELD(options, lidcam_stream_options, memory_size) && options->memory != nullptr) {
    stream.Memory = MemoryOf(*options, stream.Size);
  }
  if (LIDCAM_HAS_FIELD(options, lidcam_stream_options, user) && options->handler != nullptr) {
    stream.Handler = [&camera, handler = options->handler,
                      user = options->user](std::unique_ptr<app::LentFrame> frame) {
      handler(&camera, HandOut(std::move(frame)), user);
    };
  }
  return stream;
}

std::optional<std::chrono::milliseconds> LimitOf(int32_t milliseconds) {
  if (milliseconds < 0) return std::nullopt;
  return std::chrono::milliseconds(milliseconds);
}

}  // namespace

lidcam_status lidcam_start(lidcam_camera* camera, const lidcam_stream_options* options) {
  if (camera == nullptr) return FailForNull("camera");
  return Guard([&] {
    app::SessionStream stream = StreamOf(*camera, options);
    RequireFormat(*camera, stream);
    camera->Session->Start(std::move(stream));
    return LIDCAM_OK;
  });
}

lidcam_status lidcam_stop(lidcam_camera* camera) {
  if (camera == nullptr) return FailForNull("camera");
  return Guard([&] {
    camera->Session->Stop();
    return LIDCAM_OK;
  });
}

lidcam_status lidcam_next_frame(lidcam_camera* camera, int32_t timeout_milliseconds,
                                const lidcam_frame** frame) {
  if (camera == nullptr) return FailForNull("camera");
  if (frame == nullptr) return FailForNull("frame");
  return Guard([&] {
    std::unique_ptr<app::LentFrame> next;
    switch (camera->Session->Next(LimitOf(timeout_milliseconds), next)) {
      case app::NextResult::Timeout:
        return LIDCAM_TIMEOUT;
      case app::NextResult::End:
        return LIDCAM_END;
      case app::NextResult::Frame:
        break;
    }
    *frame = HandOut(std::move(next));
    return LIDCAM_OK;
  });
}

void lidcam_frame_release(const lidcam_frame* frame) {
  delete reinterpret_cast<HeldFrame*>(const_cast<lidcam_frame*>(frame));
}

lidcam_status lidcam_take_still(lidcam_camera* camera, const lidcam_still** still) {
  if (camera == nullptr) return FailForNull("camera");
  if (still == nullptr) return FailForNull("still");
  return Guard([&] {
    auto held = std::make_unique<HeldStill>();
    held->Picture = camera->Session->TakeStill();
    const auto width = static_cast<std::uint32_t>(held->Picture.Size.Width);
    held->Description = {.data = held->Picture.Yuy2.data(),
                         .size = held->Picture.Yuy2.size(),
                         .pixels = LIDCAM_PIXELS_YUY2,
                         .width = width,
                         .height = static_cast<std::uint32_t>(held->Picture.Size.Height),
                         .stride = width * kBytesPerPixel};
    *still = &held.release()->Description;
    return LIDCAM_OK;
  });
}

void lidcam_still_release(const lidcam_still* still) {
  delete reinterpret_cast<HeldStill*>(const_cast<lidcam_still*>(still));
}
