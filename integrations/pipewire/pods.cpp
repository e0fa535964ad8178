#include "integrations/pipewire/pods.h"

#include <linux/videodev2.h>
#include <spa/buffer/buffer.h>
#include <spa/buffer/meta.h>
#include <spa/param/buffers.h>
#include <spa/param/param.h>
#include <spa/param/props.h>
#include <spa/param/video/format-utils.h>
#include <spa/param/video/raw.h>
#include <spa/pod/builder.h>
#include <spa/pod/iter.h>

#include <array>
#include <cmath>
#include <cstring>
#include <string_view>

namespace lidcam::integrations::pipewire {
namespace {

constexpr std::uint32_t kBytesAPixel = 2;
constexpr std::int64_t kUnitsPerSecond = 10'000'000;  // of a frame interval
// The driver takes more, but the sensors send no more, and applications show what is offered here.
constexpr std::uint32_t kFrameRate = 30;
// One that the camera fills, and some that lookers hold.
constexpr int kBufferCount = 12;
constexpr int kFewestBuffers = 3;
constexpr std::uint32_t kBuilderBytes = 2048;

/// The property of a control. PipeWire's own where it has one; otherwise the number that V4L2 gives the control,
/// behind the start of custom properties: so PipeWire's own V4L2 cameras have it, and pw-v4l2 reads it.
struct ControlProperty {
  std::string_view Name;
  std::uint32_t Id;
};

constexpr std::uint32_t Custom(std::uint32_t v4l2) {
  return SPA_PROP_START_CUSTOM + v4l2;
}

// V4L2 has no number for the last five, or one whose values mean something else.
constexpr ControlProperty kProperties[] = {
    {"Brightness", SPA_PROP_brightness},
    {"Contrast", SPA_PROP_contrast},
    {"Saturation", SPA_PROP_saturation},
    {"Sharpness", SPA_PROP_sharpness},
    {"Gamma", SPA_PROP_gamma},
    {"Exposure", SPA_PROP_exposure},
    {"WhiteBalance", Custom(V4L2_CID_AUTO_WHITE_BALANCE)},
    {"BacklightCompensation", Custom(V4L2_CID_BACKLIGHT_COMPENSATION)},
    {"Mirror", Custom(V4L2_CID_HFLIP)},
    {"Vertical", Custom(V4L2_CID_VFLIP)},
    {"Flicker", Custom(V4L2_CID_POWER_LINE_FREQUENCY)},
    {"ColorEnable", Custom(V4L2_CID_PRIVATE_BASE)},
    {"AutoExposure", Custom(V4L2_CID_PRIVATE_BASE + 1)},
    {"Effect", Custom(V4L2_CID_PRIVATE_BASE + 2)},
    {"LDMode", Custom(V4L2_CID_PRIVATE_BASE + 3)},
    {"LED", Custom(V4L2_CID_PRIVATE_BASE + 4)},
};

std::optional<std::uint32_t> PropertyOf(std::string_view name) {
  for (const ControlProperty& property : kProperties) {
    if (property.Name == name) return property.Id;
  }
  return std::nullopt;
}

/// Builds one parameter.
class Builder {
 public:
  Builder(std::uint32_t type, std::uint32_t id) {
    spa_pod_builder_init(&builder_, bytes_.data(), kBuilderBytes);
    spa_pod_builder_push_object(&builder_, &frame_, type, id);
  }

  spa_pod_builder* Property(std::uint32_t key) {
    spa_pod_builder_prop(&builder_, key, 0);
    return &builder_;
  }
  void Id(std::uint32_t key, std::uint32_t value) { spa_pod_builder_id(Property(key), value); }
  void Int(std::uint32_t key, std::int32_t value) { spa_pod_builder_int(Property(key), value); }
  void Bool(std::uint32_t key, bool value) { spa_pod_builder_bool(Property(key), value); }
  void Text(std::uint32_t key, const char* value) { spa_pod_builder_string(Property(key), value); }
  /// The first value is the default.
  template <typename Add>
  void Choice(std::uint32_t key, spa_choice_type type, Add add) {
    spa_pod_frame choice{};
    spa_pod_builder_push_choice(Property(key), &choice, type, 0);
    add(&builder_);
    spa_pod_builder_pop(&builder_, &choice);
  }

  const spa_pod* Finish() {
    return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder_, &frame_));
  }

 private:
  std::array<std::uint64_t, kBuilderBytes / sizeof(std::uint64_t)> bytes_{};
  spa_pod_builder builder_{};
  spa_pod_frame frame_{};
};

void AddType(Builder& builder, const CameraControl& control) {
  if ((control.Flags & LIDCAM_CONTROL_SWITCH) != 0 && control.Minimum == 0) {
    builder.Choice(SPA_PROP_INFO_type, SPA_CHOICE_Enum, [&](spa_pod_builder* values) {
      for (const bool value : {control.Default != 0, false, true}) {
        spa_pod_builder_bool(values, value);
      }
    });
    return;
  }
  builder.Choice(SPA_PROP_INFO_type, SPA_CHOICE_Step, [&](spa_pod_builder* values) {
    for (const std::int32_t value :
         {control.Default, control.Minimum, control.Maximum, control.Step}) {
      spa_pod_builder_int(values, value);
    }
  });
}

std::optional<std::int32_t> NumberOf(const spa_pod* value) {
  std::int32_t integer = 0;
  if (spa_pod_get_int(value, &integer) == 0) return integer;
  bool truth = false;
  if (spa_pod_get_bool(value, &truth) == 0) return truth ? 1 : 0;
  float single = 0;
  if (spa_pod_get_float(value, &single) == 0 && std::isfinite(single) && std::fabs(single) < 1e9F) {
    return static_cast<std::int32_t>(std::lround(single));
  }
  return std::nullopt;
}

}  // namespace

void Pods::Add(const spa_pod* pod) {
  const std::size_t size = sizeof(spa_pod) + pod->size;
  std::vector<std::uint64_t>& copy =
      pods_.emplace_back((size + sizeof(std::uint64_t) - 1) / sizeof(std::uint64_t));
  std::memcpy(copy.data(), pod, size);
}

void Pods::Add(const Pods& pods) {
  pods_.insert(pods_.end(), pods.pods_.begin(), pods.pods_.end());
}

std::vector<const spa_pod*> Pods::Addresses() const {
  std::vector<const spa_pod*> addresses;
  for (const auto& pod : pods_) addresses.push_back(reinterpret_cast<const spa_pod*>(pod.data()));
  return addresses;
}

Pods FormatPods(const std::vector<PictureSize>& sizes) {
  Pods pods;
  for (const PictureSize& size : sizes) {
    Builder builder(SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
    builder.Id(SPA_FORMAT_mediaType, SPA_MEDIA_TYPE_video);
    builder.Id(SPA_FORMAT_mediaSubtype, SPA_MEDIA_SUBTYPE_raw);
    builder.Id(SPA_FORMAT_VIDEO_format, SPA_VIDEO_FORMAT_YUY2);
    spa_pod_builder_rectangle(builder.Property(SPA_FORMAT_VIDEO_size), size.Width, size.Height);
    builder.Choice(SPA_FORMAT_VIDEO_framerate, SPA_CHOICE_Range, [](spa_pod_builder* values) {
      for (const std::uint32_t rate : {kFrameRate, 1U, kFrameRate}) {
        spa_pod_builder_fraction(values, rate, 1);
      }
    });
    pods.Add(builder.Finish());
  }
  return pods;
}

std::optional<StreamShape> ReadFormat(const spa_pod* format) {
  std::uint32_t type = 0;
  std::uint32_t subtype = 0;
  spa_video_info_raw video{};
  if (spa_format_parse(format, &type, &subtype) < 0 || type != SPA_MEDIA_TYPE_video ||
      subtype != SPA_MEDIA_SUBTYPE_raw || spa_format_video_raw_parse(format, &video) < 0 ||
      video.format != SPA_VIDEO_FORMAT_YUY2) {
    return std::nullopt;
  }
  StreamShape shape{.Width = video.size.width, .Height = video.size.height};
  const spa_fraction rate = video.framerate;
  if (rate.num != 0) shape.FrameInterval = kUnitsPerSecond * rate.denom / rate.num;
  return shape;
}

std::size_t BytesOf(const StreamShape& shape) {
  return std::size_t{kBytesAPixel} * shape.Width * shape.Height;
}

Pods BufferPods(const StreamShape& shape, std::size_t most) {
  const auto stride = static_cast<std::int32_t>(kBytesAPixel * shape.Width);
  Builder buffers(SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers);
  buffers.Choice(SPA_PARAM_BUFFERS_buffers, SPA_CHOICE_Range, [most](spa_pod_builder* values) {
    for (const int count : {kBufferCount, kFewestBuffers, static_cast<int>(most)}) {
      spa_pod_builder_int(values, count);
    }
  });
  buffers.Int(SPA_PARAM_BUFFERS_blocks, 1);
  buffers.Int(SPA_PARAM_BUFFERS_size, static_cast<std::int32_t>(BytesOf(shape)));
  buffers.Int(SPA_PARAM_BUFFERS_stride, stride);
  buffers.Choice(SPA_PARAM_BUFFERS_dataType, SPA_CHOICE_Flags,
                 [](spa_pod_builder* values) { spa_pod_builder_int(values, 1 << SPA_DATA_MemFd); });
  Builder header(SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta);
  header.Id(SPA_PARAM_META_type, SPA_META_Header);
  header.Int(SPA_PARAM_META_size, sizeof(spa_meta_header));
  Pods pods;
  pods.Add(buffers.Finish());
  pods.Add(header.Finish());
  return pods;
}

Pods ControlDescriptions(const std::vector<CameraControl>& controls) {
  Pods pods;
  for (const CameraControl& control : controls) {
    const std::optional<std::uint32_t> property = PropertyOf(control.Name);
    if (!property) continue;
    Builder builder(SPA_TYPE_OBJECT_PropInfo, SPA_PARAM_PropInfo);
    builder.Id(SPA_PROP_INFO_id, *property);
    builder.Text(SPA_PROP_INFO_name, control.Name.c_str());
    AddType(builder, control);
    builder.Text(SPA_PROP_INFO_description, control.Name.c_str());
    pods.Add(builder.Finish());
  }
  return pods;
}

Pods ControlValues(const std::vector<CameraControl>& controls) {
  Builder builder(SPA_TYPE_OBJECT_Props, SPA_PARAM_Props);
  for (const CameraControl& control : controls) {
    const std::optional<std::uint32_t> property = PropertyOf(control.Name);
    if (!property) continue;
    if ((control.Flags & LIDCAM_CONTROL_SWITCH) != 0 && control.Minimum == 0) {
      builder.Bool(*property, control.Value != 0);
    } else {
      builder.Int(*property, control.Value);
    }
  }
  Pods pods;
  pods.Add(builder.Finish());
  return pods;
}

std::vector<NewValue> ReadNewValues(const spa_pod* properties,
                                    const std::vector<CameraControl>& controls) {
  std::vector<NewValue> values;
  if (!spa_pod_is_object_type(properties, SPA_TYPE_OBJECT_Props)) return values;
  for (const CameraControl& control : controls) {
    const std::optional<std::uint32_t> id = PropertyOf(control.Name);
    const spa_pod_prop* const property = id ? spa_pod_find_prop(properties, nullptr, *id) : nullptr;
    if (property == nullptr) continue;
    const std::optional<std::int32_t> value = NumberOf(&property->value);
    if (value) values.push_back({.Name = control.Name, .Value = *value});
  }
  return values;
}

}  // namespace lidcam::integrations::pipewire
