#include "apps/lidcam/output/writers/series_writer.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <vector>

#include "apps/lidcam/output/output_file.h"
#include "apps/lidcam/output/pictures/jpeg_file.h"
#include "apps/lidcam/output/png_file.h"
#include "apps/lidcam/output/yuy2.h"
#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

class SeriesWriter : public FrameWriter {
 public:
  SeriesWriter(std::string path, PictureSize size, OutputForm form)
      : path_(std::move(path)), size_(size), form_(form) {
    RequireFolderOf(path_);
  }

  void Write(const OutputFrame& frame) override {
    const std::string name = NumberedName(path_, count_ + 1);
    if (form_ == OutputForm::PngSeries) {
      ConvertToRgb(frame.Yuy2, size_, rgb_);
      WritePng(name, size_, rgb_);
    } else {
      OutputFile file(name);
      file.Write(EncodeJpeg(name, size_, frame.Yuy2));
      file.Commit();
    }
    ++count_;
  }
  void Finish() override {}
  [[nodiscard]] std::string Place() const override { return PlaceOfSeries(path_, count_); }

 private:
  const std::string path_;
  const PictureSize size_;
  const OutputForm form_;
  std::uint64_t count_ = 0;
  std::vector<std::uint8_t> rgb_;
};

}  // namespace

std::unique_ptr<FrameWriter> MakeSeriesWriter(const std::string& path, PictureSize size,
                                              OutputForm form) {
  return std::make_unique<SeriesWriter>(path, size, form);
}

std::string PlaceOfSeries(const std::string& path, std::uint64_t files) {
  if (files == 0) return {};
  const std::string first = NumberedName(path, 1);
  return files == 1 ? first : first + " to " + NumberedName(path, files);
}

void RequireFolderOf(const std::string& path) {
  const auto folder = std::filesystem::path(path).parent_path();
  std::error_code ignored;
  if (!folder.empty() && !std::filesystem::is_directory(folder, ignored)) {
    throw CommandError("output '" + path + "' can't be written: there is no folder '" +
                       folder.string() + "'");
  }
  if (::access(folder.empty() ? "." : folder.c_str(), W_OK | X_OK) != 0) {
    throw CommandError("output '" + path + "' can't be written: " + std::strerror(errno) +
                       "; choose a place that you may write to");
  }
}

}  // namespace lidcam::app
