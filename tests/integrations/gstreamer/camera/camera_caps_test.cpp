#include "integrations/gstreamer/camera/camera_caps.h"

#include <gtest/gtest.h>

#include "tests/integrations/gstreamer/support/source_harness.h"

namespace lidcam::gstreamer {
namespace {

std::string TextOf(GstCaps* caps) {
  gchar* const text = gst_caps_to_string(caps);
  std::string result = text;
  g_free(text);
  return result;
}

class CameraCaps : public testing::Test {
 protected:
  CameraCaps() { test::InitGStreamer(); }

  test::OwnFolder folder_;
};

TEST_F(CameraCaps, FiveSizesHaveTheNamedRatesFirstAndThenAllThatThePinTakes) {
  const test::CapsPointer caps(CapsOfAnyCamera());
  const std::string large = "{ 30/1, 15/1, 12/1, 10/1, 6/1 }";
  const std::string other =
      "{ 30/1, 25/1, 20/1, 18/1, 15/1, "
      "12/1, 10/1 }";
  const std::string all = "[ 1/1, 100/1 ]";
  const auto size = [](int width, int height, const std::string& rates) {
    return "video/x-raw, format=(string)YUY2, width=(int)" + std::to_string(width) +
           ", height=(int)" + std::to_string(height) + ", framerate=(fraction)" + rates;
  };
  EXPECT_EQ(TextOf(caps.get()), size(640, 480, large) + "; " + size(352, 288, other) + "; " +
                                    size(320, 240, other) + "; " + size(176, 144, other) + "; " +
                                    size(160, 120, other) + "; " + size(640, 480, all) + "; " +
                                    size(352, 288, all) + "; " + size(320, 240, all) + "; " +
                                    size(176, 144, all) + "; " + size(160, 120, all));
}

TEST_F(CameraCaps, AnOpenCameraHasTheFormatsThatAnyCameraIsSaidToHave) {
  lidcam_camera* camera = nullptr;
  ASSERT_EQ(lidcam_open("sim", nullptr, &camera), LIDCAM_OK) << lidcam_error_text();
  const test::CapsPointer open(CapsOf(camera));
  lidcam_close(camera);
  const test::CapsPointer any(CapsOfAnyCamera());
  EXPECT_EQ(TextOf(open.get()), TextOf(any.get()));
}

TEST_F(CameraCaps, TheUsualFormatIsChosenAmongAll) {
  const test::CapsPointer fixed(FixedCaps(CapsOfAnyCamera()));
  EXPECT_EQ(FormatOf(fixed.get()), (StreamFormat{640, 480, 333'333}));
}

TEST_F(CameraCaps, RatesAreFrameIntervalsOfTheCamera) {
  const auto interval = [](const char* rate) {
    const test::CapsPointer caps(gst_caps_from_string(
        (std::string("video/x-raw,format=YUY2,width=160,height=120,framerate=") + rate).c_str()));
    return FormatOf(caps.get())->Interval;
  };
  EXPECT_EQ(interval("30/1"), 333'333);
  EXPECT_EQ(interval("25/1"), 400'000);
  EXPECT_EQ(interval("18/1"), 555'555);
  EXPECT_EQ(interval("30000/1001"), 333'666);
  EXPECT_EQ(interval("100/1"), 100'000);
  EXPECT_EQ(interval("1/1"), 10'000'000);
}

TEST_F(CameraCaps, AnotherFormatOrAVariableRateIsNone) {
  const auto isOne = [](const char* text) {
    const test::CapsPointer caps(gst_caps_from_string(text));
    return FormatOf(caps.get()).has_value();
  };
  EXPECT_FALSE(isOne("video/x-raw,format=UYVY,width=160,height=120,framerate=30/1"));
  EXPECT_FALSE(isOne("video/x-raw,format=YUY2,width=160,height=120,framerate=0/1"));
  EXPECT_FALSE(isOne("image/jpeg,width=160,height=120,framerate=30/1"));
}

}  // namespace
}  // namespace lidcam::gstreamer
