// Transfers as a hostile bus could complete them: any lengths, offsets and payloads, with stream
// starts, settlings and a consumer that is busy at any time. Whatever comes, the assembly stays
// inside its buffers and never hands out the buffer it fills.

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "driver/frame/frame_assembly.h"
#include "platform/host/nt/debug_print.h"

namespace lidcam {
namespace {

constexpr std::uint32_t kLongestPacket = 700;

void Require(bool holds) {
  if (!holds) std::abort();
}

class Stream {
 public:
  explicit Stream(FuzzedDataProvider& input)
      : input_(input),
        size_(input.ConsumeIntegralInRange<std::uint32_t>(1, 2000)),
        first_(std::make_unique<std::uint8_t[]>(size_)),
        second_(std::make_unique<std::uint8_t[]>(size_)) {
    // Two allocations rather than one of both halves, so that a step from one into the other shows.
    assembly_.ReadyBuffer = first_.get();
    assembly_.FillBuffer = second_.get();
    assembly_.RawBufferSize = size_;
    assembly_.Sink = {this, IsProcessing, Publish, IsRunning, Wake};
    context_.RawFrameSize = input.ConsumeIntegralInRange<std::uint32_t>(0, 1500);
    context_.ReceivedFrameBytes = input.ConsumeIntegral<std::uint32_t>();
    BeginAssembly(assembly_);
  }

  void Run() {
    while (input_.remaining_bytes() > 0) {
      switch (input_.ConsumeIntegralInRange<int>(0, 15)) {
        case 0:
          BeginAssembly(assembly_);
          break;
        case 1:
          context_.FrameSettleCount = 0;
          break;
        case 2:
          assembly_.ForcePublish = 1;
          wasForced_ = true;
          break;
        default:
          Complete();
          break;
      }
      CheckState();
    }
  }

 private:
  static Stream& Of(void* context) { return *static_cast<Stream*>(context); }

  static std::uint8_t IsProcessing(void* context) {
    FuzzedDataProvider& input = Of(context).input_;
    return input.ConsumeIntegral<std::uint8_t>() % 4 == 0 ? 1 : 0;
  }

  static void Publish(void* context, std::uint8_t* buffer, std::uint32_t size) {
    Stream& stream = Of(context);
    const FrameAssembly& assembly = stream.assembly_;
    Require(buffer == assembly.ReadyBuffer && buffer != assembly.FillBuffer);
    Require(size == assembly.FillFrameBytes);
    // A frame that was stored from its start on begins with the marker.
    if (!stream.wasForced_ && size != 0 && size == assembly.FillOffset) Require(buffer[0] == 0xFF);
    ++stream.published_;
    Require(stream.published_ <= stream.context_.FrameStartCount);
  }

  static std::uint8_t IsRunning(void*) { return 1; }

  static void Wake(void* context) { ++Of(context).woken_; }

  // One transfer in a block of exactly its size. A descriptor is either true or anything at all.
  void Complete() {
    std::vector<TransferPacket> packets;
    std::uint32_t bytes = 0;
    const auto count = input_.ConsumeIntegralInRange<std::uint32_t>(0, 8);
    for (std::uint32_t i = 0; i < count; ++i) {
      const auto length = input_.ConsumeIntegralInRange<std::uint32_t>(0, kLongestPacket);
      const TransferPacket wild{input_.ConsumeIntegral<std::uint32_t>(), length};
      packets.push_back(
          input_.ConsumeIntegral<std::uint8_t>() == 0 ? wild : TransferPacket{bytes, length});
      bytes += length;
    }
    const auto buffer = std::make_unique<std::uint8_t[]>(bytes);
    input_.ConsumeData(buffer.get(), bytes);
    for (const TransferPacket& packet : packets) {
      if (input_.ConsumeIntegral<std::uint8_t>() % 4 == 0) Mark(buffer.get(), bytes, packet);
    }
    AssembleTransfer(assembly_, context_, buffer.get(), bytes, packets.data(), count);
  }

  static void Mark(std::uint8_t* buffer, std::uint32_t bytes, const TransferPacket& packet) {
    if (packet.Offset < bytes) buffer[packet.Offset] = 0xFF;
    if (bytes > 1 && packet.Offset < bytes - 1) buffer[packet.Offset + 1] = 0xD8;
  }

  void CheckState() const {
    Require(assembly_.FillOffset <= assembly_.RawBufferSize);
    Require(assembly_.FillOffset <= assembly_.FillFrameBytes);
    Require(assembly_.RawBufferSize == size_);
    Require(assembly_.BadFrameEnd == 0);
    Require((assembly_.FillBuffer == first_.get() && assembly_.ReadyBuffer == second_.get()) ||
            (assembly_.FillBuffer == second_.get() && assembly_.ReadyBuffer == first_.get()));
    const std::uint32_t settle = context_.FrameSettleCount;
    Require(settle == 0 || settle == 4 || settle == 5);
    Require(woken_ == published_);
  }

  FuzzedDataProvider& input_;
  std::uint32_t size_;
  std::unique_ptr<std::uint8_t[]> first_;
  std::unique_ptr<std::uint8_t[]> second_;
  CameraContext context_{};
  FrameAssembly assembly_{};
  bool wasForced_ = false;
  std::uint32_t published_ = 0;
  std::uint32_t woken_ = 0;
};

}  // namespace
}  // namespace lidcam

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  lidcam::host::SetDebugPrintSink(nullptr);
  FuzzedDataProvider input(data, size);
  lidcam::Stream(input).Run();
  return 0;
}
