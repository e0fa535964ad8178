#include "tests/on_wine/client/camera/frame_record.h"

#include "tests/on_wine/client/report.h"

namespace lidcam::wine {

FrameRecord::FrameRecord(const std::wstring& path)
    : pictures_(_wfopen((path + L".yuy2").c_str(), L"wb")),
      heads_(_wfopen((path + L".txt").c_str(), L"wb")) {
  Require(pictures_ != nullptr && heads_ != nullptr, "write to " + Narrow(path));
}

FrameRecord::~FrameRecord() {
  if (pictures_ != nullptr) std::fclose(pictures_);
  if (heads_ != nullptr) std::fclose(heads_);
}

void FrameRecord::Add(const ReadFrame& frame) {
  const std::size_t written = std::fwrite(frame.Picture.data(), 1, frame.Picture.size(), pictures_);
  Require(written == frame.Picture.size(), "write a picture");
  std::fprintf(heads_, "frame picture=%lld dropped=%lld time=%lld duration=%lld bytes=%u\n",
               static_cast<long long>(frame.Head.PictureNumber),
               static_cast<long long>(frame.Head.DropCount),
               static_cast<long long>(frame.Head.PresentationTime),
               static_cast<long long>(frame.Head.Duration), frame.Head.DataUsed);
}

void FrameRecord::MarkPause() {
  std::fputs("pause\n", heads_);
}

}  // namespace lidcam::wine
