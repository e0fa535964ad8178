// What a stream of 640x480 costs from the packets on the bus to the published frame, all included: USB
// stack, transfers, completion, frame thread and assembly; "delivered" is with the pin's delivery.
//
// The stream runs in real time, 30 frames a second, over a bus whose packets lie ready in memory:
// the bus's part is one copy of them, which a host controller would do without the processor. The
// result is the processor time of all threads, so that other work on the machine matters little. The
// reference is memcpy of as many bytes, measured in the same run. Of the result, the bus's part and
// what bare copies at the stream's pace take are shown beside it. The stream's use of the pool is
// printed after it.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <thread>
#include <vector>

#include "base/adjacent_copies.h"
#include "bus/passing_bus.h"
#include "camera_model/bus_adapter/simulated_bus.h"
#include "platform/host/nt/memory/guards/freed_use.h"
#include "platform/host/nt/memory/pool.h"
#include "testbed/transport_testbed.h"

namespace lidcam::bench {
namespace {

constexpr std::size_t kBytesPerMicroframe = 3072;
constexpr std::size_t kRawFrameBytes = 614466;
constexpr std::uint64_t kMicroframesPerFrame = 267;  // 33.4 ms
constexpr double kFramesPerSecond = 30;
constexpr std::uint64_t kFrames = 90;

constexpr std::size_t kPacketsPerTransfer = 32;

// One of so many copies of the bus is timed, since a look at a thread's time is a call of the system. A frame has 8.3 of
// them: those at each place in it have their turn.
constexpr std::uint32_t kTimedCopy = 5;

double SecondsOf(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double ProcessorSeconds() {
  return SecondsOf(CLOCK_PROCESS_CPUTIME_ID);
}

double ThreadSeconds() {
  return SecondsOf(CLOCK_THREAD_CPUTIME_ID);
}

double Median(std::vector<double>& seconds) {
  const auto middle = seconds.begin() + static_cast<std::ptrdiff_t>(seconds.size() / 2);
  std::nth_element(seconds.begin(), middle, seconds.end());
  return *middle;
}

/// The simulated camera's answers to requests, and one frame's packets again and again.
class ReadyBus final : public bus::PassingBus {
 public:
  explicit ReadyBus(bus::UsbBus& camera) : PassingBus(camera), frame_(kRawFrameBytes, 0x80) {
    frame_[0] = 0xFF;
    frame_[1] = 0xD8;
  }

  bus::IsochronousResult ReadIsochronous(std::uint8_t, std::span<std::uint8_t> buffer,
                                         std::span<bus::IsochronousPacket> packets) override {
    const std::uint32_t start = microframe_;
    if (++reads_ % kTimedCopy != 0) {
      Copy(buffer, packets);
    } else {
      const double before = ThreadSeconds();
      Copy(buffer, packets);
      seconds_ = seconds_ + (ThreadSeconds() - before) * kTimedCopy;
    }
    return {bus::UsbStatus::Ok, start};
  }

  /// Processor time of all copies so far, from those that were timed. Any thread.
  [[nodiscard]] double Seconds() const { return seconds_; }
  [[nodiscard]] std::uint32_t FrameNumber() override {
    return microframe_ / bus::kMicroframesPerFrame;
  }

 private:
  void Copy(std::span<std::uint8_t> buffer, std::span<bus::IsochronousPacket> packets) {
    const std::size_t share = buffer.size() / packets.size();
    std::size_t offset = 0;
    base::AdjacentCopies copies;
    for (bus::IsochronousPacket& packet : packets) {
      const std::size_t at = microframe_++ % kMicroframesPerFrame * kBytesPerMicroframe;
      const std::size_t left = at < frame_.size() ? frame_.size() - at : 0;
      const std::size_t length = std::min({share, kBytesPerMicroframe, left});
      copies.Add(buffer.data() + offset,
                 std::span(frame_).subspan(std::min(at, frame_.size()), length));
      packet = {static_cast<std::uint32_t>(offset), static_cast<std::uint32_t>(length),
                bus::UsbStatus::Ok};
      offset += share;
    }
  }

  std::vector<std::uint8_t> frame_;
  std::uint32_t microframe_ = 0;
  std::uint32_t reads_ = 0;
  std::atomic<double> seconds_ = 0;  ///< written by the thread that reads the bus
};

/// Seconds that memcpy takes for the bytes of a frame: the median of many, over buffers that are used
/// in turn as a stream's are.
double CopySeconds() {
  constexpr std::size_t kBuffers = 4;
  constexpr std::size_t kRuns = 201;
  std::vector<std::uint8_t> from(kBuffers * kRawFrameBytes, 0x80);
  std::vector<std::uint8_t> to(kBuffers * kRawFrameBytes);
  std::vector<double> seconds;
  for (std::size_t run = 0; run < kRuns; ++run) {
    const std::size_t at = run % kBuffers * kRawFrameBytes;
    const double start = ProcessorSeconds();
    std::memcpy(to.data() + at, from.data() + at, kRawFrameBytes);
    benchmark::ClobberMemory();
    seconds.push_back(ProcessorSeconds() - start);
  }
  return Median(seconds);
}

/// Bare copies of a frame as the driver makes them, at the stream's pace: the caches have lost much of
/// the memory since the frame before.
struct PacedCopies {
  double ToRawFrame = 0;  ///< seconds a frame, from transfers that were just written
  double ToPicture = 0;   ///< seconds a frame, from the raw frame at once
};

PacedCopies MeasurePacedCopies() {
  constexpr std::size_t kRuns = 31;
  constexpr std::size_t kTransfers = 7;
  constexpr std::size_t kTransferBytes = kPacketsPerTransfer * kBytesPerMicroframe;
  const std::vector<std::uint8_t> bus(kRawFrameBytes, 0x80);
  std::vector<std::uint8_t> transfers(kTransfers * kTransferBytes);
  std::vector<std::uint8_t> raw(2 * kRawFrameBytes);
  std::vector<std::uint8_t> picture(kRawFrameBytes);
  std::vector<double> toRaw;
  std::vector<double> toPicture;
  std::size_t transfer = 0;
  for (std::size_t run = 0; run < kRuns; ++run) {
    std::uint8_t* const frame = raw.data() + run % 2 * kRawFrameBytes;
    double seconds = 0;
    for (std::size_t at = 0; at < kRawFrameBytes; at += kTransferBytes) {
      std::this_thread::sleep_for(std::chrono::milliseconds(4));
      const std::size_t bytes = std::min(kTransferBytes, kRawFrameBytes - at);
      std::uint8_t* const packets = transfers.data() + transfer++ % kTransfers * kTransferBytes;
      std::memcpy(packets, bus.data() + at, bytes);
      benchmark::ClobberMemory();
      const double start = ThreadSeconds();
      std::memcpy(frame + at, packets, bytes);
      benchmark::ClobberMemory();
      seconds += ThreadSeconds() - start;
    }
    toRaw.push_back(seconds);
    const double start = ThreadSeconds();
    std::memcpy(picture.data(), frame, kRawFrameBytes);
    benchmark::ClobberMemory();
    toPicture.push_back(ThreadSeconds() - start);
  }
  return {Median(toRaw), Median(toPicture)};
}

/// Processor seconds a frame.
struct FrameCost {
  double Whole = 0;  ///< of all threads; 0 if the stream doesn't start
  double Bus = 0;    ///< of it, the bus's copy of the packets
};

FrameCost CostOfFrame(testbed::TransportTestbed& camera, const ReadyBus& bus) {
  if (!NT_SUCCESS(camera.Start()) || !NT_SUCCESS(camera.Acquire({})) || !NT_SUCCESS(camera.Run())) {
    return {};
  }
  // The first round of the transfers has gaps.
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  const std::uint64_t first = camera.Counts().Microframes;
  const double busBefore = bus.Seconds();
  const double start = ProcessorSeconds();
  while (camera.Counts().Microframes - first < kFrames * kMicroframesPerFrame) {
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
  }
  const double seconds = ProcessorSeconds() - start;
  const double busSeconds = bus.Seconds() - busBefore;
  const std::uint64_t microframes = camera.Counts().Microframes - first;
  const double frames =
      static_cast<double>(microframes) / static_cast<double>(kMicroframesPerFrame);
  return {seconds / frames, busSeconds / frames};
}

void MeasureStream(benchmark::State& state, bool isDelivered) {
  bus::SimulatedBus simulated{{}};
  ReadyBus bus{simulated};
  FrameCost frame;
  for ([[maybe_unused]] auto iteration : state) {
    testbed::WithTransportTestbed(
        bus, {.TakesFrames = isDelivered},
        [&](testbed::TransportTestbed& camera) { frame = CostOfFrame(camera, bus); });
    state.SetIterationTime(frame.Whole);
  }
  if (frame.Whole <= 0) {
    state.SkipWithError("the stream does not start");
    return;
  }
  const double copy = CopySeconds();
  const PacedCopies paced = MeasurePacedCopies();
  state.counters["bus_us"] = frame.Bus * 1e6;
  state.counters["raw_copy_us"] = paced.ToRawFrame * 1e6;
  if (isDelivered) state.counters["picture_copy_us"] = paced.ToPicture * 1e6;
  state.counters["memcpy_us"] = copy * 1e6;
  state.counters["ratio"] = frame.Whole / copy;
  state.counters["ratio_without_bus"] = (frame.Whole - frame.Bus) / copy;
  state.counters["cameras_per_core"] = 1 / (frame.Whole * kFramesPerSecond);
}

void AsStream(benchmark::internal::Benchmark* benchmark) {
  benchmark->UseManualTime()->Iterations(1)->Repetitions(5)->ReportAggregatesOnly()->Unit(
      benchmark::kMicrosecond);
}

BENCHMARK_CAPTURE(MeasureStream, published, false)->Name("frame published")->Apply(AsStream);
BENCHMARK_CAPTURE(MeasureStream, delivered, true)->Name("frame delivered")->Apply(AsStream);

const char* UserOf(const host::PoolBlocks& blocks, const UsbStreamRecord& stream) {
  if (blocks.Tag == host::kIrpTag) return "requests of the transfers";
  if (blocks.Size >= stream.RawMemory->Size) return "two raw buffers";
  if (blocks.Size >= stream.Pipeline->Transfers[0].Memory->Size) return "transfers";
  return "others";
}

/// Use of the pool: at rest, and block by block what a running stream of 640x480 adds.
void PrintMemory() {
  bus::SimulatedBus bus({});
  testbed::RunInVirtualTime({.Seed = 1, .KeepsFreedPool = false}, [&bus] {
    testbed::WithTransportTestbed(bus, {}, [](testbed::TransportTestbed& camera) {
      if (!NT_SUCCESS(camera.Start())) return;
      const std::size_t atRest = host::PoolUsageOfAll().Bytes;
      const std::vector<host::PoolBlocks> before = host::PoolBlocksOfAll();
      if (!NT_SUCCESS(camera.Acquire({})) || !NT_SUCCESS(camera.Run())) return;
      camera.WaitForFrames(2, testbed::kSecond);
      std::printf("pool of a started camera: %zu bytes; a running stream of 640x480 adds %zu:\n",
                  atRest, host::PoolUsageOfAll().Bytes - atRest);
      for (const host::PoolBlocks& blocks :
           host::PoolBlocksAdded(host::PoolBlocksOfAll(), before)) {
        std::printf("  %zu of %7zu bytes, tag %s: %7zu, %s\n", blocks.Count, blocks.Size,
                    host::TagText(blocks.Tag).c_str(), blocks.Count * blocks.Size,
                    UserOf(blocks, *camera.Device().UsbStream));
      }
    });
  });
}

}  // namespace
}  // namespace lidcam::bench

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  lidcam::bench::PrintMemory();
  return 0;
}
