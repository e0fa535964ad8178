#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace lidcam::bench {

/// One scale of packed YUY2 rows without padding, width and height in pixels.
struct Conversion {
  int SourceWidth;
  int SourceHeight;
  int Width;
  int Height;

  [[nodiscard]] std::size_t SourceBytes() const { return Bytes(SourceWidth, SourceHeight); }
  [[nodiscard]] std::size_t OutputBytes() const { return Bytes(Width, Height); }

 private:
  static std::size_t Bytes(int width, int height) {
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 2;
  }
};

/// Something that scales a picture, whole, every time it is called.
struct Subject {
  std::string Name;
  std::function<void()> Run;
};

inline constexpr const char* kSwscaleBilinear = "libswscale bilinear";
inline constexpr const char* kSwscaleFastBilinear = "libswscale fast bilinear";
inline constexpr const char* kYuvByPlanes = "libyuv by I422 planes";
inline constexpr const char* kYuvByArgb = "libyuv by ARGB";
inline constexpr const char* kYuvBySplit = "libyuv by Y and UV";

/// The same scale through other libraries, prepared as far as they can be: contexts are made and
/// intermediate pictures allocated beforehand.
/// @param source, output  have to outlive the subjects
std::vector<Subject> MakePeers(const Conversion& conversion, const std::uint8_t* source,
                               std::uint8_t* output);

}  // namespace lidcam::bench
