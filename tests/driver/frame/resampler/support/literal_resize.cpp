#include "tests/driver/frame/resampler/support/literal_resize.h"

#include <cmath>
#include <random>

namespace lidcam {
namespace {

struct Sample {
  long Index;
  long Weight;
};

// Entry `number` of an axis, counted from the start.
Sample SampleAt(long number, long count, double factor, long last) {
  const double scaled = static_cast<double>(count) * factor;
  double step = 0.0;
  if (scaled > 1.0) step = static_cast<double>(count - 1) / (scaled - 1.0);
  double p = 0.0;
  for (long n = 0; n < number; ++n) p = p + step;
  const long i = static_cast<long>(std::trunc(p + 0.0000001));
  if (i == last) return {i - 1, 16384};
  return {i, static_cast<long>(std::trunc((p - static_cast<double>(i)) * 16384.0 + 0.0000001))};
}

long NearestAt(long number, double factor, long last) {
  const double i = std::trunc((static_cast<double>(number) + 0.5) / factor + 0.0000001);
  return i > static_cast<double>(last) ? last : static_cast<long>(i);
}

// 0 for a size that rounds to nothing.
long OutputSize(long count, double factor, long room, long least) {
  const double s = static_cast<double>(count) * factor + 0.0000001;
  const double n = std::trunc(s);
  if (static_cast<double>(room) <= n) return room;
  if (n >= static_cast<double>(least)) return static_cast<long>(n);
  if (s < (least == 2 ? 1.5 : 0.5)) return 0;
  return least;
}

ResizeStatus CheckLiterally(const ResizeArguments& a) {
  if (a.Source == nullptr || a.Destination == nullptr) return ResizeNullPointer;
  if (a.SourceSize.Width <= 0 || a.SourceSize.Height <= 0 || a.Region.Width <= 0 ||
      a.Region.Height <= 0 || a.Region.X < 0 || a.Region.Y < 0) {
    return ResizeBadSize;
  }
  if (a.Region.X >= a.SourceSize.Width || a.Region.Y >= a.SourceSize.Height) {
    return ResizeRegionOutside;
  }
  if (a.DestinationSize.Width < 1 || a.DestinationSize.Height < 1) return ResizeBadSize;
  if (a.SourceSize.Width % 2 == 1 || a.Region.Width % 2 == 1 || a.Region.X % 2 == 1) {
    return ResizeBadSize;
  }
  if (a.DestinationSize.Width < 2) return ResizeBadSize;
  if (!(a.XFactor > 0) || !(a.YFactor > 0)) return ResizeBadFactor;
  if (a.Interpolation != 1 && a.Interpolation != 2 && a.Interpolation != 4 &&
      a.Interpolation != 8) {
    return ResizeBadInterpolation;
  }
  return ResizeDone;
}

class LiteralScale {
 public:
  explicit LiteralScale(const ResizeArguments& arguments) : a_(arguments) {
    start_ = 4L * a_.Region.X + long{a_.SourceStep} * a_.Region.Y;
    end_ = long{a_.SourceStep} * a_.SourceSize.Height;
    regionWidth_ = a_.Region.Width;
    regionHeight_ = a_.Region.Height;
    if (long{a_.Region.X} + a_.Region.Width > a_.SourceSize.Width) {
      regionWidth_ = a_.SourceSize.Width - a_.Region.X;
    }
    if (long{a_.Region.Y} + a_.Region.Height > a_.SourceSize.Height) {
      regionHeight_ = a_.SourceSize.Height - a_.Region.Y;
    }
    width_ = OutputSize(regionWidth_, a_.XFactor, a_.DestinationSize.Width, 2);
    height_ = OutputSize(regionHeight_, a_.YFactor, a_.DestinationSize.Height, 1);
    lastRow_ = a_.SourceSize.Height - a_.Region.Y - 1;
    lastLuma_ = a_.SourceSize.Width - a_.Region.X - 1;
    lastChroma_ = (a_.SourceSize.Width - a_.Region.X) / 2 - 1;
  }

  [[nodiscard]] bool RoundsToNothing() const { return width_ == 0 || height_ == 0; }

  void Run(std::vector<std::uint8_t>& destination) const {
    const bool nearest =
        a_.SourceSize.Width < 4 || a_.SourceSize.Height < 2 || a_.Interpolation == 1;
    std::vector<Sample> luma;
    std::vector<Sample> chroma;
    for (long k = 0; k < width_ / 2 * 2; ++k) {
      luma.push_back(SampleAt(k, regionWidth_, a_.XFactor, lastLuma_));
    }
    for (long j = 0; j < width_ / 2; ++j) {
      chroma.push_back(SampleAt(j, regionWidth_ / 2, a_.XFactor, lastChroma_));
    }
    for (long r = 0; r < height_; ++r) {
      const Sample row = SampleAt(r, regionHeight_, a_.YFactor, lastRow_);
      for (long j = 0; j < width_ / 2; ++j) {
        for (long byte = 0; byte < 4; ++byte) {
          const long k = 2 * j + byte / 2;
          const auto at = static_cast<std::size_t>(r * a_.DestinationStep + 4 * j + byte);
          if (nearest) {
            destination.at(at) = NearestByte(r, j, k, byte);
          } else if (byte % 2 == 0) {
            destination.at(at) = Blend(row, 2, 0, luma[static_cast<std::size_t>(k)]);
          } else {
            destination.at(at) = Blend(row, 4, byte, chroma[static_cast<std::size_t>(j)]);
          }
        }
      }
    }
  }

 private:
  [[nodiscard]] long Byte(long place) const {
    if (place < 0) return a_.Source[0];
    return a_.Source[place < end_ ? place : end_ - 1];
  }

  [[nodiscard]] std::uint8_t NearestByte(long r, long j, long k, long byte) const {
    const long row = start_ + NearestAt(r, a_.YFactor, lastRow_) * a_.SourceStep;
    const long column = byte % 2 == 0 ? 2 * NearestAt(k, a_.XFactor, lastLuma_)
                                      : 4 * NearestAt(j, a_.XFactor, lastChroma_) + byte;
    return static_cast<std::uint8_t>(Byte(row + column));
  }

  [[nodiscard]] long Across(long row, long spacing, long byte, const Sample& sample) const {
    const long left = start_ + row * a_.SourceStep + sample.Index * spacing + byte;
    return (sample.Weight * Byte(left + spacing) + (16384 - sample.Weight) * Byte(left) + 128) /
           256;
  }

  [[nodiscard]] std::uint8_t Blend(const Sample& row, long spacing, long byte,
                                   const Sample& column) const {
    const long upper = Across(row.Index, spacing, byte, column);
    const long lower = Across(row.Index + 1, spacing, byte, column);
    return static_cast<std::uint8_t>((upper * (16384 - row.Weight) + lower * row.Weight + 524288) /
                                     1048576);
  }

  ResizeArguments a_;
  long start_;
  long end_;
  long regionWidth_;
  long regionHeight_;
  long width_;
  long height_;
  long lastRow_;
  long lastLuma_;
  long lastChroma_;
};

}  // namespace

ResizeStatus LiteralResizeYuy2(const ResizeArguments& arguments,
                               std::vector<std::uint8_t>& destination) {
  const ResizeStatus status = CheckLiterally(arguments);
  if (status != ResizeDone) return status;
  const LiteralScale scale(arguments);
  if (scale.RoundsToNothing()) return ResizeNothingLeft;
  scale.Run(destination);
  return ResizeDone;
}

std::vector<std::uint8_t> RandomPicture(std::size_t bytes, std::uint32_t seed) {
  std::mt19937 random(seed);
  std::vector<std::uint8_t> picture(bytes);
  for (std::uint8_t& byte : picture) byte = static_cast<std::uint8_t>(random() >> 24U);
  return picture;
}

}  // namespace lidcam
