#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string_view>

#include <jpeglib.h>
#include <png.h>

#include <csetjmp>

#include "camera_model/scene/scene.h"

namespace lidcam::camera_model {
namespace {

constexpr std::uint32_t kLargestSide = 16384;

[[noreturn]] void Fail(const std::string& path, const std::string& reason) {
  throw std::runtime_error("scene file \"" + path + "\": " + reason);
}

void CheckSize(const std::string& path, std::uint64_t width, std::uint64_t height) {
  if (width == 0 || height == 0 || width > kLargestSide || height > kLargestSide) {
    Fail(path, "its size " + std::to_string(width) + "x" + std::to_string(height) +
                   " is not between 1x1 and 16384x16384");
  }
}

/// Scales `from` to the size of `to`: each pixel is the mean of the source pixels that it covers,
/// or the nearest one if it covers none.
void ScaleTo(const RgbImage& from, RgbImage& to) {
  const auto edges = [](std::uint32_t count, std::uint32_t source) {
    std::vector<std::uint32_t> at(count + 1);
    for (std::uint32_t i = 0; i <= count; ++i) {
      at[i] = static_cast<std::uint32_t>(std::uint64_t{i} * source / count);
    }
    return at;
  };
  const auto columns = edges(to.Width, from.Width);
  const auto rows = edges(to.Height, from.Height);
  for (std::uint32_t y = 0; y < to.Height; ++y) {
    const std::uint32_t bottom = std::max(rows[y + 1], rows[y] + 1);
    std::uint8_t* out = to.Row(y);
    for (std::uint32_t x = 0; x < to.Width; ++x) {
      const std::uint32_t right = std::max(columns[x + 1], columns[x] + 1);
      std::array<std::uint64_t, 3> sums{};
      for (std::uint32_t sourceY = rows[y]; sourceY < bottom; ++sourceY) {
        const std::uint8_t* pixel = from.Row(sourceY) + std::size_t{columns[x]} * 3;
        for (std::uint32_t sourceX = columns[x]; sourceX < right; ++sourceX, pixel += 3) {
          for (std::size_t i = 0; i < 3; ++i) sums[i] += pixel[i];
        }
      }
      const std::uint64_t count = std::uint64_t{bottom - rows[y]} * (right - columns[x]);
      for (std::size_t i = 0; i < 3; ++i) *out++ = static_cast<std::uint8_t>(sums[i] / count);
    }
  }
}

RgbImage ReadPng(const std::string& path) {
  png_image png{};
  png.version = PNG_IMAGE_VERSION;
  if (png_image_begin_read_from_file(&png, path.c_str()) == 0) Fail(path, png.message);
  if (png.width == 0 || png.height == 0 || png.width > kLargestSide || png.height > kLargestSide) {
    const std::uint32_t width = png.width;
    const std::uint32_t height = png.height;
    png_image_free(&png);
    CheckSize(path, width, height);
  }
  png.format = PNG_FORMAT_RGB;
  RgbImage image;
  image.Resize(png.width, png.height);
  if (png_image_finish_read(&png, nullptr, image.Pixels.data(), 0, nullptr) == 0) {
    const std::string reason = png.message;
    png_image_free(&png);
    Fail(path, reason);
  }
  return image;
}

struct JpegErrors {
  jpeg_error_mgr Manager;
  std::jmp_buf Return;
  char Message[JMSG_LENGTH_MAX];
};

void LeaveJpeg(j_common_ptr info) {
  auto* errors = reinterpret_cast<JpegErrors*>(info->err);
  info->err->format_message(info, errors->Message);
  std::longjmp(errors->Return, 1);
}

// A damaged file is refused, not shown with grey patches.
void LeaveJpegOnWarning(j_common_ptr info, int level) {
  if (level < 0) LeaveJpeg(info);
}

// The library leaves by longjmp on an error: no object with a destructor may be created in here.
bool DecodeJpeg(std::FILE* file, RgbImage& image, JpegErrors& errors) {
  jpeg_decompress_struct jpeg;
  std::memset(&jpeg, 0, sizeof jpeg);
  jpeg.err = jpeg_std_error(&errors.Manager);
  errors.Manager.error_exit = LeaveJpeg;
  errors.Manager.emit_message = LeaveJpegOnWarning;
  if (setjmp(errors.Return) != 0) {
    jpeg_destroy_decompress(&jpeg);
    return false;
  }
  jpeg_create_decompress(&jpeg);
  jpeg_stdio_src(&jpeg, file);
  jpeg_read_header(&jpeg, TRUE);
  jpeg.out_color_space = JCS_RGB;
  jpeg_start_decompress(&jpeg);
  if (jpeg.output_width > kLargestSide || jpeg.output_height > kLargestSide) {
    std::snprintf(errors.Message, sizeof errors.Message, "it is larger than 16384x16384");
    jpeg_destroy_decompress(&jpeg);
    return false;
  }
  image.Resize(jpeg.output_width, jpeg.output_height);
  while (jpeg.output_scanline < jpeg.output_height) {
    JSAMPROW row = image.Row(jpeg.output_scanline);
    jpeg_read_scanlines(&jpeg, &row, 1);
  }
  jpeg_finish_decompress(&jpeg);
  jpeg_destroy_decompress(&jpeg);
  return true;
}

RgbImage ReadJpeg(const std::string& path) {
  RgbImage image;
  JpegErrors errors{};
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) Fail(path, "it can't be opened");
  const bool isDecoded = DecodeJpeg(file, image, errors);
  std::fclose(file);
  if (!isDecoded) Fail(path, errors.Message);
  return image;
}

class PictureScene final : public Scene {
 public:
  explicit PictureScene(RgbImage picture) : picture_(std::move(picture)) {}

  void Render(std::uint64_t /*frame*/, RgbImage& image) override {
    if (scaled_.Width != image.Width || scaled_.Height != image.Height) {
      scaled_.Resize(image.Width, image.Height);
      ScaleTo(picture_, scaled_);
    }
    image.Pixels = scaled_.Pixels;
  }

 private:
  RgbImage picture_;
  RgbImage scaled_;
};

/// A file of uncompressed 4:2:0, 4:2:2 or 4:4:4 frames, read on demand.
class VideoScene final : public Scene {
 public:
  explicit VideoScene(const std::string& path) : path_(path), file_(path, std::ios::binary) {
    ReadHeader();
    IndexFrames();
  }

  void Render(std::uint64_t frame, RgbImage& image) override {
    const std::uint64_t wanted = static_cast<std::uint64_t>(
        static_cast<double>(frame) * framesPerSecond_ / kCameraFramesPerSecond);
    const std::uint64_t number = wanted % frameOffsets_.size();
    if (number != shown_) LoadFrame(number);
    ScaleTo(decoded_, image);
  }

 private:
  static constexpr double kCameraFramesPerSecond = 30;
  static constexpr std::uint64_t kNone = UINT64_MAX;

  void ReadHeader() {
    std::string line;
    std::getline(file_, line);
    std::string_view rest = line;
    while (!rest.empty()) {
      const std::size_t space = std::min(rest.find(' '), rest.size());
      ReadParameter(rest.substr(0, space));
      rest.remove_prefix(std::min(space + 1, rest.size()));
    }
    CheckSize(path_, decoded_.Width, decoded_.Height);
    decoded_.Resize(decoded_.Width, decoded_.Height);
    const std::size_t chromaWidth = (decoded_.Width + chromaStepX_ - 1) / chromaStepX_;
    const std::size_t chromaHeight = (decoded_.Height + chromaStepY_ - 1) / chromaStepY_;
    lumaBytes_ = std::size_t{decoded_.Width} * decoded_.Height;
    chromaWidth_ = chromaWidth;
    chromaBytes_ = chromaWidth * chromaHeight;
    planes_.resize(lumaBytes_ + 2 * chromaBytes_);
  }

  std::uint32_t Number(std::string_view text) {
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size()) {
      Fail(path_, "\"" + std::string(text) + "\" in its header is not a number");
    }
    return number;
  }

  void ReadParameter(std::string_view parameter) {
    if (parameter.empty()) return;
    const std::string_view value = parameter.substr(1);
    switch (parameter[0]) {
      case 'W':
        decoded_.Width = Number(value);
        break;
      case 'H':
        decoded_.Height = Number(value);
        break;
      case 'F':
        ReadRate(value);
        break;
      case 'C':
        ReadColourSpace(value);
        break;
      default:
        break;
    }
  }

  void ReadRate(std::string_view value) {
    const std::size_t colon = value.find(':');
    if (colon == std::string_view::npos) Fail(path_, "its frame rate is not written as F30:1");
    const double count = Number(value.substr(0, colon));
    const double seconds = Number(value.substr(colon + 1));
    if (count <= 0 || seconds <= 0) Fail(path_, "its frame rate is 0");
    framesPerSecond_ = count / seconds;
  }

  void ReadColourSpace(std::string_view value) {
    if (value == "420" || value == "420jpeg" || value == "420mpeg2" || value == "420paldv") {
      chromaStepX_ = chromaStepY_ = 2;
    } else if (value == "422") {
      chromaStepX_ = 2;
      chromaStepY_ = 1;
    } else if (value == "444") {
      chromaStepX_ = chromaStepY_ = 1;
    } else {
      Fail(path_, "its colour space C" + std::string(value) +
                      " can't be read; C420, C420jpeg, C420mpeg2, C420paldv, C422 and C444 can");
    }
  }

  void IndexFrames() {
    std::string line;
    while (std::getline(file_, line) && line.starts_with("FRAME")) {
      const auto begin = file_.tellg();
      file_.seekg(0, std::ios::end);
      const auto size = file_.tellg();
      const auto end = begin + static_cast<std::streamoff>(planes_.size());
      if (end > size) break;
      frameOffsets_.push_back(begin);
      file_.seekg(end);
    }
    if (frameOffsets_.empty()) Fail(path_, "it has no whole frame");
  }

  void LoadFrame(std::uint64_t number) {
    file_.clear();
    file_.seekg(frameOffsets_[number]);
    file_.read(reinterpret_cast<char*>(planes_.data()),
               static_cast<std::streamsize>(planes_.size()));
    if (!file_) Fail(path_, "frame " + std::to_string(number) + " can't be read");
    const std::uint8_t* u = planes_.data() + lumaBytes_;
    const std::uint8_t* v = u + chromaBytes_;
    std::uint8_t* out = decoded_.Pixels.data();
    for (std::uint32_t y = 0; y < decoded_.Height; ++y) {
      for (std::uint32_t x = 0; x < decoded_.Width; ++x) {
        const std::size_t chroma = y / chromaStepY_ * chromaWidth_ + x / chromaStepX_;
        const int luma = 298 * (planes_[std::size_t{y} * decoded_.Width + x] - 16);
        const int blue = u[chroma] - 128;
        const int red = v[chroma] - 128;
        *out++ = ToByte(luma + 409 * red);
        *out++ = ToByte(luma - 100 * blue - 208 * red);
        *out++ = ToByte(luma + 516 * blue);
      }
    }
    shown_ = number;
  }

  static std::uint8_t ToByte(int value) {
    return static_cast<std::uint8_t>(std::clamp((value + 128) / 256, 0, 255));
  }

  std::string path_;
  std::ifstream file_;
  double framesPerSecond_ = kCameraFramesPerSecond;
  std::uint32_t chromaStepX_ = 2;
  std::uint32_t chromaStepY_ = 2;
  std::size_t lumaBytes_ = 0;
  std::size_t chromaBytes_ = 0;
  std::size_t chromaWidth_ = 0;
  std::vector<std::uint8_t> planes_;
  std::vector<std::streampos> frameOffsets_;
  std::uint64_t shown_ = kNone;
  RgbImage decoded_;
};

}  // namespace

std::unique_ptr<Scene> OpenSceneFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) Fail(path, "it can't be opened");
  std::array<char, 10> head{};
  file.read(head.data(), head.size());
  const std::string_view begin{head.data(), static_cast<std::size_t>(file.gcount())};
  if (begin.starts_with("\x89PNG")) return std::make_unique<PictureScene>(ReadPng(path));
  if (begin.starts_with("\xFF\xD8\xFF")) return std::make_unique<PictureScene>(ReadJpeg(path));
  if (begin.starts_with("YUV4MPEG2 ")) return std::make_unique<VideoScene>(path);
  Fail(path, "it is neither a PNG, nor a JPEG, nor a Y4M file");
}

}  // namespace lidcam::camera_model
