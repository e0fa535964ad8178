#include "integrations/gstreamer/camera/control_properties.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "library/lidcam.h"
#include "tests/integrations/gstreamer/support/source_harness.h"

namespace lidcam::gstreamer {
namespace {

TEST(ControlProperties, AreThoseOfTheCameraWithItsRangesAndDefaults) {
  test::InitGStreamer();
  const test::OwnFolder folder;
  lidcam_camera* camera = nullptr;
  ASSERT_EQ(lidcam_open("sim", nullptr, &camera), LIDCAM_OK) << lidcam_error_text();
  const lidcam_control* const* controls = nullptr;
  std::size_t count = 0;
  ASSERT_EQ(lidcam_controls_list(camera, &controls, &count), LIDCAM_OK);
  ASSERT_EQ(count, ControlProperties().size());
  for (std::size_t index = 0; index < count; ++index) {
    const lidcam_control& control = *controls[index];
    const ControlProperty* const property = PropertyOfControl(control.name);
    ASSERT_NE(property, nullptr) << control.name;
    EXPECT_EQ(property->Minimum, control.minimum) << control.name;
    EXPECT_EQ(property->Maximum, control.maximum) << control.name;
    EXPECT_EQ(property->Default, control.default_value) << control.name;
    EXPECT_EQ(property->Kind == PropertyKind::Switch, (control.flags & LIDCAM_CONTROL_SWITCH) != 0)
        << control.name;
  }
  lidcam_close(camera);
}

}  // namespace
}  // namespace lidcam::gstreamer
