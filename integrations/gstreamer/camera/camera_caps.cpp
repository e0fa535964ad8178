#include "integrations/gstreamer/camera/camera_caps.h"

#include <gst/video/video.h>

#include <array>
#include <cstddef>
#include <span>

namespace lidcam::gstreamer {
namespace {

constexpr std::int64_t kIntervalsPerSecond = 10'000'000;
constexpr int kUsualWidth = 640;
constexpr int kUsualHeight = 480;
constexpr int kUsualRate = 30;

constexpr std::array<std::int64_t, 4> kIntervalsOfLargest{666'666, 833'333, 1'000'000, 1'666'666};
constexpr std::array<std::int64_t, 7> kIntervalsOfOthers{333'333, 400'000, 500'000,  555'555,
                                                         666'666, 833'333, 1'000'000};
constexpr std::int64_t kShortestInterval = 100'000;
constexpr std::int64_t kLongestInterval = 10'000'000;

struct PictureSize {
  std::uint32_t Width;
  std::uint32_t Height;
  std::span<const std::int64_t> Intervals;
};

constexpr std::array<PictureSize, 5> kSizes{{{640, 480, kIntervalsOfLargest},
                                             {352, 288, kIntervalsOfOthers},
                                             {320, 240, kIntervalsOfOthers},
                                             {176, 144, kIntervalsOfOthers},
                                             {160, 120, kIntervalsOfOthers}}};

struct Rate {
  int Numerator;
  int Denominator;
};

/// The camera counts whole steps of 100 ns: 333,333 of them stand for 30 frames a second exactly.
Rate RateOf(std::int64_t interval) {
  Rate rate{};
  if (!gst_video_guess_framerate(static_cast<GstClockTime>(interval) * 100, &rate.Numerator,
                                 &rate.Denominator)) {
    rate = {static_cast<int>(kIntervalsPerSecond), static_cast<int>(interval)};
  }
  return rate;
}

void AppendRate(GValue* rates, Rate rate) {
  GValue value = G_VALUE_INIT;
  g_value_init(&value, GST_TYPE_FRACTION);
  gst_value_set_fraction(&value, rate.Numerator, rate.Denominator);
  gst_value_list_append_and_take_value(rates, &value);
}

GstStructure* PictureStructure(std::uint32_t width, std::uint32_t height) {
  return gst_structure_new("video/x-raw", "format", G_TYPE_STRING, "YUY2", "width", G_TYPE_INT,
                           static_cast<int>(width), "height", G_TYPE_INT, static_cast<int>(height),
                           nullptr);
}

/// The usual rate first, since programs often take the first one, then those that the camera names.
void AppendNamedRates(GstCaps* caps, const lidcam_format& format) {
  GValue rates = G_VALUE_INIT;
  g_value_init(&rates, GST_TYPE_LIST);
  AppendRate(&rates, {kUsualRate, 1});
  for (const std::int64_t interval : std::span(format.intervals, format.interval_count)) {
    const Rate rate = RateOf(interval);
    if (rate.Numerator != kUsualRate || rate.Denominator != 1) AppendRate(&rates, rate);
  }
  GstStructure* const structure = PictureStructure(format.width, format.height);
  gst_structure_take_value(structure, "framerate", &rates);
  gst_caps_append_structure(caps, structure);
}

void AppendAllRates(GstCaps* caps, const lidcam_format& format) {
  const Rate slowest = RateOf(format.longest_interval);
  const Rate fastest = RateOf(format.shortest_interval);
  GstStructure* const structure = PictureStructure(format.width, format.height);
  gst_structure_set(structure, "framerate", GST_TYPE_FRACTION_RANGE, slowest.Numerator,
                    slowest.Denominator, fastest.Numerator, fastest.Denominator, nullptr);
  gst_caps_append_structure(caps, structure);
}

}  // namespace

GstCaps* CapsOfAnyCamera() {
  GstCaps* const caps = gst_caps_new_empty();
  for (const auto append : {AppendNamedRates, AppendAllRates}) {
    for (const PictureSize& size : kSizes) {
      append(caps, {.pixels = LIDCAM_PIXELS_YUY2,
                    .width = size.Width,
                    .height = size.Height,
                    .image_bytes = 0,
                    .intervals = size.Intervals.data(),
                    .interval_count = size.Intervals.size(),
                    .shortest_interval = kShortestInterval,
                    .longest_interval = kLongestInterval});
    }
  }
  return caps;
}

GstCaps* CapsOf(lidcam_camera* camera) {
  const lidcam_format* const* formats = nullptr;
  std::size_t count = 0;
  if (lidcam_formats_list(camera, &formats, &count) < 0) return nullptr;
  GstCaps* const caps = gst_caps_new_empty();
  for (const auto append : {AppendNamedRates, AppendAllRates}) {
    for (const lidcam_format* format : std::span(formats, count)) {
      if (format->pixels == LIDCAM_PIXELS_YUY2) append(caps, *format);
    }
  }
  return caps;
}

GstCaps* FixedCaps(GstCaps* caps) {
  GstCaps* const fixed = gst_caps_make_writable(gst_caps_truncate(caps));
  GstStructure* const structure = gst_caps_get_structure(fixed, 0);
  gst_structure_fixate_field_nearest_int(structure, "width", kUsualWidth);
  gst_structure_fixate_field_nearest_int(structure, "height", kUsualHeight);
  gst_structure_fixate_field_nearest_fraction(structure, "framerate", kUsualRate, 1);
  return gst_caps_fixate(fixed);
}

std::optional<StreamFormat> FormatOf(const GstCaps* caps) {
  GstVideoInfo info;
  if (!gst_video_info_from_caps(&info, caps) ||
      GST_VIDEO_INFO_FORMAT(&info) != GST_VIDEO_FORMAT_YUY2) {
    return std::nullopt;
  }
  const int numerator = GST_VIDEO_INFO_FPS_N(&info);
  const int denominator = GST_VIDEO_INFO_FPS_D(&info);
  if (numerator <= 0 || denominator <= 0) return std::nullopt;
  return StreamFormat{static_cast<std::uint32_t>(GST_VIDEO_INFO_WIDTH(&info)),
                      static_cast<std::uint32_t>(GST_VIDEO_INFO_HEIGHT(&info)),
                      kIntervalsPerSecond * denominator / numerator};
}

}  // namespace lidcam::gstreamer
