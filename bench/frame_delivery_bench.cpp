// Delivery of a whole frame against the bare copy or resampling of it over the same buffers: the
// cost per frame of exposure control, still capture and the choice of copy or resampling when none
// of them has anything to do. The sensor is VGA0708 with its automatic exposure off, a steady
// bright picture and a constant exposure, committed now and then as in a stream.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "bench/paired_benchmark.h"
#include "driver/frame/delivery/frame_delivery.h"
#include "driver/frame/resampler/image_resampler.h"

namespace lidcam::bench {
namespace {

constexpr std::size_t kHeaderBytes = 64;
constexpr std::size_t kRawBufferSize = 921666;
constexpr std::size_t kApplicationBuffers = 3;
constexpr std::uint32_t kSmallestRunBytes = 614400;  // so that reading the clock costs little

struct Size {
  std::int32_t Width;
  std::int32_t Height;

  [[nodiscard]] std::uint32_t Bytes() const {
    return static_cast<std::uint32_t>(Width) * static_cast<std::uint32_t>(Height) * 2;
  }
};

struct RawSize {
  std::uint32_t Mode;
  Size Picture;
};

Status AcceptRequest(void*, std::uint32_t, std::uint32_t, std::uint32_t, void*, std::uint32_t*) {
  return 0;
}

/// Two raw buffers and some of an application's, taken in turn.
class Consumer {
 public:
  Consumer(const RawSize& raw, const Size& size)
      : rawSize_(raw.Picture),
        size_(size),
        framesPerRun_((kSmallestRunBytes + size.Bytes() - 1) / size.Bytes()),
        raw_(2 * kRawBufferSize, 0x80),
        delivered_(kApplicationBuffers * size.Bytes()) {
    context_.WriteRequest = AcceptRequest;
    context_.ReadRequest = AcceptRequest;
    context_.SensorType = SensorTypeVGA0708;
    context_.RawSizeMode = raw.Mode;
    context_.RequestedWidth = size.Width;
    context_.RequestedHeight = size.Height;
    context_.RequestedCompression = kFourccYuy2;
  }

  void Deliver() {
    for (std::uint32_t i = 0; i < framesPerRun_; ++i) {
      std::uint32_t written = 0;
      std::uint8_t* const raw = NextRaw();
      DeliverFrame(context_, NextTarget(), size_.Bytes(), raw, size_.Bytes(), written);
      benchmark::DoNotOptimize(written);
    }
  }

  void Copy() {
    for (std::uint32_t i = 0; i < framesPerRun_; ++i) {
      const std::uint8_t* const raw = NextRaw();
      std::memcpy(NextTarget(), raw + kHeaderBytes, size_.Bytes());
      benchmark::ClobberMemory();
    }
  }

  void Resample() {
    for (std::uint32_t i = 0; i < framesPerRun_; ++i) {
      const std::uint8_t* const raw = NextRaw();
      ResampleFrame(NextTarget(), raw + kHeaderBytes, rawSize_.Width, rawSize_.Height, size_.Width,
                    size_.Height, 1);
      benchmark::ClobberMemory();
    }
  }

  [[nodiscard]] std::size_t BytesPerRun() const {
    return std::size_t{size_.Bytes()} * framesPerRun_;
  }

 private:
  std::uint8_t* NextRaw() { return raw_.data() + (rawTurn_++ % 2) * kRawBufferSize; }

  std::uint8_t* NextTarget() {
    return delivered_.data() + (targetTurn_++ % kApplicationBuffers) * size_.Bytes();
  }

  Size rawSize_;
  Size size_;
  std::uint32_t framesPerRun_;
  std::vector<std::uint8_t> raw_;
  std::vector<std::uint8_t> delivered_;
  std::size_t rawTurn_ = 0;
  std::size_t targetTurn_ = 0;
  CameraContext context_{};
};

constexpr RawSize kRawVga{RawMode640x480, {640, 480}};
constexpr RawSize kRawHalf{RawMode320x240, {320, 240}};
constexpr RawSize kRawQuarter{RawMode160x120, {160, 120}};

constexpr double kGoal = 1.03;

void MeasureNative(benchmark::State& state, const RawSize& raw) {
  const auto consumer = std::make_unique<Consumer>(raw, raw.Picture);
  PairedTiming timing(consumer->BytesPerRun());
  for ([[maybe_unused]] auto iteration : state) {
    timing.Measure(
        state, [&consumer] { consumer->Deliver(); }, [&consumer] { consumer->Copy(); });
  }
  timing.Report(state, kGoal);
}

void MeasureResampled(benchmark::State& state, const RawSize& raw, const Size& size) {
  const auto consumer = std::make_unique<Consumer>(raw, size);
  PairedTiming timing(consumer->BytesPerRun());
  for ([[maybe_unused]] auto iteration : state) {
    timing.Measure(
        state, [&consumer] { consumer->Deliver(); }, [&consumer] { consumer->Resample(); });
  }
  timing.Report(state, kGoal);
}

BENCHMARK_CAPTURE(MeasureNative, 640x480, kRawVga)->Name("deliver 640x480")->Apply(AsPair);
BENCHMARK_CAPTURE(MeasureNative, 320x240, kRawHalf)->Name("deliver 320x240")->Apply(AsPair);
BENCHMARK_CAPTURE(MeasureNative, 160x120, kRawQuarter)->Name("deliver 160x120")->Apply(AsPair);
BENCHMARK_CAPTURE(MeasureResampled, 640x480_as_352x288, kRawVga, Size{352, 288})
    ->Name("deliver 640x480 as 352x288")
    ->Apply(AsPair);
BENCHMARK_CAPTURE(MeasureResampled, 320x240_as_176x144, kRawHalf, Size{176, 144})
    ->Name("deliver 320x240 as 176x144")
    ->Apply(AsPair);
BENCHMARK_CAPTURE(MeasureResampled, 320x240_as_160x120, kRawHalf, Size{160, 120})
    ->Name("deliver 320x240 as 160x120")
    ->Apply(AsPair);
BENCHMARK_CAPTURE(MeasureResampled, 160x120_as_640x480, kRawQuarter, Size{640, 480})
    ->Name("deliver 160x120 as 640x480")
    ->Apply(AsPair);

}  // namespace
}  // namespace lidcam::bench
