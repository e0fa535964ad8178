#include "apps/lidcam/output/writers/file_writers.h"

#include <vector>

#include "apps/lidcam/output/output_file.h"
#include "apps/lidcam/output/pictures/jpeg_file.h"
#include "apps/lidcam/output/yuy2.h"

namespace lidcam::app {
namespace {

class RawWriter : public FrameWriter {
 public:
  explicit RawWriter(const std::string& path) : file_(path) {}

  void Write(const OutputFrame& frame) override {
    file_.Write(frame.Yuy2);
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

  void Write(const OutputFrame& frame) override {
    SeparatePlanes(frame.Yuy2, size_, planar_);
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

class MjpegWriter : public FrameWriter {
 public:
  MjpegWriter(const std::string& path, PictureSize size) : file_(path), size_(size) {}

  void Write(const OutputFrame& frame) override {
    file_.Write(EncodeJpeg(file_.Path(), size_, frame.Yuy2));
    file_.MarkWhole();
  }
  void Finish() override { file_.Commit(); }
  [[nodiscard]] std::string Place() const override { return file_.Path(); }

 private:
  OutputFile file_;
  PictureSize size_;
};

}  // namespace

std::unique_ptr<FrameWriter> MakeRawWriter(const std::string& path) {
  return std::make_unique<RawWriter>(path);
}

std::unique_ptr<FrameWriter> MakeY4mWriter(const std::string& path, PictureSize size,
                                           std::chrono::microseconds framePeriod) {
  return std::make_unique<Y4mWriter>(path, size, framePeriod);
}

std::unique_ptr<FrameWriter> MakeMjpegWriter(const std::string& path, PictureSize size) {
  return std::make_unique<MjpegWriter>(path, size);
}

}  // namespace lidcam::app
