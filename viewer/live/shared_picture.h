#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "viewer/camera/camera_state.h"
#include "viewer/pictures/jpeg_encoder.h"

namespace lidcam::viewer {

/// A picture with its JPEG, which is made when the first viewer takes it, once for all. On the pages' thread.
class SharedPicture {
 public:
  SharedPicture(std::shared_ptr<const Picture> picture, JpegEncoder& encoder)
      : picture_(std::move(picture)), encoder_(encoder) {}

  [[nodiscard]] const Picture& Raw() const { return *picture_; }
  [[nodiscard]] const std::vector<std::uint8_t>& Jpeg() {
    if (jpeg_.empty()) jpeg_ = encoder_.Encode(picture_->Yuy2, picture_->Size);
    return jpeg_;
  }

 private:
  const std::shared_ptr<const Picture> picture_;
  JpegEncoder& encoder_;
  std::vector<std::uint8_t> jpeg_;
};

}  // namespace lidcam::viewer
