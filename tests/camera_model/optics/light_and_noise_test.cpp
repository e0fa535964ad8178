#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "tests/camera_model/frames/stream_bench.h"

namespace lidcam::camera_model {
namespace {

constexpr std::size_t kWidth = 640;
constexpr std::size_t kHeight = 480;
constexpr double kLineSeconds = 860 / 15e6;

class WallCamera : public StreamBench {
 public:
  explicit WallCamera(std::uint8_t grey, std::uint64_t seed = 1)
      : StreamBench{SensorModel::VGA0708, seed, std::make_shared<GreyWall>(grey)} {
    camera.WriteBridge(0x0D, 0x38);
  }

  void Expose(unsigned lines, std::uint8_t coarse = 1, std::uint8_t fine = 156) {
    WriteLines(lines);
    camera.WriteSensor(0x60, coarse);
    camera.WriteSensor(0x5D, fine);
    camera.CommitExposure();
    (void)WholeFrame();
  }
};

double RowMean(const std::vector<std::uint8_t>& frame, std::size_t row) {
  double sum = 0;
  for (std::size_t x = 0; x < kWidth; ++x) sum += frame[64 + (row * kWidth + x) * 2];
  return sum / kWidth;
}

double Ripple(const std::vector<std::uint8_t>& frame) {
  double least = 255;
  double most = 0;
  for (std::size_t row = 0; row < kHeight; ++row) {
    least = std::min(least, RowMean(frame, row));
    most = std::max(most, RowMean(frame, row));
  }
  return most - least;
}

double Variance(const std::vector<std::uint8_t>& frame) {
  double sum = 0;
  double squares = 0;
  for (std::size_t at = 64; at + 2 < frame.size(); at += 2) {
    sum += frame[at];
    squares += double{1} * frame[at] * frame[at];
  }
  const double count = static_cast<double>(kWidth * kHeight);
  return squares / count - (sum / count) * (sum / count);
}

struct MainsRow {
  unsigned Rate;
  unsigned LinesOfHalfCycle;
  unsigned OtherLines;
};

class MainsLight : public testing::TestWithParam<MainsRow> {};

INSTANTIATE_TEST_SUITE_P(Rates, MainsLight,
                         testing::Values(MainsRow{100, 174, 261}, MainsRow{120, 145, 217}));

TEST_P(MainsLight, LeavesNoRippleInWholeHalfCycles) {
  for (unsigned count = 1; count <= 20; ++count) {
    WallCamera bench{128};
    // The same picture in each exposure time.
    bench.stream.SetLight(
        {.Level = 522.0 / (count * GetParam().LinesOfHalfCycle), .MainsRate = GetParam().Rate});
    bench.Expose(count * GetParam().LinesOfHalfCycle);
    const auto frame = bench.WholeFrame();
    EXPECT_LE(Ripple(frame), 1.0) << count;
    EXPECT_NEAR(frame[23], 126, 4) << count;
  }
}

TEST_P(MainsLight, BandsThePictureInBrokenHalfCycles) {
  WallCamera bench{128};
  bench.stream.SetLight({.Level = 522.0 / GetParam().OtherLines, .MainsRate = GetParam().Rate});
  bench.Expose(GetParam().OtherLines);
  EXPECT_GT(Ripple(bench.WholeFrame()), 4.0);
}

TEST(MainsLight, HalfCyclesOfTheOtherMainsDoNotHelp) {
  WallCamera bench{128};
  bench.stream.SetLight({.Level = 3, .MainsRate = 120});
  bench.Expose(174);
  EXPECT_GT(Ripple(bench.WholeFrame()), 4.0);
}

TEST(MainsLight, BandsLieWhereTheLinesAreReadOut) {
  WallCamera bench{128};
  const SceneLight light{.Level = 6, .MainsRate = 100};
  bench.stream.SetLight(light);
  bench.Expose(87);
  const auto frame = bench.WholeFrame();
  const double start = static_cast<double>(bench.headAt) / 8000;
  std::vector<std::pair<double, double>> rows;
  for (std::size_t row = 0; row < kHeight; row += 8) {
    const double readOut = start + static_cast<double>(row) * kLineSeconds;
    rows.emplace_back(MeanLight(light, readOut - 87 * kLineSeconds, 87 * kLineSeconds),
                      RowMean(frame, row));
  }
  std::sort(rows.begin(), rows.end());
  for (std::size_t i = 1; i < rows.size(); ++i) {
    EXPECT_GE(rows[i].second, rows[i - 1].second - 0.6) << i;
  }
  EXPECT_GT(rows.back().second, rows.front().second + 10);
}

TEST(LightOverTime, AStepFallsIntoTheFrameLineByLine) {
  WallCamera bench{128};
  const double step = 0.5;
  bench.stream.SetLight({.Schedule = {{0, 300}, {step, 30}}});
  bench.stream.Restart(bench.now);
  const double zero = static_cast<double>(bench.now);
  const double time = 522 * kLineSeconds;
  int before = 0;
  int within = 0;
  int after = 0;
  double bright = 0;
  double last = 0;
  for (int count = 0; count < 20; ++count) {
    const auto frame = bench.WholeFrame();
    EXPECT_EQ(frame[23], MeanLuminance(frame));
    const double start = (static_cast<double>(bench.headAt) - zero) / 8000;
    if (count == 0) bright = RowMean(frame, 0);
    for (std::size_t row = 0; row < kHeight; ++row) {
      const double readOut = start + static_cast<double>(row) * kLineSeconds;
      const double mean = RowMean(frame, row);
      if (readOut <= step) {
        ASSERT_NEAR(mean, bright, 0.5) << count << " line " << row;
        ++before;
      } else if (readOut - time >= step) {
        ASSERT_LT(mean, 64) << count << " line " << row;
        ++after;
      } else {
        if (within > 0) {
          ASSERT_LE(mean, last + 0.5) << count << " line " << row;
        }
        ++within;
      }
      last = mean;
    }
  }
  EXPECT_GT(before, 5000);
  EXPECT_GT(after, 1000);
  // As many lines as are read out in one exposure time; the blanking may fall into it.
  EXPECT_GT(within, 350);
  EXPECT_LE(within, 523);
}

TEST(LightOverTime, BeginsAnewWithEachStream) {
  WallCamera bench{128};
  bench.stream.SetLight({.Schedule = {{0, 300}, {0.2, 3}}});
  bench.stream.Restart(bench.now);
  const int bright = bench.WholeFrame()[23];
  for (int count = 0; count < 12; ++count) (void)bench.WholeFrame();
  EXPECT_LT(bench.WholeFrame()[23], bright / 2);
  bench.stream.Restart(bench.now);
  EXPECT_NEAR(bench.WholeFrame()[23], bright, 1);
}

TEST(LightOverTime, FourDecadesGoFromTheBlackFloorToFullPixels) {
  int last = 0;
  for (const double lux : {0.03, 0.3, 3.0, 30.0, 300.0, 3000.0, 100000.0}) {
    WallCamera bench{128};
    bench.stream.SetLight({.Schedule = {{0, lux}}});
    const int luma = bench.WholeFrame()[23];
    EXPECT_GE(luma, last) << lux;
    if (lux == 0.03) {
      EXPECT_LE(luma, 3);
    }
    if (lux >= 3 && lux <= 3000) {
      EXPECT_GT(luma, last + 4) << lux;
    }
    if (lux == 100000) {
      EXPECT_EQ(luma, 255);
    }
    last = luma;
  }
}

TEST(LightOverTime, LongAmplifiedExposuresLiftTheBlackFloor) {
  WallCamera usual{128};
  WallCamera longest{128};
  for (WallCamera* bench : {&usual, &longest}) bench->stream.SetLight({.Level = 0});
  usual.Expose(522);
  longest.Expose(3480, 3, 192);
  EXPECT_EQ(usual.WholeFrame()[23], 0);
  const int floor = longest.WholeFrame()[23];
  EXPECT_GT(floor, 1);
  EXPECT_LT(floor, 9);
}

TEST(Noise, GrowsWithTheGainForTheSamePicture) {
  double last = 0;
  for (const auto& [coarse, fine] : {std::pair{1, 128}, {1, 240}, {3, 192}, {3, 255}}) {
    WallCamera bench{128};
    const double gain = (coarse == 3 ? 1.53 : 1.0) * fine / 156;
    bench.stream.SetLight({.Level = 0.05 / gain});
    bench.Expose(522, static_cast<std::uint8_t>(coarse), static_cast<std::uint8_t>(fine));
    const auto frame = bench.WholeFrame();
    EXPECT_GT(Variance(frame), last * 1.1) << coarse << ' ' << fine;
    last = Variance(frame);
  }
}

TEST(Noise, IsNextToNothingInTheUsualRoomAndGrainInTheDark) {
  WallCamera room{128};
  room.Expose(522);
  EXPECT_LT(Variance(room.WholeFrame()), 0.15);
  WallCamera dark{128};
  dark.stream.SetLight({.Schedule = {{0, 0.5}}});
  dark.Expose(3480, 3, 192);
  EXPECT_GT(Variance(dark.WholeFrame()), 1.0);
}

TEST(Noise, FullPixelsHaveNone) {
  WallCamera bench{200};
  bench.stream.SetLight({.Level = 100});
  bench.Expose(3480, 3, 192);
  EXPECT_EQ(Variance(bench.WholeFrame()), 0.0);
}

TEST(Noise, SameSeedGivesSameBytesInAllLightsAndOtherSeedsOthers) {
  StreamBench first{SensorModel::VGA0708, 5};
  StreamBench second{SensorModel::VGA0708, 5};
  StreamBench third{SensorModel::VGA0708, 6};
  for (StreamBench* bench : {&first, &second, &third}) {
    bench->camera.WriteBridge(0x0D, 0x38);
    bench->stream.SetLight(
        {.Level = 1, .MainsRate = 100, .Schedule = {{0, 300}, {0.2, 2}, {0.4, 300}}});
  }
  for (int count = 0; count < 15; ++count) {
    for (StreamBench* bench : {&first, &second, &third}) {
      bench->WriteLines(static_cast<unsigned>(174 * (count % 5 + 1)));
      bench->camera.WriteSensor(0x60, 3);
      bench->camera.CommitExposure();
    }
    const auto frame = first.WholeFrame();
    EXPECT_TRUE(frame == second.WholeFrame()) << count;
    const auto other = third.WholeFrame();
    EXPECT_FALSE(std::equal(frame.begin() + 64, frame.end(), other.begin() + 64)) << count;
  }
}

TEST(Noise, DiffersFromFrameToFrameAndFromLineToLine) {
  WallCamera bench{128};
  bench.stream.SetLight({.Level = 0.01});
  bench.Expose(3480, 3, 192);
  const auto first = bench.WholeFrame();
  const auto second = bench.WholeFrame();
  EXPECT_FALSE(std::equal(first.begin() + 64, first.end(), second.begin() + 64));
  EXPECT_FALSE(
      std::equal(first.begin() + 64, first.begin() + 64 + 1280, first.begin() + 64 + 1280));
}

TEST(Noise, KeepsPixelBytesOffTheMarkersByte) {
  for (const double level : {0.001, 0.01, 0.5, 50.0}) {
    StreamBench bench;
    bench.camera.WriteBridge(0x0D, 0x38);
    bench.camera.WriteBridge(0x77, level > 1 ? 127 : 0x80);
    bench.camera.WriteBridge(0x43, 0x7F);
    bench.stream.SetLight({.Level = level});
    bench.WriteLines(3480);
    bench.camera.WriteSensor(0x60, 3);
    bench.camera.WriteSensor(0x5D, 255);
    bench.camera.CommitExposure();
    (void)bench.WholeFrame();
    const auto frame = bench.WholeFrame();
    const auto [least, most] = std::minmax_element(frame.begin() + 64, frame.end() - 2);
    EXPECT_GE(*least, 1);
    EXPECT_LE(*most, 254);
  }
}

TEST(Header, TellsTheMeanLuminanceOfTheFrameThatIsSent) {
  StreamBench bench;
  bench.camera.WriteBridge(0x0D, 0x38);
  bench.stream.SetLight({.MainsRate = 120, .Schedule = {{0, 300}, {0.3, 1}, {0.9, 20000}}});
  int level = 3;
  for (int count = 0; count < 30; ++count) {
    const auto frame = bench.WholeFrame();
    EXPECT_EQ(frame[23], MeanLuminance(frame)) << count;
    EXPECT_EQ(frame[16], count == 0 ? 3 : level) << count;
    // Values committed now appear in the frame after the next one.
    if (count > 0) level = (count - 1) % 6 + 1;
    bench.WriteLines(static_cast<unsigned>(174 * (count % 6 + 1)));
    bench.camera.CommitExposure();
  }
}

}  // namespace
}  // namespace lidcam::camera_model
