#include "library/camera/controls/sensor_notes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "driver/core/record/camera_context.h"

namespace lidcam::app {
namespace {

constexpr PictureSize kLarge{640, 480};
constexpr PictureSize kHalf{320, 240};
constexpr PictureSize kQuarter{160, 120};

TEST(PictureNote, OfAWholePictureIsEmpty) {
  EXPECT_EQ(PictureNote(SensorTypeVGA0708, kLarge, 614466), "");
  EXPECT_EQ(PictureNote(SensorTypeK82, kHalf, 153666), "");
  EXPECT_EQ(PictureNote(SensorTypeReserved3, kLarge, 0), "");
}

TEST(PictureNote, TellsOfTheStripBelowTheLastLine) {
  EXPECT_EQ(
      PictureNote(SensorTypeVGA7648, kLarge, 609346),
      "the sensor VGA7648 sends 476 of 480 lines: the strip below them is what was in the buffer "
      "before, green at first");
  EXPECT_THAT(PictureNote(SensorTypeVGA7648, kHalf, 152386),
              ::testing::HasSubstr("sends 238 of 240 lines"));
  EXPECT_THAT(PictureNote(SensorTypeVGA7648, kQuarter, 38146),
              ::testing::HasSubstr("sends 119 of 120 lines"));
}

TEST(PictureNote, TellsOfTheLinesThatAreCutOff) {
  EXPECT_EQ(PictureNote(SensorTypeMi1318, kLarge, 655426),
            "the sensor Mi1318 sends 512 lines for a picture of 480: the lowest 32 are cut off");
  EXPECT_THAT(PictureNote(SensorTypeMi1318, kHalf, 163906),
              ::testing::HasSubstr("256 lines for a picture of 240: the lowest 16"));
  EXPECT_THAT(PictureNote(SensorTypeMi1318, kQuarter, 41022),
              ::testing::HasSubstr("128 lines for a picture of 120: the lowest 8"));
}

TEST(PictureNote, TellsOfThePixelsThatAreMissingAtTheEnd) {
  EXPECT_EQ(
      PictureNote(SensorTypeK82, kLarge, 614458),
      "the sensor K82 leaves out the last 4 pixels of its frames, at the bottom right: what shows "
      "there was in the buffer before");
  EXPECT_THAT(PictureNote(SensorTypeK82, kQuarter, 38462),
              ::testing::HasSubstr("the last 2 pixels"));
}

TEST(StreamObstacle, OfASensorIsAFrameSizeThatIsNotKnown) {
  EXPECT_EQ(StreamObstacle(SensorTypeReserved3), "its frame size is not known");
  EXPECT_EQ(StreamObstacle(SensorTypeVGA7648), "");
}

TEST(StreamObstacle, OfACameraIsASensorThatIsTakenForAnother) {
  camera_model::CameraOptions camera;
  EXPECT_EQ(StreamObstacle(camera), "");
  camera.VendorId = 0x1B17;
  camera.ProductId = 0x6111;
  camera.Sensor = camera_model::SensorModel::VGA7648;
  EXPECT_EQ(StreamObstacle(camera),
            "it is taken for the sensor OV7660, whose frames have another size");
  // Taken for another too, but one with frames of the same size.
  camera.Sensor = camera_model::SensorModel::OV7670;
  EXPECT_EQ(StreamObstacle(camera), "");
}

}  // namespace
}  // namespace lidcam::app
