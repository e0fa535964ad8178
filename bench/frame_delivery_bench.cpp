// Delivery in the native size against memcpy of the same bytes over the same buffers.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "bench/paired_benchmark.h"
#include "driver/frame/frame_delivery.h"

namespace lidcam::bench {
namespace {

constexpr std::size_t kHeaderBytes = 64;
constexpr std::size_t kRawBufferSize = 921666;
constexpr std::size_t kApplicationBuffers = 3;
constexpr std::uint32_t kSmallestRunBytes = 614400;  // so that reading the clock weighs nothing

/// Two raw buffers and some of an application's, taken in turn.
class Consumer {
 public:
  Consumer(std::uint32_t rawSizeMode, std::int32_t width, std::int32_t height)
      : bytes_(static_cast<std::uint32_t>(width * height * 2)),
        framesPerRun_((kSmallestRunBytes + bytes_ - 1) / bytes_),
        raw_(2 * kRawBufferSize, 0x80),
        delivered_(kApplicationBuffers * bytes_) {
    context_.RawSizeMode = rawSizeMode;
    context_.RequestedWidth = width;
    context_.RequestedHeight = height;
    context_.RequestedCompression = kFourccYuy2;
  }

  void Deliver() {
    for (std::uint32_t i = 0; i < framesPerRun_; ++i) {
      std::uint32_t written = 0;
      std::uint8_t* const raw = NextRaw();
      DeliverFrame(context_, NextTarget(), bytes_, raw, bytes_, written);
      benchmark::DoNotOptimize(written);
    }
  }

  void Copy() {
    for (std::uint32_t i = 0; i < framesPerRun_; ++i) {
      const std::uint8_t* const raw = NextRaw();
      std::memcpy(NextTarget(), raw + kHeaderBytes, bytes_);
      benchmark::ClobberMemory();
    }
  }

  [[nodiscard]] std::size_t BytesPerRun() const { return std::size_t{bytes_} * framesPerRun_; }

 private:
  std::uint8_t* NextRaw() { return raw_.data() + (rawTurn_++ % 2) * kRawBufferSize; }

  std::uint8_t* NextTarget() {
    return delivered_.data() + (targetTurn_++ % kApplicationBuffers) * bytes_;
  }

  std::uint32_t bytes_;
  std::uint32_t framesPerRun_;
  std::vector<std::uint8_t> raw_;
  std::vector<std::uint8_t> delivered_;
  std::size_t rawTurn_ = 0;
  std::size_t targetTurn_ = 0;
  CameraContext context_{};
};

void MeasureDelivery(benchmark::State& state, std::uint32_t rawSizeMode, std::int32_t width,
                     std::int32_t height) {
  const auto consumer = std::make_unique<Consumer>(rawSizeMode, width, height);
  PairedTiming timing(consumer->BytesPerRun());
  for ([[maybe_unused]] auto iteration : state) {
    timing.Measure(
        state, [&consumer] { consumer->Deliver(); }, [&consumer] { consumer->Copy(); });
  }
  timing.Report(state, 1.1);
}

BENCHMARK_CAPTURE(MeasureDelivery, native_640x480, 1, 640, 480)->Apply(AsPair);
BENCHMARK_CAPTURE(MeasureDelivery, native_320x240, 2, 320, 240)->Apply(AsPair);
BENCHMARK_CAPTURE(MeasureDelivery, native_160x120, 4, 160, 120)->Apply(AsPair);

}  // namespace
}  // namespace lidcam::bench
