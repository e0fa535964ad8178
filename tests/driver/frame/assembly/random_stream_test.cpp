// The assembly against a second implementation of its rules, over many random streams.

#include "tests/driver/frame/assembly/random_stream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "driver/frame/assembly/frame_assembly.h"
#include "platform/host/nt/system/debug_print.h"
#include "tests/driver/frame/assembly/stream_prediction.h"
#include "tests/driver/support/sanitizers.h"

namespace lidcam::test {
namespace {

constexpr std::uint64_t kFirstSeed = 1;
// Each costs ten times as much under a sanitizer.
const std::uint64_t kStreams = kIsSanitized ? 10000 : 100000;

/// How the packets reach the assembly.
enum class Entry { Packets, Transfers };

/// Runs the assembly over a recorded stream.
class StreamRun {
 public:
  StreamRun(const RecordedStream& stream, Entry entry)
      : stream_(stream), entry_(entry), rawBuffers_(std::size_t{2} * stream.RawBufferSize) {
    context_.RawFrameSize = stream.RawFrameSize;
    context_.ReceivedFrameBytes = stream.ReceivedFrameBytes;
    context_.FrameSettleCount = stream.FrameSettleCount;
    assembly_.Sink = {this, IsProcessing, Publish, IsRunning, Wake};
    PlaceRawBuffers(assembly_, rawBuffers_.data(), stream.RawBufferSize);
  }

  StreamOutcome Outcome() {
    host::SetDebugPrintSink(
        [this](const std::string& message) { outcome_.Events.push_back(message); });
    BeginAssembly(assembly_);
    for (const RecordedTransfer& transfer : stream_.Transfers) Take(transfer);
    host::SetDebugPrintSink(nullptr);
    outcome_.ReceivedFrameBytes = context_.ReceivedFrameBytes;
    outcome_.FramePacketCount = context_.FramePacketCount;
    outcome_.FrameStartCount = context_.FrameStartCount;
    outcome_.FrameSettleCount = context_.FrameSettleCount;
    outcome_.FillOffset = assembly_.FillOffset;
    outcome_.FillFrameBytes = assembly_.FillFrameBytes;
    outcome_.DiscardFrame = assembly_.DiscardFrame != 0;
    return outcome_;
  }

 private:
  void Take(const RecordedTransfer& transfer) {
    if (transfer.StreamStarted) BeginAssembly(assembly_);
    if (transfer.SettlingWanted) context_.FrameSettleCount = 0;
    if (entry_ == Entry::Packets) {
      for (const TransferPacket& packet : transfer.Packets) TakePacket(transfer.Buffer, packet);
      return;
    }
    AssembleTransfer(assembly_, context_, transfer.Buffer.data(),
                     static_cast<std::uint32_t>(transfer.Buffer.size()), transfer.Packets.data(),
                     static_cast<std::uint32_t>(transfer.Packets.size()));
  }

  // Each from a block of its own, with the one byte behind it that the parser may read.
  void TakePacket(const std::vector<std::uint8_t>& buffer, const TransferPacket& packet) {
    if (packet.Length == 0) {
      AssemblePacket(assembly_, context_, nullptr, 0);
      return;
    }
    const auto from = buffer.begin() + packet.Offset;
    std::vector<std::uint8_t> bytes(from, from + packet.Length);
    const std::size_t behind = std::size_t{packet.Offset} + packet.Length;
    bytes.push_back(behind < buffer.size() ? buffer[behind] : std::uint8_t{0});
    AssemblePacket(assembly_, context_, bytes.data(), packet.Length);
  }

  static StreamRun& Of(void* context) { return *static_cast<StreamRun*>(context); }

  static std::uint8_t IsProcessing(void* context) {
    StreamRun& run = Of(context);
    const bool busy = run.stream_.Busy[run.finished_++ % run.stream_.Busy.size()];
    if (busy) run.outcome_.Events.emplace_back("busy");
    return busy ? 1 : 0;
  }

  static void Publish(void* context, std::uint8_t* buffer, std::uint32_t size) {
    StreamRun& run = Of(context);
    run.outcome_.Events.emplace_back("publish");
    run.outcome_.Frames.push_back({size,
                                   {buffer, buffer + run.assembly_.FillOffset},
                                   buffer == run.rawBuffers_.data() ? 0 : 1});
  }

  static std::uint8_t IsRunning(void* context) { return Of(context).stream_.Running ? 1 : 0; }

  static void Wake(void* context) { Of(context).outcome_.Events.emplace_back("wake"); }

  const RecordedStream& stream_;
  const Entry entry_;
  std::vector<std::uint8_t> rawBuffers_;
  CameraContext context_{};
  FrameAssembly assembly_{};
  std::size_t finished_ = 0;
  StreamOutcome outcome_;
};

std::string FirstDifference(const StreamOutcome& assembled, const StreamOutcome& predicted) {
  for (std::size_t i = 0; i < std::max(assembled.Events.size(), predicted.Events.size()); ++i) {
    const std::string left = i < assembled.Events.size() ? assembled.Events[i] : "nothing";
    const std::string right = i < predicted.Events.size() ? predicted.Events[i] : "nothing";
    if (left != right) return "event " + std::to_string(i) + ": " + left + ", not " + right;
  }
  for (std::size_t i = 0; i < std::min(assembled.Frames.size(), predicted.Frames.size()); ++i) {
    if (assembled.Frames[i] == predicted.Frames[i]) continue;
    return "frame " + std::to_string(i) + " of size " + std::to_string(assembled.Frames[i].Size) +
           " with " + std::to_string(assembled.Frames[i].Stored.size()) +
           " bytes stored, predicted " + std::to_string(predicted.Frames[i].Size) + " and " +
           std::to_string(predicted.Frames[i].Stored.size());
  }
  const auto counters = [](const StreamOutcome& o) {
    std::string text;
    for (const std::uint32_t value :
         {o.ReceivedFrameBytes, o.FramePacketCount, o.FrameStartCount, o.FrameSettleCount,
          o.FillOffset, o.FillFrameBytes, std::uint32_t{o.DiscardFrame}}) {
      text += " " + std::to_string(value);
    }
    return text;
  };
  return "counters" + counters(assembled) + ", predicted" + counters(predicted);
}

/// How often the streams reached the cases that they are made for.
struct Coverage {
  std::size_t Published = 0;
  std::size_t Busy = 0;
  std::size_t WrongSizes = 0;
  std::size_t Settled = 0;
  std::size_t Restarted = 0;
  std::size_t FilledToTheLastByte = 0;
  std::size_t StartsThatDidNotFit = 0;

  void Count(const RecordedStream& stream, const StreamOutcome& outcome) {
    Published += outcome.Frames.size();
    for (const std::string& event : outcome.Events) {
      if (event == "busy") ++Busy;
      if (event[0] == 'C') ++WrongSizes;
    }
    for (const RecordedTransfer& transfer : stream.Transfers) {
      if (transfer.SettlingWanted) ++Settled;
      if (transfer.StreamStarted) ++Restarted;
    }
    for (const HandedFrame& frame : outcome.Frames) {
      if (frame.Stored.size() == stream.RawBufferSize) ++FilledToTheLastByte;
      if (frame.Stored.size() < frame.Size) ++StartsThatDidNotFit;
    }
  }
};

TEST(RandomStreams, AreAssembledAsTheirMarkersForetell) {
  Coverage coverage;
  for (std::uint64_t seed = kFirstSeed; seed < kFirstSeed + kStreams; ++seed) {
    const RecordedStream stream = MakeRandomStream(seed);
    const StreamOutcome predicted = PredictStream(stream);
    const StreamOutcome assembled = StreamRun(stream, Entry::Transfers).Outcome();
    ASSERT_TRUE(assembled == predicted)
        << "seed " << seed << ", " << FirstDifference(assembled, predicted);
    const StreamOutcome byPackets = StreamRun(stream, Entry::Packets).Outcome();
    ASSERT_TRUE(byPackets == predicted)
        << "seed " << seed << " packet by packet, " << FirstDifference(byPackets, predicted);
    coverage.Count(stream, assembled);
  }
  EXPECT_GT(coverage.Published, kStreams);
  EXPECT_GT(coverage.Busy, kStreams / 10);
  EXPECT_GT(coverage.WrongSizes, kStreams);
  EXPECT_GT(coverage.Settled, kStreams / 10);
  EXPECT_GT(coverage.Restarted, kStreams / 10);
  EXPECT_GT(coverage.FilledToTheLastByte, kStreams / 1000);
  EXPECT_GT(coverage.StartsThatDidNotFit, kStreams / 100);
}

TEST(RandomStreams, AreTheSameFromTheSameSeed) {
  for (const std::uint64_t seed : {1U, 77U, 4000U}) {
    const StreamOutcome first = PredictStream(MakeRandomStream(seed));
    EXPECT_TRUE(first == PredictStream(MakeRandomStream(seed)));
    EXPECT_FALSE(first == PredictStream(MakeRandomStream(seed + 1)));
  }
}

}  // namespace
}  // namespace lidcam::test
