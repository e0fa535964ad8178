// Assembly of frames of 640 by 480 against memcpy of the same bytes over the same buffers.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "bench/paired_benchmark.h"
#include "driver/frame/assembly/frame_assembly.h"

namespace lidcam::bench {
namespace {

constexpr std::uint32_t kFrameBytes = 614466;
constexpr std::uint32_t kRawBufferSize = 921666;
constexpr std::uint32_t kPacketsPerTransfer = 32;
constexpr std::size_t kTransfersInFlight = 7;
constexpr std::uint8_t kPixel = 0x80;

/// The packets of one transfer of a frame: full ones; at the frame's end a rest and empty ones.
struct TransferPlan {
  std::vector<TransferPacket> Packets;
  std::uint32_t Bytes;
};

std::vector<TransferPlan> PlanFrame(std::uint32_t packetSize) {
  std::vector<TransferPlan> plans;
  for (std::uint32_t left = kFrameBytes; left > 0;) {
    TransferPlan plan{};
    for (std::uint32_t i = 0; i < kPacketsPerTransfer; ++i) {
      const std::uint32_t length = std::min(left, packetSize);
      plan.Packets.push_back({i * packetSize, length});
      plan.Bytes += length;
      left -= length;
    }
    plans.push_back(plan);
  }
  return plans;
}

/// Seven transfers that circulate and the two raw buffers, as in a running stream.
///
/// Writing the packets, which is the camera's part, is reduced to the two bytes at a transfer's
/// head that make it a frame start or not, so that both contestants read memory that the other has
/// read before.
class Stream {
 public:
  explicit Stream(std::uint32_t packetSize)
      : transferBytes_(kPacketsPerTransfer * packetSize),
        plan_(PlanFrame(packetSize)),
        transfers_(kTransfersInFlight * transferBytes_, kPixel),
        rawBuffers_(std::size_t{2} * kRawBufferSize) {
    context_.RawFrameSize = kFrameBytes;
    context_.ReceivedFrameBytes = kFrameBytes;
    context_.FrameSettleCount = 5;
    assembly_.Sink = {this, NotProcessing, CountFrame, Running, Wake};
    PlaceRawBuffers(assembly_, rawBuffers_.data(), kRawBufferSize);
    BeginAssembly(assembly_);
  }

  void AssembleFrame() {
    for (const TransferPlan& plan : plan_) {
      const std::uint8_t* const buffer = ReceiveTransfer(&plan == plan_.data());
      AssembleTransfer(assembly_, context_, buffer, transferBytes_, plan.Packets.data(),
                       kPacketsPerTransfer);
    }
  }

  void CopyFrame() {
    std::uint8_t* target = rawBuffers_.data() + copyHalf_ * kRawBufferSize;
    copyHalf_ = 1 - copyHalf_;
    for (const TransferPlan& plan : plan_) {
      std::memcpy(target, ReceiveTransfer(&plan == plan_.data()), plan.Bytes);
      target += plan.Bytes;
    }
  }

  [[nodiscard]] std::uint32_t FramesPublished() const { return published_; }

 private:
  static std::uint8_t NotProcessing(void*) { return 0; }
  static std::uint8_t Running(void*) { return 1; }
  static void Wake(void*) {}
  static void CountFrame(void* context, std::uint8_t*, std::uint32_t size) {
    auto& stream = *static_cast<Stream*>(context);
    if (size == kFrameBytes) ++stream.published_;
  }

  std::uint8_t* ReceiveTransfer(bool startsFrame) {
    std::uint8_t* const buffer = transfers_.data() + slot_ * transferBytes_;
    slot_ = (slot_ + 1) % kTransfersInFlight;
    buffer[0] = startsFrame ? 0xFF : kPixel;
    buffer[1] = startsFrame ? 0xD8 : kPixel;
    return buffer;
  }

  std::uint32_t transferBytes_;
  std::vector<TransferPlan> plan_;
  std::vector<std::uint8_t> transfers_;
  std::vector<std::uint8_t> rawBuffers_;
  std::size_t slot_ = 0;
  std::size_t copyHalf_ = 0;
  std::uint32_t published_ = 0;
  CameraContext context_{};
  FrameAssembly assembly_{};
};

void MeasureAssembly(benchmark::State& state, std::uint32_t packetSize, double goal) {
  const auto stream = std::make_unique<Stream>(packetSize);
  PairedTiming timing(kFrameBytes);
  for ([[maybe_unused]] auto iteration : state) {
    timing.Measure(
        state, [&stream] { stream->AssembleFrame(); }, [&stream] { stream->CopyFrame(); });
  }
  // The last frame is not complete yet.
  if (stream->FramesPublished() + 1 != static_cast<std::uint32_t>(state.iterations())) {
    state.SkipWithError("not every frame was published");
  }
  timing.Report(state, goal);
}

BENCHMARK_CAPTURE(MeasureAssembly, packets_of_128, 128, 0.0)->Apply(AsPair);
BENCHMARK_CAPTURE(MeasureAssembly, packets_of_512, 512, 0.0)->Apply(AsPair);
BENCHMARK_CAPTURE(MeasureAssembly, packets_of_1024, 1024, 1.6)->Apply(AsPair);
BENCHMARK_CAPTURE(MeasureAssembly, packets_of_3072, 3072, 1.35)->Apply(AsPair);

}  // namespace
}  // namespace lidcam::bench
