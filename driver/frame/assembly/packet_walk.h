#pragma once

#include <cstdint>
#include <cstring>

#include "driver/core/base/camera_trace.h"
#include "driver/core/control/camera_lifecycle.h"
#include "driver/frame/assembly/frame_assembly.h"
#include "driver/frame/raw/raw_frame_parser.h"

namespace lidcam {

/// Decides the meaning of a packet: see ParseRawPacket(). Another camera's parser may force a frame
/// to be published, and may have a packet stored in part: `offset` and the bytes returned then name
/// a piece inside the packet.
using PacketParser = std::uint32_t (*)(CameraContext& context, const std::uint8_t* data,
                                       std::uint32_t length, std::uint8_t& frameEnd,
                                       std::uint32_t& flags, std::uint32_t& offset);

/// Takes packets one after the other. What it takes must stay readable until Flush(), after which
/// nothing is left pending.
///
/// The parser is a template argument and not a pointer held, so that it is inlined: it runs for every
/// one of thousands of packets a second.
/// @par Callable on the frame thread only
template <PacketParser kParse = ParseRawPacket>
class PacketWalk {
 public:
  PacketWalk(FrameAssembly& assembly, CameraContext& context)
      : assembly_(assembly), context_(context) {}

  /// Takes one packet; `data` as the parser requires it.
  void Take(const std::uint8_t* data, std::uint32_t length);

  /// Copies all pending bytes to the raw buffer.
  void Flush();

 private:
  /// The bytes of a packet to store; 0 and null if it is empty.
  struct Payload {
    const std::uint8_t* Bytes;
    std::uint32_t Size;
  };

  /// Bytes with a place in the raw buffer that are still to be copied there. Full packets lie end
  /// to end in a transfer as they do in the frame, so that many of them are one copy.
  struct PendingCopy {
    const std::uint8_t* Source;
    std::uint8_t* Destination;
    std::uint32_t Size;
  };

  void ContinueFrame(Payload payload);
  void TurnFrame(Payload payload, bool isBad);
  void FinishFrame();
  void BeginFrame(Payload payload);
  [[nodiscard]] bool Fits(std::uint32_t size) const;
  void Store(Payload payload);

  FrameAssembly& assembly_;
  CameraContext& context_;
  PendingCopy pending_{};
};

template <PacketParser kParse>
void PacketWalk<kParse>::Take(const std::uint8_t* data, std::uint32_t length) {
  std::uint8_t frameEnd = 0;
  std::uint32_t flags = 0;
  std::uint32_t offset = 0;
  const std::uint32_t size = kParse(context_, data, length, frameEnd, flags, offset);
  const Payload payload = length != 0 ? Payload{data + offset, size} : Payload{};
  const bool isBad = (flags & kPacketFlagBadFrame) != 0;
  if ((flags & kPacketFlagForcePublish) != 0) assembly_.ForcePublish = 1;
  if (frameEnd != 0) [[unlikely]] {
    TurnFrame(payload, isBad);
    return;
  }
  if (isBad) assembly_.DiscardFrame = 1;
  ContinueFrame(payload);
}

template <PacketParser kParse>
void PacketWalk<kParse>::ContinueFrame(Payload payload) {
  if (payload.Size == 0 || assembly_.DiscardFrame != 0 || !Fits(payload.Size)) return;
  assembly_.FillFrameBytes += payload.Size;
  Store(payload);
}

template <PacketParser kParse>
void PacketWalk<kParse>::TurnFrame(Payload payload, bool isBad) {
  Flush();
  if (isBad) assembly_.BadFrameEnd = 1;
  FinishFrame();
  if (assembly_.BadFrameEnd != 0) {
    assembly_.BadFrameEnd = 0;
    assembly_.DiscardFrame = 1;
    return;
  }
  BeginFrame(payload);
}

// A frame whose start was discarded is published only if that is forced.
template <PacketParser kParse>
void PacketWalk<kParse>::FinishFrame() {
  if (assembly_.ForcePublish != 0) {
    PublishFrame(assembly_, &context_);
    assembly_.ForcePublish = 0;
  } else if (assembly_.DiscardFrame != 0) {
    assembly_.DiscardFrame = 0;
    TraceCamera(&context_, "frame discarded");
  } else {
    PublishFrame(assembly_, &context_);
  }
}

// A start packet too large for the whole buffer is counted but not stored.
template <PacketParser kParse>
void PacketWalk<kParse>::BeginFrame(Payload payload) {
  assembly_.FillOffset = 0;
  assembly_.FillFrameBytes = payload.Size;
  assembly_.DiscardFrame = 0;
  StreamIdle(context_);
  if (payload.Size != 0 && Fits(payload.Size)) Store(payload);
}

// In 64 bits, so that no packet length wraps round to a place inside the buffer.
template <PacketParser kParse>
bool PacketWalk<kParse>::Fits(std::uint32_t size) const {
  return std::uint64_t{assembly_.FillOffset} + size <= assembly_.RawBufferSize;
}

template <PacketParser kParse>
void PacketWalk<kParse>::Store(Payload payload) {
  if (payload.Bytes != pending_.Source + pending_.Size) {
    Flush();
    pending_ = {payload.Bytes, assembly_.FillBuffer + assembly_.FillOffset, 0};
  }
  pending_.Size += payload.Size;
  assembly_.FillOffset += payload.Size;
}

template <PacketParser kParse>
void PacketWalk<kParse>::Flush() {
  if (pending_.Size != 0) std::memcpy(pending_.Destination, pending_.Source, pending_.Size);
  pending_ = {};
}

/// The walk of AssembleTransfer(), with the parser that the walk has.
///
/// @tparam Packet  has an Offset and a Length: a TransferPacket, or the USB stack's own descriptor
template <PacketParser kParse, typename Packet>
void TakeTransfer(PacketWalk<kParse>& walk, const std::uint8_t* buffer, std::uint32_t bufferSize,
                  const Packet* packets, std::uint32_t count) {
  for (std::uint32_t i = 0; i < count; ++i) {
    const Packet& packet = packets[i];
    const bool liesInside =
        packet.Offset <= bufferSize && packet.Length <= bufferSize - packet.Offset;
    if (packet.Length == 0 || !liesInside) {
      walk.Take(nullptr, 0);
    } else if (packet.Length == 1 && packet.Offset + 1 == bufferSize) {
      // The buffer has no byte behind this packet, but the parser reads one: it gets zero.
      const std::uint8_t lastByte[2] = {buffer[packet.Offset], 0};
      walk.Take(lastByte, 1);
      walk.Flush();
    } else {
      walk.Take(buffer + packet.Offset, packet.Length);
    }
  }
  walk.Flush();
}

}  // namespace lidcam
