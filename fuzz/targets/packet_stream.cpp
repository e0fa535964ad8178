// Transfers as a hostile bus could complete them: any lengths, offsets and payloads, with stream
// starts, settlings and a consumer that is busy at any time. In all cases the assembly stays inside
// its buffers and never publishes the buffer it fills.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "driver/frame/assembly/frame_assembly.h"
#include "driver/frame/assembly/packet_walk.h"
#include "fuzz/support/input.h"
#include "platform/host/nt/system/debug_print.h"

namespace lidcam::fuzz {
namespace {

constexpr std::uint32_t kLongestPacket = 700;

class Stream {
 public:
  explicit Stream(Input& input)
      : input_(input),
        size_(1 + input.UpTo(1999)),
        first_(std::make_unique<std::uint8_t[]>(size_)),
        second_(std::make_unique<std::uint8_t[]>(size_)) {
    // Two allocations rather than one of both halves, so that an access beyond one is detected.
    assembly_.ReadyBuffer = first_.get();
    assembly_.FillBuffer = second_.get();
    assembly_.RawBufferSize = size_;
    assembly_.Sink = {this, IsProcessing, Publish, IsRunning, Wake};
    context_.RawFrameSize = input.UpTo(1500);
    context_.ReceivedFrameBytes = input.Take<std::uint32_t>();
    BeginAssembly(assembly_);
  }

  void Run() {
    while (!input_.IsEmpty()) {
      switch (input_.UpTo(15)) {
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
        case 3:
          isRunning_ = !isRunning_;
          break;
        case 4:
          TakePacketOfAnotherCamera();
          break;
        case 5:
          TakeOnePacket();
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
    Input& input = Of(context).input_;
    return input.OneIn(4) ? 1 : 0;
  }

  static void Publish(void* context, std::uint8_t* buffer, std::uint32_t size) {
    Stream& stream = Of(context);
    const FrameAssembly& assembly = stream.assembly_;
    Require(buffer == assembly.ReadyBuffer && buffer != assembly.FillBuffer);
    Require(size == assembly.FillFrameBytes);
    // A frame that was stored from its start begins with the marker.
    if (!stream.wasForced_ && size != 0 && size == assembly.FillOffset) Require(buffer[0] == 0xFF);
    ++stream.published_;
    if (!stream.wasForced_) Require(stream.published_ <= stream.context_.FrameStartCount);
    if (stream.isRunning_) ++stream.wakesDue_;
    PublishRawFrame(stream.shown_, buffer, size);
  }

  static std::uint8_t IsRunning(void* context) { return Of(context).isRunning_ ? 1 : 0; }

  static void Wake(void* context) { ++Of(context).woken_; }

  // A parser with any result that stays within the packet.
  static std::uint32_t ParseAnything(CameraContext&, const std::uint8_t* data, std::uint32_t length,
                                     std::uint8_t& frameEnd, std::uint32_t& flags,
                                     std::uint32_t& offset) {
    const std::uint8_t verdict = data != nullptr ? data[0] : 0;
    frameEnd = verdict & 1U;
    if ((verdict & 2U) != 0) flags |= kPacketFlagBadFrame;
    if ((verdict & 4U) != 0) flags |= kPacketFlagForcePublish;
    offset = length != 0 && (verdict & 8U) != 0 ? length / 2 : 0;
    return length - offset;
  }

  void TakePacketOfAnotherCamera() {
    wasForced_ = true;
    const std::uint32_t length = input_.UpTo(kLongestPacket);
    const auto packet = std::make_unique<std::uint8_t[]>(length);
    input_.TakeInto(packet.get(), length);
    PacketWalk<ParseAnything> walk(assembly_, context_);
    walk.Take(length != 0 ? packet.get() : nullptr, length);
    walk.Flush();
    assembly_.BadFrameEnd = 0;
  }

  // The parser reads two bytes, if the packet has them.
  void TakeOnePacket() {
    const std::uint32_t length = input_.UpTo(kLongestPacket);
    const auto packet = std::make_unique<std::uint8_t[]>(length + (length == 1 ? 1 : 0));
    input_.TakeInto(packet.get(), length);
    AssemblePacket(assembly_, context_, length != 0 ? packet.get() : nullptr, length);
  }

  // One transfer in a block of exactly its size. A descriptor is either correct or arbitrary.
  void Complete() {
    std::vector<TransferPacket> packets;
    std::uint32_t bytes = 0;
    const auto count = input_.UpTo(8);
    for (std::uint32_t i = 0; i < count; ++i) {
      const auto length = input_.UpTo(kLongestPacket);
      const TransferPacket wild{input_.Take<std::uint32_t>(), length};
      packets.push_back(input_.OneIn(16) ? wild : TransferPacket{bytes, length});
      bytes += length;
    }
    const auto buffer = std::make_unique<std::uint8_t[]>(bytes);
    input_.TakeInto(buffer.get(), bytes);
    for (const TransferPacket& packet : packets) {
      if (input_.OneIn(4)) Mark(buffer.get(), bytes, packet);
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
    Require(woken_ == wakesDue_);
    std::uint32_t shown = 0;
    std::uint8_t* const ready = GetRawFrame(shown_, shown);
    Require(ready == nullptr || ready == assembly_.ReadyBuffer);
  }

  Input& input_;
  std::uint32_t size_;
  std::unique_ptr<std::uint8_t[]> first_;
  std::unique_ptr<std::uint8_t[]> second_;
  CameraContext context_{};
  FrameAssembly assembly_{};
  PublishedFrame shown_{};
  bool wasForced_ = false;  ///< frames may be published that had no end
  bool isRunning_ = true;
  std::uint32_t wakesDue_ = 0;
  std::uint32_t published_ = 0;
  std::uint32_t woken_ = 0;
};

}  // namespace
}  // namespace lidcam::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  lidcam::host::SetDebugPrintSink(nullptr);
  lidcam::fuzz::Input input(data, size);
  lidcam::fuzz::Stream(input).Run();
  return 0;
}
