#include "camera_model/optics/picture_processing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "tests/camera_model/camera_bench.h"

namespace lidcam::camera_model {
namespace {

struct Yuv {
  int Y = 0;
  int U = 0;
  int V = 0;
};

/// A camera in front of a wall of one colour, or of a picture.
class Studio {
 public:
  explicit Studio(SensorModel model = SensorModel::VGA0708) : bench{model} {}

  Yuv Wall(std::uint8_t r, std::uint8_t g, std::uint8_t b) {
    RgbImage wall;
    wall.Resize(8, 4);
    for (std::size_t at = 0; at < wall.Pixels.size(); at += 3) {
      wall.Pixels[at] = r;
      wall.Pixels[at + 1] = g;
      wall.Pixels[at + 2] = b;
    }
    Shoot(wall);
    return At(2, 2);
  }

  void Shoot(const RgbImage& view) {
    width_ = view.Width;
    const double exposure[] = {Exposure};
    processor.Process(view, ReadPictureSettings(bench.bridge), exposure);
  }

  [[nodiscard]] Yuv At(std::size_t x, std::size_t y) const {
    const auto picture = processor.Yuy2();
    const std::size_t pair = (y * width_ + x / 2 * 2) * 2;
    return {picture[pair + 2 * (x % 2)], picture[pair + 1], picture[pair + 3]};
  }

  CameraBench bench;
  PictureProcessor processor;
  double Exposure = 1.0;

 private:
  std::size_t width_ = 0;
};

// Black left of white, below them red left of blue.
RgbImage FourCorners() {
  RgbImage view;
  view.Resize(8, 4);
  for (std::uint32_t y = 0; y < 4; ++y) {
    for (std::uint32_t x = 0; x < 8; ++x) {
      std::uint8_t* pixel = view.Row(y) + std::size_t{x} * 3;
      const bool isRight = x >= 4;
      const bool isLow = y >= 2;
      pixel[0] = (isLow ? !isRight : isRight) ? 200 : 0;
      pixel[1] = !isLow && isRight ? 200 : 0;
      pixel[2] = isRight ? 200 : 0;
    }
  }
  return view;
}

TEST(PictureProcessing, PowerUpShowsASceneAsItIs) {
  Studio studio;
  for (const int level : {40, 90, 128, 180, 230}) {
    const auto grey = static_cast<std::uint8_t>(level);
    const Yuv seen = studio.Wall(grey, grey, grey);
    EXPECT_NEAR(seen.Y, 16 + level * 219 / 255, 3) << level;
    EXPECT_NEAR(seen.U, 128, 1);
    EXPECT_NEAR(seen.V, 128, 1);
  }
  const Yuv red = studio.Wall(200, 0, 0);
  EXPECT_NEAR(red.Y, 67, 3);
  EXPECT_NEAR(red.U, 98, 3);
  EXPECT_NEAR(red.V, 215, 3);
  const Yuv blue = studio.Wall(0, 0, 200);
  EXPECT_NEAR(blue.U, 215, 3);
  EXPECT_NEAR(blue.V, 114, 3);
}

TEST(PictureProcessing, TheHostsUsualControlsShowNaturalColours) {
  Studio studio;
  studio.bench.WriteBridge(0x77, 20);
  studio.bench.WriteBridge(0x0F, 0x84);
  studio.bench.WriteBridge(0x78, 0xC0);
  studio.bench.WriteBridge(0x79, 0xC0);
  studio.bench.WriteBridge(0x43, 0x43);
  constexpr double kKnots[] = {2, 4, 8, 12, 16, 24, 32, 40, 48, 64, 80, 96, 128, 160, 192};
  for (std::uint8_t knot = 0; knot < 15; ++knot) {
    const auto value = static_cast<std::uint8_t>(256 * std::pow(kKnots[knot] / 256, 8 / 20.0));
    for (const int bank : {0x31, 0x81, 0x91}) {
      studio.bench.WriteBridge(static_cast<std::uint8_t>(bank + knot), value);
    }
  }
  EXPECT_NEAR(studio.Wall(128, 128, 128).Y, 16 + 110 + 20, 14);
  const Yuv red = studio.Wall(180, 30, 30);
  EXPECT_LT(red.U, 120);
  EXPECT_GT(red.V, 180);
  EXPECT_LT(red.V, 250);
  const Yuv green = studio.Wall(30, 180, 30);
  EXPECT_LT(green.U, 100);
  EXPECT_LT(green.V, 100);
  EXPECT_GT(green.V, 8);
}

TEST(PictureProcessing, BrightnessRaisesAndLowersTheLuma) {
  Studio studio;
  const int neutral = studio.Wall(128, 128, 128).Y;
  studio.bench.WriteBridge(0x77, 100);
  EXPECT_EQ(studio.Wall(128, 128, 128).Y, neutral + 50);
  studio.bench.WriteBridge(0x77, 0x9C);  // -100
  EXPECT_EQ(studio.Wall(128, 128, 128).Y, neutral - 50);
}

TEST(PictureProcessing, ContrastSpreadsTheLumaAroundTheMiddle) {
  for (const std::uint8_t address : std::initializer_list<std::uint8_t>{0x0F, 0x13, 0x14}) {
    Studio studio;
    const int dark = studio.Wall(60, 60, 60).Y;
    const int light = studio.Wall(200, 200, 200).Y;
    const std::uint8_t neutral = studio.bench.ReadBridge(address);
    studio.bench.WriteBridge(address, static_cast<std::uint8_t>(neutral + 0x20));
    const int moreDark = studio.Wall(60, 60, 60).Y;
    const int moreLight = studio.Wall(200, 200, 200).Y;
    studio.bench.WriteBridge(address, static_cast<std::uint8_t>(neutral - 0x20));
    const int lessDark = studio.Wall(60, 60, 60).Y;
    const int lessLight = studio.Wall(200, 200, 200).Y;
    if (address != 0x14) {
      EXPECT_LT(moreDark, dark) << int{address};
      EXPECT_GT(lessDark, dark) << int{address};
    } else {
      EXPECT_EQ(moreDark, dark);
    }
    if (address != 0x13) {
      EXPECT_GT(moreLight, light) << int{address};
      EXPECT_LT(lessLight, light) << int{address};
    } else {
      EXPECT_EQ(moreLight, light);
    }
  }
}

TEST(PictureProcessing, SaturationScalesEachColourDifference) {
  Studio studio;
  const Yuv neutral = studio.Wall(160, 100, 60);
  studio.bench.WriteBridge(0x78, 0x50);
  EXPECT_NEAR(studio.Wall(160, 100, 60).U - 128, (neutral.U - 128) / 2, 1);
  EXPECT_EQ(studio.Wall(160, 100, 60).V, neutral.V);
  studio.bench.WriteBridge(0x79, 0xF0);
  EXPECT_NEAR(studio.Wall(160, 100, 60).V - 128, (neutral.V - 128) * 3 / 2, 1);
  studio.bench.WriteBridge(0x78, 0);
  studio.bench.WriteBridge(0x79, 0);
  const Yuv grey = studio.Wall(160, 100, 60);
  EXPECT_EQ(grey.U, 128);
  EXPECT_EQ(grey.V, 128);
  EXPECT_EQ(grey.Y, neutral.Y);
}

RgbImage Edge() {
  RgbImage view;
  view.Resize(16, 2);
  for (std::uint32_t y = 0; y < 2; ++y) {
    for (std::uint32_t x = 0; x < 16; ++x) {
      for (std::size_t i = 0; i < 3; ++i) view.Row(y)[std::size_t{x} * 3 + i] = x < 8 ? 80 : 140;
    }
  }
  return view;
}

TEST(PictureProcessing, SharpnessOvershootsAtEdgesOnly) {
  Studio studio;
  int lastOvershoot = -1;
  for (const std::uint8_t value : std::initializer_list<std::uint8_t>{0x40, 0x43, 0x48}) {
    studio.bench.WriteBridge(0x43, value);
    studio.Shoot(Edge());
    const int overshoot = studio.At(8, 0).Y - studio.At(12, 0).Y;
    const int undershoot = studio.At(3, 0).Y - studio.At(7, 0).Y;
    EXPECT_GT(overshoot, lastOvershoot) << int{value};
    EXPECT_NEAR(overshoot, undershoot, 1);
    lastOvershoot = overshoot;
  }
  studio.bench.WriteBridge(0x43, 0x08);  // not switched on
  studio.Shoot(Edge());
  EXPECT_EQ(studio.At(8, 0).Y, studio.At(12, 0).Y);
}

struct KnotRow {
  std::uint8_t Offset;
  double Level;
};

TEST(PictureProcessing, EachGammaKnotMovesItsOwnLevelInEachColour) {
  constexpr KnotRow kRows[] = {{0, 2},   {1, 4},   {2, 8},    {3, 12},   {4, 16},
                               {5, 24},  {6, 32},  {7, 40},   {8, 48},   {9, 64},
                               {10, 80}, {11, 96}, {12, 128}, {13, 160}, {14, 192}};
  for (const KnotRow& row : kRows) {
    const auto grey = static_cast<std::uint8_t>(std::lround(255 * std::pow(row.Level / 256, 0.45)));
    for (const int bank : {0x31, 0x81, 0x91}) {
      Studio studio;
      const Yuv before = studio.Wall(grey, grey, grey);
      const auto address = static_cast<std::uint8_t>(bank + row.Offset);
      studio.bench.WriteBridge(
          address, static_cast<std::uint8_t>(std::min(studio.bench.ReadBridge(address) + 40, 255)));
      const Yuv after = studio.Wall(grey, grey, grey);
      EXPECT_GT(after.Y + (bank == 0x91 ? 1 : 0), before.Y) << "knot " << int{row.Offset};
      const int redder = after.V - before.V;
      const int bluer = after.U - before.U;
      EXPECT_GT(bank == 0x31 ? redder : bank == 0x81 ? -redder - bluer : bluer, 0);
      EXPECT_NEAR(studio.Wall(255, 255, 255).Y, 235, 1);
    }
  }
}

TEST(PictureProcessing, AllKnotsAtFullMakeAllButBlackWhite) {
  Studio studio;
  for (const int bank : {0x31, 0x81, 0x91}) {
    for (int knot = 0; knot < 15; ++knot) {
      studio.bench.WriteBridge(static_cast<std::uint8_t>(bank + knot), 255);
    }
  }
  EXPECT_GE(studio.Wall(60, 60, 60).Y, 230);
  EXPECT_LE(studio.Wall(0, 0, 0).Y, 17);
}

TEST(PictureProcessing, MonochromeTakesTheColourAndKeepsTheLuma) {
  Studio studio;
  const int luma = studio.Wall(200, 40, 90).Y;
  studio.bench.WriteBridge(0x42, 0x40);
  const Yuv grey = studio.Wall(200, 40, 90);
  EXPECT_EQ(grey.U, 128);
  EXPECT_EQ(grey.V, 128);
  EXPECT_EQ(grey.Y, luma);
}

TEST(PictureProcessing, EffectsOfRegister42) {
  Studio studio;
  const Yuv plain = studio.Wall(200, 60, 60);
  studio.bench.WriteBridge(0x42, 0x02);  // negative
  const Yuv negative = studio.Wall(200, 60, 60);
  EXPECT_EQ(negative.Y, 255 - plain.Y);
  EXPECT_EQ(negative.U, 256 - plain.U);
  EXPECT_EQ(negative.V, 256 - plain.V);

  studio.bench.WriteBridge(0x42, 0x20);  // tint
  studio.bench.WriteBridge(0x0B, 0x30);
  studio.bench.WriteBridge(0x0C, 0xA0);
  const Yuv tinted = studio.Wall(60, 200, 60);
  EXPECT_EQ(tinted.U, 0x30);
  EXPECT_EQ(tinted.V, 0xA0);

  studio.bench.WriteBridge(0x42, 0x08);  // relief
  studio.Shoot(Edge());
  EXPECT_EQ(studio.At(2, 0).Y, 128);
  EXPECT_GT(studio.At(8, 0).Y, 200);
  EXPECT_EQ(studio.At(8, 0).U, 128);

  studio.bench.WriteBridge(0x42, 0x04);  // sketch
  studio.Shoot(Edge());
  EXPECT_GT(studio.At(2, 0).Y, 230);
  EXPECT_LT(studio.At(8, 0).Y, 60);

  studio.bench.WriteBridge(0x42, 0x01);  // solarised
  const int light = studio.Wall(230, 230, 230).Y;
  EXPECT_LT(light, 60);
  EXPECT_EQ(studio.Wall(60, 60, 60).Y, Studio{}.Wall(60, 60, 60).Y);
}

TEST(PictureProcessing, PowerUpStandsUprightAndUnmirrored) {
  for (const SensorModel model : kAllSensorModels) {
    Studio studio{model};
    studio.Shoot(FourCorners());
    EXPECT_LT(studio.At(0, 0).Y, 20) << NameOf(model);
    EXPECT_GT(studio.At(7, 0).Y, 150) << NameOf(model);
    EXPECT_GT(studio.At(0, 3).V, 200) << NameOf(model);
    EXPECT_GT(studio.At(7, 3).U, 200) << NameOf(model);
  }
}

struct OrientationRow {
  std::uint8_t Sensor0C;
  std::uint8_t Bridge26;
  bool Mirrored;
  bool Flipped;
};

TEST(PictureProcessing, FourOrientationsOfVga0708KeepTheirColours) {
  constexpr OrientationRow kRows[] = {{0x60, 0x20, false, false},
                                      {0x20, 0x30, false, true},
                                      {0x00, 0x00, true, true},
                                      {0x40, 0x10, true, false}};
  for (const OrientationRow& row : kRows) {
    Studio studio;
    studio.bench.WriteSensor(0x0C, row.Sensor0C);
    studio.bench.WriteBridge(0x26, row.Bridge26);
    studio.Shoot(FourCorners());
    const std::size_t left = row.Mirrored ? 7 : 0;
    const std::size_t top = row.Flipped ? 3 : 0;
    EXPECT_LT(studio.At(left, top).Y, 20);
    EXPECT_GT(studio.At(7 - left, top).Y, 150);
    EXPECT_GT(studio.At(left, 3 - top).V, 200);
    EXPECT_GT(studio.At(7 - left, 3 - top).U, 200);
  }
}

TEST(PictureProcessing, WrongColourPhaseExchangesRedAndBlue) {
  Studio studio;
  studio.bench.WriteBridge(0x26, 0x10);
  const Yuv seen = studio.Wall(200, 0, 0);
  EXPECT_GT(seen.U, 200);
  EXPECT_LT(seen.V, 128);
}

TEST(PictureProcessing, MoreLightIsBrighterAndNeverWraps) {
  Studio studio;
  int last = -1;
  for (const double exposure : {0.0, 0.25, 0.5, 1.0, 2.0, 4.0, 1000.0}) {
    studio.Exposure = exposure;
    const int luma = studio.Wall(128, 128, 128).Y;
    EXPECT_GT(luma, last) << exposure;
    last = luma;
  }
  EXPECT_NEAR(last, 235, 1);
}

TEST(PictureProcessing, LinesMayHaveDifferentLight) {
  RgbImage view;
  view.Resize(4, 3);
  std::fill(view.Pixels.begin(), view.Pixels.end(), std::uint8_t{120});
  CameraBench bench{SensorModel::VGA0708};
  PictureProcessor processor;
  const double exposure[] = {0.5, 1.0, 2.0};
  processor.Process(view, ReadPictureSettings(bench.bridge), exposure);
  const auto picture = processor.Yuy2();
  EXPECT_LT(picture[0], picture[8]);
  EXPECT_LT(picture[8], picture[16]);
}

TEST(PictureProcessing, NoByteCanBelongToAMarker) {
  Studio studio;
  studio.bench.WriteBridge(0x77, 100);
  studio.bench.WriteBridge(0x0F, 0xFF);
  studio.bench.WriteBridge(0x78, 0xFF);
  studio.bench.WriteBridge(0x79, 0xFF);
  studio.Shoot(FourCorners());
  const auto picture = studio.processor.Yuy2();
  EXPECT_EQ(std::count(picture.begin(), picture.end(), 0xFF), 0);
}

// Cached rows must equal those of a new picture processor.
TEST(PictureProcessing, KeptRowsEqualFreshOnes) {
  Studio kept;
  RgbImage view = FourCorners();
  kept.Shoot(view);
  for (int step = 0; step < 20; ++step) {
    view.Row(static_cast<std::uint32_t>(step % 4))[step] = static_cast<std::uint8_t>(step * 12);
    if (step == 7) kept.bench.WriteSensor(0x0C, 0x20);
    if (step == 11) kept.Exposure = 1.5;
    if (step == 15) kept.bench.WriteBridge(0x77, 30);
    kept.Shoot(view);
    PictureProcessor fresh;
    const double exposure[] = {kept.Exposure};
    fresh.Process(view, ReadPictureSettings(kept.bench.bridge), exposure);
    ASSERT_TRUE(std::equal(fresh.Yuy2().begin(), fresh.Yuy2().end(), kept.processor.Yuy2().begin(),
                           kept.processor.Yuy2().end()))
        << "step " << step;
  }
}

TEST(PictureProcessing, OfASceneThatChangedInPartIsThatOfTheSceneAlone) {
  PictureSettings settings;
  for (const bool isMirrored : {false, true}) {
    settings.IsMirrored = isMirrored;
    RgbImage view;
    view.Resize(98, 2);
    view.Pixels.assign(view.Pixels.size(), 90);
    const double exposure[] = {1.0};
    PictureProcessor processor;
    for (std::uint32_t x = 0; x < view.Width; ++x) {
      view.Row(0)[3 * x + 1] = static_cast<std::uint8_t>(100 + x);
      view.Row(1)[3 * (view.Width - 1 - x)] = static_cast<std::uint8_t>(200 - x);
      if (x % 3 == 1) view.Row(1)[3 * x + 2] = 7;
      processor.Process(view, settings, exposure);
      PictureProcessor fresh;
      fresh.Process(view, settings, exposure);
      ASSERT_TRUE(std::ranges::equal(processor.Yuy2(), fresh.Yuy2())) << x;
    }
  }
}

}  // namespace
}  // namespace lidcam::camera_model
