#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "driver/sensor/controls/gamma_table.h"
#include "driver/sensor/controls/image_controls.h"
#include "tests/driver/sensor/controls/image_controls_golden.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

TEST(GammaTableTest, ItsTellingRowsHoldTheTunedLevels) {
  EXPECT_THAT(GammaTable[0].Levels, ElementsAre(255, 255, 255, 255, 255, 255, 255, 255, 255, 255,
                                                255, 255, 255, 255, 255));
  EXPECT_THAT(GammaTable[1].Levels, ElementsAre(200, 207, 215, 219, 222, 227, 230, 233, 235, 238,
                                                241, 243, 247, 250, 252));
  EXPECT_THAT(GammaTable[9].Levels,
              ElementsAre(28, 39, 53, 64, 73, 88, 100, 111, 120, 137, 151, 164, 187, 207, 224));
  EXPECT_THAT(GammaTable[19].Levels,
              ElementsAre(2, 4, 9, 13, 18, 27, 35, 43, 52, 68, 84, 100, 132, 163, 194));
}

// At level 8 these rows meet a whole number, and the camera is tuned one below it.
TEST(GammaTableTest, Rows8And12And16HoldOneLessAtInputLevel8) {
  EXPECT_EQ(GammaTable[8].Levels[2], 63);
  EXPECT_EQ(GammaTable[12].Levels[2], 31);
  EXPECT_EQ(GammaTable[16].Levels[2], 15);
  EXPECT_EQ(GammaTable[4].Levels[2], 128) << "the fourth such row is unchanged";
}

TEST(GammaTableTest, AllTwentyRowsFollowTheCurve) {
  for (int row = 0; row < 20; ++row) {
    EXPECT_THAT(GammaTable[row].Levels, ElementsAreArray(GammaReference(row))) << "row " << row;
  }
}

TEST(GammaTableTest, TheRowAheadIsBlackButForTheTwelfthKnot) {
  EXPECT_THAT(GammaRowAt(-1).Levels, ElementsAre(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 235, 0, 0, 0));
}

TEST(GammaTableTest, ARowOutsideTheTableIsTheNearerEnd) {
  EXPECT_EQ(&GammaRowAt(20), &GammaTable[19]);
  EXPECT_EQ(&GammaRowAt(std::numeric_limits<std::int32_t>::max()), &GammaTable[19]);
  EXPECT_EQ(&GammaRowAt(-2), &GammaRowAt(-1));
  EXPECT_EQ(&GammaRowAt(std::numeric_limits<std::int32_t>::min()), &GammaRowAt(-1));
}

std::vector<std::string> GammaTrafficOf(SensorType type, std::int32_t gamma) {
  RegisterSpace camera;
  camera.Context().SensorType = type;
  camera.Context().Gamma = gamma;
  EXPECT_EQ(ApplyImageControl(6, camera.Context()), 0);
  return camera.Accesses();
}

struct GammaChoice {
  std::int32_t Gamma;
  int Row;
  int RowOnVGA0708;
};

class GammaStep : public ::testing::TestWithParam<GammaChoice> {};

TEST_P(GammaStep, ChoosesItsRowOnEverySensor) {
  for (const NamedSensor& sensor : kSensors) {
    const int row = sensor.Type == SensorTypeVGA0708 ? GetParam().RowOnVGA0708 : GetParam().Row;
    EXPECT_EQ(GammaTrafficOf(sensor.Type, GetParam().Gamma), GammaTraffic(row)) << sensor.Name;
  }
}

INSTANTIATE_TEST_SUITE_P(
    WholeRange, GammaStep,
    ::testing::Values(GammaChoice{1, -1, -1}, GammaChoice{2, 0, 0}, GammaChoice{3, 1, 0},
                      GammaChoice{4, 2, 1}, GammaChoice{5, 3, 2}, GammaChoice{6, 4, 3},
                      GammaChoice{7, 5, 4}, GammaChoice{8, 6, 5}, GammaChoice{9, 7, 6},
                      GammaChoice{10, 8, 7}, GammaChoice{11, 9, 8}, GammaChoice{12, 10, 9},
                      GammaChoice{13, 11, 10}, GammaChoice{14, 12, 11}, GammaChoice{15, 13, 12},
                      GammaChoice{16, 14, 13}, GammaChoice{17, 15, 14}, GammaChoice{18, 16, 15},
                      GammaChoice{19, 17, 16}, GammaChoice{20, 18, 17}),
    [](const auto& choice) { return "Gamma" + std::to_string(choice.param.Gamma); });

INSTANTIATE_TEST_SUITE_P(
    OutsideTheRange, GammaStep,
    ::testing::Values(GammaChoice{std::numeric_limits<std::int32_t>::min(), -1, -1},
                      GammaChoice{std::numeric_limits<std::int32_t>::max(), 19, 19}),
    [](const auto& choice) { return choice.param.Gamma < 0 ? "Least" : "Largest"; });

TEST(GammaStepOrder, WritesTheThreeRegisterSetsOneAfterTheOther) {
  const auto traffic = GammaTrafficOf(SensorTypeOV7660, 11);
  ASSERT_EQ(traffic.size(), 45U);
  EXPECT_EQ(traffic[0], "write bridge FF31=1C");
  EXPECT_EQ(traffic[14], "write bridge FF3F=E0");
  EXPECT_EQ(traffic[15], "write bridge FF81=1C");
  EXPECT_EQ(traffic[29], "write bridge FF8F=E0");
  EXPECT_EQ(traffic[30], "write bridge FF91=1C");
  EXPECT_EQ(traffic[44], "write bridge FF9F=E0");
}

TEST(GammaStepOrder, Gamma2And3AreTheSameFlatRowOnVGA0708) {
  const auto flat = GammaTrafficOf(SensorTypeVGA0708, 2);
  EXPECT_EQ(flat, GammaTrafficOf(SensorTypeVGA0708, 3));
  for (const std::string& access : flat) EXPECT_THAT(access, ::testing::EndsWith("=FF"));
}

}  // namespace
}  // namespace lidcam::test
