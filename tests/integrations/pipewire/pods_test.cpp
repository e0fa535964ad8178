#include "integrations/pipewire/pods.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/videodev2.h>
#include <spa/param/param.h>
#include <spa/param/props.h>
#include <spa/param/video/format-utils.h>
#include <spa/param/video/raw.h>
#include <spa/pod/builder.h>
#include <spa/pod/iter.h>

#include <cstddef>
#include <map>
#include <set>
#include <string>

namespace lidcam::integrations::pipewire {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

CameraControl Slider(const std::string& name, std::int32_t minimum, std::int32_t maximum) {
  return {.Name = name, .Description = "", .Minimum = minimum, .Maximum = maximum};
}

CameraControl Switch(const std::string& name) {
  return {.Name = name,
          .Description = "",
          .Minimum = 0,
          .Maximum = 1,
          .Step = 1,
          .Default = 0,
          .Flags = LIDCAM_CONTROL_SWITCH};
}

/// Props as an application sends them.
class AppProperties {
 public:
  AppProperties() {
    spa_pod_builder_init(&builder_, bytes_, sizeof(bytes_));
    spa_pod_builder_push_object(&builder_, &frame_, SPA_TYPE_OBJECT_Props, SPA_PARAM_Props);
  }
  spa_pod_builder* operator[](std::uint32_t key) {
    spa_pod_builder_prop(&builder_, key, 0);
    return &builder_;
  }
  const spa_pod* Finish() {
    return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder_, &frame_));
  }

 private:
  alignas(8) std::byte bytes_[1024]{};
  spa_pod_builder builder_{};
  spa_pod_frame frame_{};
};

std::map<std::string, std::int32_t> Read(const spa_pod* pod,
                                         const std::vector<CameraControl>& controls) {
  std::map<std::string, std::int32_t> values;
  for (const NewValue& value : ReadNewValues(pod, controls)) values[value.Name] = value.Value;
  return values;
}

TEST(FormatPods, AnOfferedSizeIsReadAsItself) {
  const Pods pods = FormatPods({{640, 480}, {160, 120}});
  ASSERT_EQ(pods.Addresses().size(), 2U);
  const std::optional<StreamShape> shape = ReadFormat(pods.Addresses()[1]);
  ASSERT_TRUE(shape.has_value());
  EXPECT_EQ(shape->Width, 160U);
  EXPECT_EQ(shape->Height, 120U);
}

TEST(FormatPods, ARateOfFramesIsReadAsTheirInterval) {
  alignas(8) std::byte bytes[512];
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, bytes, sizeof(bytes));
  spa_video_info_raw video{};
  video.format = SPA_VIDEO_FORMAT_YUY2;
  video.size = {.width = 320, .height = 240};
  video.framerate = {.num = 15, .denom = 1};
  const spa_pod* format = spa_format_video_raw_build(&builder, SPA_PARAM_Format, &video);
  EXPECT_EQ(ReadFormat(format), (StreamShape{320, 240, 666'666}));

  spa_pod_builder_init(&builder, bytes, sizeof(bytes));
  video.format = SPA_VIDEO_FORMAT_NV12;
  format = spa_format_video_raw_build(&builder, SPA_PARAM_Format, &video);
  EXPECT_EQ(ReadFormat(format), std::nullopt);
}

TEST(ControlPods, EveryControlOfTheCameraHasAPropertyOfItsOwn) {
  std::vector<CameraControl> controls;
  for (const char* name :
       {"Brightness", "Contrast", "Saturation", "Sharpness", "Gamma", "WhiteBalance",
        "BacklightCompensation", "ColorEnable", "Exposure", "AutoExposure", "Mirror", "Vertical",
        "Flicker", "Effect", "LDMode", "LED"}) {
    controls.push_back(Slider(name, 0, 9));
  }
  const Pods pods = ControlDescriptions(controls);
  ASSERT_EQ(pods.Addresses().size(), controls.size());
  std::set<std::uint32_t> ids;
  for (const spa_pod* pod : pods.Addresses()) {
    const spa_pod_prop* const id = spa_pod_find_prop(pod, nullptr, SPA_PROP_INFO_id);
    ASSERT_NE(id, nullptr);
    std::uint32_t number = 0;
    ASSERT_EQ(spa_pod_get_id(&id->value, &number), 0);
    ids.insert(number);
  }
  EXPECT_EQ(ids.size(), controls.size());
}

TEST(ControlPods, ThePublishedValuesAreReadAsThemselves) {
  std::vector<CameraControl> controls = {Slider("Brightness", -100, 100), Switch("Mirror")};
  controls[0].Value = -7;
  controls[1].Value = 1;
  const Pods pods = ControlValues(controls);
  ASSERT_EQ(pods.Addresses().size(), 1U);
  EXPECT_THAT(Read(pods.Addresses()[0], controls),
              ElementsAre(std::pair{"Brightness", -7}, std::pair{"Mirror", 1}));
}

TEST(ControlPods, AnApplicationMaySendWhicheverTypeItLikes) {
  const std::vector<CameraControl> controls = {Slider("Brightness", -100, 100), Switch("Mirror"),
                                               Slider("Contrast", 1, 16)};
  AppProperties properties;
  spa_pod_builder_float(properties[SPA_PROP_brightness], -6.6F);
  spa_pod_builder_int(properties[SPA_PROP_START_CUSTOM + V4L2_CID_HFLIP], 1);
  spa_pod_builder_bool(properties[SPA_PROP_contrast], true);
  EXPECT_THAT(
      Read(properties.Finish(), controls),
      ElementsAre(std::pair{"Brightness", -7}, std::pair{"Contrast", 1}, std::pair{"Mirror", 1}));
}

TEST(ControlPods, WhatIsNoControlOfTheCameraIsSkipped) {
  const std::vector<CameraControl> controls = {Slider("Brightness", -100, 100)};
  AppProperties properties;
  spa_pod_builder_string(properties[SPA_PROP_brightness], "bright");
  spa_pod_builder_int(properties[SPA_PROP_contrast], 3);
  spa_pod_builder_float(properties[SPA_PROP_volume], 1);
  EXPECT_THAT(Read(properties.Finish(), controls), IsEmpty());
  alignas(8) std::byte bytes[64];
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, bytes, sizeof(bytes));
  spa_pod_builder_int(&builder, 3);
  EXPECT_THAT(Read(reinterpret_cast<const spa_pod*>(bytes), controls), IsEmpty());
}

}  // namespace
}  // namespace lidcam::integrations::pipewire
