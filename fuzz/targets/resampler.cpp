// Any arguments of either entry, also implausible ones, leave everything outside the buffers
// unchanged; and every kernel gives the bytes of the reference.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "driver/frame/resampler/image_resampler.h"
#include "driver/frame/resampler/jobs/scale_reference.h"
#include "driver/frame/resampler/scale_kernels.h"
#include "driver/frame/resampler/yuy2_scale.h"

namespace {

using namespace lidcam;

constexpr std::int64_t kMostBytes = 1 << 17;
constexpr std::int64_t kMostSamples = 1 << 13;  // so that a run stays short

/// The input, number by number; zeroes after its end.
class Numbers {
 public:
  Numbers(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}

  template <typename T>
  T Next() {
    T value{};
    const std::size_t taken = std::min(sizeof(value), left_);
    if (taken > 0) std::memcpy(&value, data_, taken);
    data_ += taken;
    left_ -= taken;
    return value;
  }

  /// Mostly a usual size, sometimes any number.
  std::int32_t Size() {
    const auto kind = Next<std::uint8_t>();
    if (kind >= 0xF0) return Next<std::int32_t>();
    const auto size = Next<std::uint8_t>();
    return kind % 2 == 0 ? size : size * (1 + kind / 2 % 8);
  }

  double Factor(std::int32_t to, std::int32_t from) {
    const auto kind = Next<std::uint8_t>();
    if (kind >= 0xF0) return Next<double>();
    if (kind >= 0xC0) return Next<std::uint16_t>() / 4096.0;
    return from == 0 ? 0.0 : static_cast<double>(to) / from;
  }

  [[nodiscard]] const std::uint8_t* Data() const { return data_; }
  [[nodiscard]] std::size_t Left() const { return left_; }

 private:
  const std::uint8_t* data_;
  std::size_t left_;
};

[[noreturn]] void Fail(const char* what, const char* kernel) {
  std::fprintf(stderr, "%s: %s\n", kernel, what);
  std::abort();
}

// Blocks of their exact size: AddressSanitizer detects accesses beyond them.
class Block {
 public:
  explicit Block(std::int64_t size)
      : size_(static_cast<std::size_t>(std::clamp<std::int64_t>(size, 1, kMostBytes))),
        bytes_(new std::uint8_t[size_]) {}
  ~Block() { delete[] bytes_; }
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;

  [[nodiscard]] std::uint8_t* Bytes() const { return bytes_; }
  [[nodiscard]] std::size_t Size() const { return size_; }

 private:
  std::size_t size_;
  std::uint8_t* bytes_;
};

void Fill(const Block& block, const Numbers& numbers) {
  std::uint32_t state = 12345;
  for (std::size_t at = 0; at < block.Size(); ++at) {
    state = state * 1664525U + 1013904223U;
    block.Bytes()[at] =
        numbers.Left() > 0
            ? static_cast<std::uint8_t>(numbers.Data()[at % numbers.Left()] + at / numbers.Left())
            : static_cast<std::uint8_t>(state >> 24U);
  }
}

std::int64_t SourceBytes(const ResizeArguments& a) {
  if (a.SourceStep <= 0 || a.SourceSize.Height <= 0 || a.SourceSize.Width <= 0) return 1;
  return std::int64_t{a.SourceStep} * a.SourceSize.Height;
}

std::int64_t DestinationBytes(const ResizeArguments& a, std::int64_t rowBytes) {
  if (a.DestinationStep <= 0 || a.DestinationSize.Height <= 0 || a.DestinationSize.Width <= 0) {
    return 1;
  }
  return std::int64_t{a.DestinationStep} * (a.DestinationSize.Height - 1) +
         std::min<std::int64_t>(a.DestinationStep, rowBytes);
}

bool IsBounded(const ResizeArguments& a, std::int64_t rowBytes) {
  return SourceBytes(a) <= kMostBytes && DestinationBytes(a, rowBytes) <= kMostBytes &&
         std::int64_t{std::max(a.DestinationSize.Width, 1)} *
                 std::max(a.DestinationSize.Height, 1) <=
             kMostSamples;
}

void CompareKernels(const ResizeArguments& arguments, const Block& destination) {
  ImageSize output{};
  if (CheckYuy2(arguments, output) != ResizeDone || NeedsNearest(arguments)) return;
  const Yuy2Scale reference(arguments, output, ScaleKernels().front());
  if (reference.Job() == nullptr || !SuitsEveryKernel(*reference.Job())) return;
  std::memset(destination.Bytes(), 0xA5, destination.Size());
  ScaleByReference(*reference.Job());
  const std::vector<std::uint8_t> expected(destination.Bytes(),
                                           destination.Bytes() + destination.Size());
  for (const ScaleKernel& kernel : ScaleKernels()) {
    if (!kernel.IsSupported()) continue;
    const Yuy2Scale scale(arguments, output, kernel);
    if (scale.Job() == nullptr) Fail("has no memory", kernel.Name);
    std::memset(destination.Bytes(), 0xA5, destination.Size());
    kernel.Scale(*scale.Job());
    if (std::memcmp(destination.Bytes(), expected.data(), expected.size()) != 0) {
      Fail("differs from the reference", kernel.Name);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Numbers numbers(data, size);
  ResizeArguments a{};
  const auto flags = numbers.Next<std::uint8_t>();
  a.SourceSize = {numbers.Size(), numbers.Size()};
  a.DestinationSize = {numbers.Size(), numbers.Size()};
  if ((flags & 1U) != 0) a.SourceSize.Width &= ~1;
  a.Region = {0, 0, a.SourceSize.Width, a.SourceSize.Height};
  if ((flags & 2U) != 0)
    a.Region = {numbers.Size(), numbers.Size(), numbers.Size(), numbers.Size()};
  const bool isPaired = (flags & 16U) == 0;
  const auto step = [&numbers, flags, isPaired](std::int32_t width) {
    const std::int64_t packed = std::int64_t{width} * (isPaired ? 2 : 3);
    if ((flags & 4U) != 0) return numbers.Size();
    return packed > 0x7FFFFFFF || packed < 0 ? 0 : static_cast<std::int32_t>(packed);
  };
  a.SourceStep = step(a.SourceSize.Width);
  a.DestinationStep = step(a.DestinationSize.Width);
  a.XFactor = numbers.Factor(a.DestinationSize.Width, a.Region.Width);
  a.YFactor = numbers.Factor(a.DestinationSize.Height, a.Region.Height);
  a.Interpolation = (flags & 8U) != 0 ? numbers.Next<std::uint8_t>() : 2;
  const std::int64_t rowBytes = isPaired ? 4 * std::int64_t{a.DestinationSize.Width / 2}
                                         : 3 * std::int64_t{a.DestinationSize.Width};
  if (!IsBounded(a, rowBytes)) return 0;

  const Block source(SourceBytes(a));
  const Block destination(DestinationBytes(a, rowBytes));
  Fill(source, numbers);
  a.Source = source.Bytes();
  a.Destination = destination.Bytes();
  const auto resize = isPaired ? ResizeYuy2 : ResizeRgb24;
  const ResizeStatus status =
      resize(a.Source, a.SourceSize, a.SourceStep, a.Region, a.Destination, a.DestinationStep,
             a.DestinationSize, a.XFactor, a.YFactor, a.Interpolation);
  if (isPaired && status == ResizeDone) CompareKernels(a, destination);
  return 0;
}
