// What a scaled picture costs in the image's own code: each kernel that the processor can run and memcpy of as many
// bytes as source and output have, in turn. Medians, and what the kernels take over memcpy in the same turn.
//
// resampler_cost [TURNS]

#include "tests/on_wine/resampler/image_kernels.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

// The image's memory comes from the platform's pool, here from the program's.
namespace lidcam {

void* AllocateCameraMemory(std::size_t size) {
  return std::malloc(size);
}

void FreeCameraMemory(void* memory) {
  std::free(memory);
}

void ZeroCameraMemory(void* memory, std::size_t size) {
  std::memset(memory, 0, size);
}

}  // namespace lidcam

namespace lidcam::wine {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr Conversion kConversions[] = {{640, 480, 352, 288}, {640, 480, 320, 240},
                                       {640, 480, 176, 144}, {640, 480, 160, 120},
                                       {320, 240, 640, 480}, {160, 120, 640, 480}};

std::size_t BytesOf(std::int32_t width, std::int32_t height) {
  return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 2;
}

double Microseconds() {
  LARGE_INTEGER frequency{};
  LARGE_INTEGER count{};
  QueryPerformanceFrequency(&frequency);
  QueryPerformanceCounter(&count);
  return static_cast<double>(count.QuadPart) * 1e6 / static_cast<double>(frequency.QuadPart);
}

double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// One conversion by all kernels, and by memcpy at last.
class Contest {
 public:
  explicit Contest(const Conversion& conversion)
      : conversion_(conversion),
        source_(BytesOf(conversion.SourceWidth, conversion.SourceHeight)),
        output_(BytesOf(conversion.Width, conversion.Height)),
        copied_(source_.size() + output_.size()),
        copy_(copied_.size()) {
    std::uint32_t noise = 1;
    for (std::uint8_t& byte : source_) {
      noise = noise * 1664525 + 1013904223;
      byte = static_cast<std::uint8_t>(noise >> 24U);
    }
  }

  /// @return whether all kernels give the first one's bytes
  bool AgreeAll() {
    if (!Scale(0, conversion_, source_.data(), output_.data())) return false;
    const Bytes wanted = output_;
    for (std::uint32_t kernel = 1; kernel < CountKernels(); ++kernel) {
      std::fill(output_.begin(), output_.end(), std::uint8_t{0});
      if (!Scale(kernel, conversion_, source_.data(), output_.data())) return false;
      if (output_ != wanted) return false;
    }
    return true;
  }

  void Measure(std::size_t turns) {
    times_.assign(CountKernels() + 1, {});
    for (std::size_t turn = 0; turn < turns; ++turn) {
      for (std::uint32_t subject = 0; subject < times_.size(); ++subject) {
        Run(subject);  // brings the caches into the state of a running stream
        const double start = Microseconds();
        Run(subject);
        times_[subject].push_back(Microseconds() - start);
      }
    }
  }

  void Print() const {
    std::printf("%dx%d to %dx%d:", conversion_.SourceWidth, conversion_.SourceHeight,
                conversion_.Width, conversion_.Height);
    const std::vector<double>& copies = times_.back();
    for (std::uint32_t kernel = 0; kernel < CountKernels(); ++kernel) {
      std::vector<double> ratios;
      for (std::size_t turn = 0; turn < copies.size(); ++turn) {
        ratios.push_back(times_[kernel][turn] / copies[turn]);
      }
      std::printf("  %s %.1f us / %.2f", KernelName(kernel), Median(times_[kernel]),
                  Median(ratios));
    }
    std::printf("  memcpy %.1f us\n", Median(copies));
  }

 private:
  void Run(std::uint32_t subject) {
    if (subject < CountKernels()) {
      Scale(subject, conversion_, source_.data(), output_.data());
    } else {
      std::memcpy(copy_.data(), copied_.data(), copied_.size());
    }
  }

  Conversion conversion_;
  Bytes source_;
  Bytes output_;
  Bytes copied_;
  Bytes copy_;
  std::vector<std::vector<double>> times_;  ///< by subject
};

}  // namespace
}  // namespace lidcam::wine

int main(int argc, char** argv) {
  using namespace lidcam::wine;
  const long turns = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 101;
  if (argc > 2 || turns < 1) {
    std::fprintf(stderr, "resampler_cost: wrong arguments: a number of turns\n");
    return 2;
  }
  std::printf("%u bits, the image takes %s\n", static_cast<unsigned>(sizeof(void*) * 8),
              ChosenKernelName());
  for (const Conversion& conversion : kConversions) {
    Contest contest(conversion);
    if (!contest.AgreeAll()) {
      std::fprintf(stderr, "resampler_cost: a kernel differs from the reference\n");
      return 1;
    }
    contest.Measure(static_cast<std::size_t>(turns));
    contest.Print();
  }
  return 0;
}
