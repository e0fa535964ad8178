#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>
#include <vector>

#include "library/base/units.h"

namespace lidcam::viewer {

/// Encodes YUY2 pictures as JPEG for browsers, which show its whole range of values: the camera's studio range of
/// BT.601 is stretched to it. Colours stay halved sideways. One thread at a time.
class JpegEncoder {
 public:
  JpegEncoder();
  JpegEncoder(const JpegEncoder&) = delete;
  JpegEncoder& operator=(const JpegEncoder&) = delete;
  ~JpegEncoder();

  /// @param yuy2  rows without padding, size.Yuy2Bytes() bytes
  /// Throws std::runtime_error for a picture that the library refuses, and for one with too few bytes.
  [[nodiscard]] std::vector<std::uint8_t> Encode(std::span<const std::uint8_t> yuy2,
                                                 app::PictureSize size);

 private:
  struct Library;

  const std::unique_ptr<Library> library_;
  std::vector<std::uint8_t> planes_;  ///< of one row of blocks: Y, U and V
  std::vector<std::uint8_t> encoded_;
};

}  // namespace lidcam::viewer
