#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "driver/frame/assembly/frame_assembly.h"

namespace lidcam::test {

/// One completed transfer, and what happened just before it.
struct RecordedTransfer {
  std::vector<std::uint8_t> Buffer;
  std::vector<TransferPacket> Packets;
  bool StreamStarted;   ///< the stream was stopped and started again
  bool SettlingWanted;  ///< the light state changed
};

/// A whole stream of transfers with its initial state and events.
struct RecordedStream {
  std::vector<RecordedTransfer> Transfers;
  std::vector<bool> Busy;  ///< the consumer's answer at the n-th finished frame, repeated
  bool Running;
  std::uint32_t RawFrameSize;
  std::uint32_t RawBufferSize;
  std::uint32_t ReceivedFrameBytes;  ///< left by the stream before
  std::uint32_t FrameSettleCount;    ///< left by the stream before
};

/// A frame as it was published.
struct HandedFrame {
  std::uint32_t Size;
  std::vector<std::uint8_t> Stored;
  int Half;  ///< 0 or 1: which raw buffer of the block
  friend bool operator==(const HandedFrame&, const HandedFrame&) = default;
};

/// The result of a stream.
struct StreamOutcome {
  std::vector<std::string> Events;  ///< debug messages, "publish", "busy", "wake"
  std::vector<HandedFrame> Frames;
  std::uint32_t ReceivedFrameBytes = 0;
  std::uint32_t FramePacketCount = 0;
  std::uint32_t FrameStartCount = 0;
  std::uint32_t FrameSettleCount = 0;
  std::uint32_t FillOffset = 0;
  std::uint32_t FillFrameBytes = 0;
  bool DiscardFrame = false;
  friend bool operator==(const StreamOutcome&, const StreamOutcome&) = default;
};

/// A stream of frames with every disturbance that a bus and a camera can cause, from its seed
/// alone.
RecordedStream MakeRandomStream(std::uint64_t seed);

}  // namespace lidcam::test
