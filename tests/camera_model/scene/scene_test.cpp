#include "camera_model/scene/scene.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <jpeglib.h>
#include <png.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "camera_model/scene/test_card.h"

namespace lidcam::camera_model {
namespace {

using testing::AllOf;
using testing::HasSubstr;

struct Rgb {
  int R = 0;
  int G = 0;
  int B = 0;
};

Rgb At(const RgbImage& image, std::uint32_t x, std::uint32_t y) {
  const std::uint8_t* pixel = image.Row(y) + std::size_t{x} * 3;
  return {pixel[0], pixel[1], pixel[2]};
}

RgbImage Rendered(Scene& scene, std::uint64_t frame, std::uint32_t width, std::uint32_t height) {
  RgbImage image;
  image.Resize(width, height);
  scene.Render(frame, image);
  return image;
}

class SceneFiles : public testing::Test {
 protected:
  SceneFiles() {
    folder_ =
        std::filesystem::temp_directory_path() / ("lidcam-scene-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder_);
  }
  ~SceneFiles() override { std::filesystem::remove_all(folder_); }

  [[nodiscard]] std::string Path(const char* name) const { return (folder_ / name).string(); }

  std::string Write(const char* name, const std::string& content) const {
    std::ofstream(Path(name), std::ios::binary) << content;
    return Path(name);
  }

  static std::string ErrorOf(const std::string& path) {
    try {
      (void)OpenSceneFile(path);
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "accepted";
  }

  /// Red, green, blue and white quarters.
  static RgbImage Quarters() {
    RgbImage image;
    image.Resize(32, 16);
    for (std::uint32_t y = 0; y < 16; ++y) {
      for (std::uint32_t x = 0; x < 32; ++x) {
        std::uint8_t* pixel = image.Row(y) + std::size_t{x} * 3;
        const bool isRight = x >= 16;
        const bool isLow = y >= 8;
        pixel[0] = isRight == isLow ? 200 : 0;
        pixel[1] = isRight ? 200 : 0;
        pixel[2] = isLow ? 200 : 0;
      }
    }
    return image;
  }

  std::string WritePng() const {
    const RgbImage image = Quarters();
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    png.width = image.Width;
    png.height = image.Height;
    png.format = PNG_FORMAT_RGB;
    EXPECT_NE(
        png_image_write_to_file(&png, Path("a.png").c_str(), 0, image.Pixels.data(), 0, nullptr),
        0);
    return Path("a.png");
  }

  std::string WriteJpeg() const {
    RgbImage image = Quarters();
    jpeg_compress_struct jpeg;
    jpeg_error_mgr errors;
    jpeg.err = jpeg_std_error(&errors);
    jpeg_create_compress(&jpeg);
    std::FILE* file = std::fopen(Path("a.jpg").c_str(), "wb");
    jpeg_stdio_dest(&jpeg, file);
    jpeg.image_width = image.Width;
    jpeg.image_height = image.Height;
    jpeg.input_components = 3;
    jpeg.in_color_space = JCS_RGB;
    jpeg_set_defaults(&jpeg);
    jpeg_set_quality(&jpeg, 95, TRUE);
    jpeg_start_compress(&jpeg, TRUE);
    for (std::uint32_t y = 0; y < image.Height; ++y) {
      JSAMPROW row = image.Row(y);
      jpeg_write_scanlines(&jpeg, &row, 1);
    }
    jpeg_finish_compress(&jpeg);
    jpeg_destroy_compress(&jpeg);
    std::fclose(file);
    return Path("a.jpg");
  }

  static void ExpectQuarters(const std::string& path, int tolerance) {
    const auto scene = OpenSceneFile(path);
    for (const auto& [width, height] : {std::pair{64U, 48U}, {16U, 8U}, {160U, 120U}}) {
      const RgbImage image = Rendered(*scene, 0, width, height);
      const auto near = [&](std::uint32_t x, std::uint32_t y, Rgb wanted) {
        const Rgb seen = At(image, x, y);
        EXPECT_NEAR(seen.R, wanted.R, tolerance);
        EXPECT_NEAR(seen.G, wanted.G, tolerance);
        EXPECT_NEAR(seen.B, wanted.B, tolerance);
      };
      near(1, 1, {200, 0, 0});
      near(width - 2, 1, {0, 200, 0});
      near(1, height - 2, {0, 0, 200});
      near(width - 2, height - 2, {200, 200, 200});
    }
  }

 private:
  std::filesystem::path folder_;
};

TEST(TestCard, HasEightBarsInOrder) {
  TestCard card;
  const RgbImage image = Rendered(card, 0, 640, 480);
  const auto isOn = [&](std::uint32_t bar) {
    const Rgb seen = At(image, bar * 80 + 40, 100);
    return (seen.R > 100 ? 4 : 0) + (seen.G > 100 ? 2 : 0) + (seen.B > 100 ? 1 : 0);
  };
  const int kExpected[] = {7, 6, 3, 2, 5, 4, 1, 0};
  for (std::uint32_t bar = 0; bar < 8; ++bar) EXPECT_EQ(isOn(bar), kExpected[bar]) << bar;
}

TEST(TestCard, RampRisesFromLeftToRight) {
  TestCard card;
  const RgbImage image = Rendered(card, 0, 640, 480);
  for (std::uint32_t x = 10; x < 640; x += 10) {
    EXPECT_GE(At(image, x, 270).R, At(image, x - 10, 270).R);
  }
  EXPECT_GT(At(image, 639, 270).R, At(image, 0, 270).R + 200);
}

// Amount of ink of the counter's digit at a place, which identifies the digit.
std::size_t InkOf(const RgbImage& image, std::uint32_t place) {
  std::size_t ink = 0;
  for (std::uint32_t y = 384; y < 460; ++y) {
    for (std::uint32_t x = 0; x < 42; ++x) {
      const Rgb seen = At(image, 166 + place * 51 + x, y);
      if (seen.R > 200) ++ink;
    }
  }
  return ink;
}

TEST(TestCard, CounterShowsTheFrameNumber) {
  TestCard card;
  const RgbImage zero = Rendered(card, 0, 640, 480);
  const RgbImage one = Rendered(card, 1, 640, 480);
  const RgbImage ten = Rendered(card, 10, 640, 480);
  EXPECT_EQ(InkOf(zero, 4), InkOf(one, 4));
  EXPECT_LT(InkOf(one, 5), InkOf(zero, 5));
  EXPECT_EQ(InkOf(ten, 5), InkOf(zero, 5));
  EXPECT_LT(InkOf(ten, 4), InkOf(zero, 4));
}

TEST(TestCard, BallGoesFromLeftToRight) {
  TestCard card;
  const auto ballAt = [&card](std::uint64_t frame) {
    const RgbImage image = Rendered(card, frame, 640, 480);
    for (std::uint32_t x = 140; x < 500; ++x) {
      const Rgb seen = At(image, x, 340);
      if (seen.R > 180 && seen.B < 80) return x;
    }
    return 0U;
  };
  EXPECT_GT(ballAt(0), 0U);
  EXPECT_GT(ballAt(40), ballAt(0) + 60);
  EXPECT_GT(ballAt(110), ballAt(40) + 100);
  EXPECT_EQ(ballAt(120), ballAt(0));
}

TEST(TestCard, FillsEverySize) {
  TestCard card;
  for (const auto& [width, height] : {std::pair{1280U, 1024U},
                                      {640U, 476U},
                                      {320U, 256U},
                                      {238U, 159U},
                                      {160U, 119U},
                                      {120U, 80U},
                                      {2U, 2U}}) {
    const RgbImage image = Rendered(card, 7, width, height);
    EXPECT_EQ(image.Pixels.size(), std::size_t{width} * height * 3);
  }
}

TEST_F(SceneFiles, PngIsShown) {
  ExpectQuarters(WritePng(), 0);
}

TEST_F(SceneFiles, JpegIsShown) {
  ExpectQuarters(WriteJpeg(), 12);
}

TEST_F(SceneFiles, Y4mPlaysInItsOwnTimeAndRepeats) {
  std::string file = "YUV4MPEG2 W4 H2 F15:1 Ip A1:1 C420jpeg\n";
  for (const int luma : {16, 126, 235}) {
    file += "FRAME\n" + std::string(8, static_cast<char>(luma)) + std::string(4, '\x80');
  }
  const auto scene = OpenSceneFile(Write("a.y4m", file));
  const int kExpected[] = {0, 0, 128, 128, 255, 255, 0, 0, 128};
  for (std::uint64_t frame = 0; frame < 9; ++frame) {
    const Rgb seen = At(Rendered(*scene, frame, 8, 4), 3, 3);
    EXPECT_NEAR(seen.R, kExpected[frame], 1) << frame;
    EXPECT_EQ(seen.G, seen.R);
    EXPECT_EQ(seen.B, seen.R);
  }
}

TEST_F(SceneFiles, Y4mColoursOfEverySampling) {
  struct Row {
    const char* Space;
    std::size_t ChromaBytes;
  };
  for (const Row& row : {Row{" C420", 2}, Row{" C422", 4}, Row{" C444", 8}, Row{"", 2}}) {
    std::string file = std::string("YUV4MPEG2 W4 H2 F30:1") + row.Space + "\nFRAME\n";
    file += std::string(8, '\x51') + std::string(row.ChromaBytes, '\x5A') +
            std::string(row.ChromaBytes, '\xF0');
    const auto scene = OpenSceneFile(Write("b.y4m", file));
    const Rgb seen = At(Rendered(*scene, 0, 4, 2), 3, 1);
    EXPECT_GT(seen.R, 245) << row.Space;
    EXPECT_LT(seen.G, 10);
    EXPECT_LT(seen.B, 10);
  }
}

TEST_F(SceneFiles, BadFilesAreNamedWithTheReason) {
  struct Row {
    const char* Name;
    std::string Content;
    const char* Reason;
  };
  const std::string pngHead("\x89PNG\r\n\x1A\n\0\0\0\rIHDR", 16);
  const Row kRows[] = {
      {"text.txt", "hello", "neither a PNG, nor a JPEG, nor a Y4M"},
      {"empty.png", "", "neither a PNG"},
      {"cut.png", pngHead, "cut.png"},
      {"cut.jpg", "\xFF\xD8\xFF\xE0", "cut.jpg"},
      {"no-size.y4m", "YUV4MPEG2 F30:1\n", "0x0"},
      {"huge.y4m", "YUV4MPEG2 W99999 H2\n", "99999x2"},
      {"letters.y4m", "YUV4MPEG2 Wabc H2\n", "\"abc\""},
      {"rate.y4m", "YUV4MPEG2 W2 H2 F0:0\n", "rate is 0"},
      {"deep.y4m", "YUV4MPEG2 W2 H2 C420p10\n", "C420p10"},
      {"none.y4m", "YUV4MPEG2 W2 H2\n", "no whole frame"},
      {"half.y4m", "YUV4MPEG2 W2 H2\nFRAME\nabc", "no whole frame"},
  };
  for (const Row& row : kRows) {
    EXPECT_THAT(ErrorOf(Write(row.Name, row.Content)),
                AllOf(HasSubstr(row.Name), HasSubstr(row.Reason)));
  }
  EXPECT_THAT(ErrorOf(Path("missing.png")), AllOf(HasSubstr("missing.png"), HasSubstr("opened")));
}

TEST_F(SceneFiles, TruncatedPicturesAreRefused) {
  for (const std::string& path : {WritePng(), WriteJpeg()}) {
    std::filesystem::resize_file(path, std::filesystem::file_size(path) - 40);
    EXPECT_THAT(ErrorOf(path), AllOf(HasSubstr("scene file"), HasSubstr(path)));
  }
}

}  // namespace
}  // namespace lidcam::camera_model
