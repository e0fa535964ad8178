#include "apps/lidcam/output/frame_writer.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>
#include <vector>

#include "apps/lidcam/output/output_file.h"
#include "apps/lidcam/output/png_file.h"
#include "apps/lidcam/output/yuy2.h"
#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

class RawWriter : public FrameWriter {
 public:
  explicit RawWriter(const std::string& path) : file_(path) {}

  void Write(std::span<const std::uint8_t> yuy2) override {
    file_.Write(yuy2);
    file_.MarkWhole();
  }
  void Finish() override { file_.Commit(); }
  [[nodiscard]] std::string Place() const override { return file_.Path(); }

 private:
  OutputFile file_;
};

class Y4mWriter : public FrameWriter {
 public:
  Y4mWriter(const std::string& path, PictureSize size, std::chrono::microseconds framePeriod)
      : file_(path), size_(size) {
    file_.Write("YUV4MPEG2 W" + std::to_string(size.Width) + " H" + std::to_string(size.Height) +
                " F1000000:" + std::to_string(framePeriod.count()) + " Ip A1:1 C422\n");
  }

  void Write(std::span<const std::uint8_t> yuy2) override {
    SeparatePlanes(yuy2, size_, planar_);
    file_.Write("FRAME\n");
    file_.Write(planar_);
    file_.MarkWhole();
  }
  void Finish() override { file_.Commit(); }
  [[nodiscard]] std::string Place() const override { return file_.Path(); }

 private:
  OutputFile file_;
  PictureSize size_;
  std::vector<std::uint8_t> planar_;
};

class PngSeriesWriter : public FrameWriter {
 public:
  PngSeriesWriter(const std::string& path, PictureSize size) : size_(size) {
    const std::filesystem::path place(path);
    stem_ = (place.parent_path() / place.stem()).string();
    std::error_code ignored;
    if (const auto folder = place.parent_path();
        !folder.empty() && !std::filesystem::is_directory(folder, ignored)) {
      throw CommandError("output '" + path + "' can't be written: there is no folder '" +
                         folder.string() + "'");
    } else if (::access(folder.empty() ? "." : folder.c_str(), W_OK | X_OK) != 0) {
      throw CommandError("output '" + path + "' can't be written: " + std::strerror(errno) +
                         "; choose a place that you may write to");
    }
  }

  void Write(std::span<const std::uint8_t> yuy2) override {
    ConvertToRgb(yuy2, size_, rgb_);
    const std::string name = NameOf(count_ + 1);
    WritePng(name, size_, rgb_);
    last_ = name;
    if (++count_ == 1) first_ = name;
  }
  void Finish() override {}
  [[nodiscard]] std::string Place() const override {
    if (count_ == 0) return stem_ + "-*.png (none)";
    return count_ == 1 ? first_ : first_ + " to " + last_;
  }

 private:
  [[nodiscard]] std::string NameOf(std::uint64_t number) const {
    std::string digits = std::to_string(number);
    if (digits.size() < 4) digits.insert(0, 4 - digits.size(), '0');
    return stem_ + "-" + digits + ".png";
  }

  PictureSize size_;
  std::string stem_;
  std::string first_;
  std::string last_;
  std::uint64_t count_ = 0;
  std::vector<std::uint8_t> rgb_;
};

struct Ending {
  std::string_view Text;
  OutputForm Form;
};

constexpr std::array kEndings = {
    Ending{".y4m", OutputForm::Y4m},       Ending{".yuy2", OutputForm::RawYuy2},
    Ending{".yuv", OutputForm::RawYuy2},   Ending{".raw", OutputForm::RawYuy2},
    Ending{".png", OutputForm::PngSeries},
};

}  // namespace

OutputForm FormOfOutput(const std::string& path) {
  if (path == "-") return OutputForm::Y4m;
  std::string extension = std::filesystem::path(path).extension().string();
  std::ranges::transform(extension, extension.begin(),
                         [](unsigned char letter) { return std::tolower(letter); });
  for (const Ending& ending : kEndings) {
    if (extension == ending.Text) return ending.Form;
  }
  // A device or pipe has no file extension that gives the format.
  std::error_code ignored;
  if (const auto status = std::filesystem::status(path, ignored);
      std::filesystem::exists(status) && std::filesystem::is_other(status)) {
    return OutputForm::Y4m;
  }
  throw UsageError("output '" + path +
                   "' has no known ending: use .y4m, .yuy2, .png (a numbered series) or - for Y4M "
                   "on standard output");
}

std::unique_ptr<FrameWriter> MakeFrameWriter(const std::string& path, PictureSize size,
                                             std::chrono::microseconds framePeriod) {
  switch (FormOfOutput(path)) {
    case OutputForm::RawYuy2:
      return std::make_unique<RawWriter>(path);
    case OutputForm::PngSeries:
      return std::make_unique<PngSeriesWriter>(path, size);
    case OutputForm::Y4m:
      break;
  }
  return std::make_unique<Y4mWriter>(path, size, framePeriod);
}

}  // namespace lidcam::app
