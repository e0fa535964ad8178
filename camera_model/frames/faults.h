#pragma once

#include <cstdint>
#include <random>
#include <span>
#include <vector>

namespace lidcam::camera_model {

/// What can go wrong with the packets of the isochronous stream.
enum class FaultKind : std::uint8_t {
  Lost,       ///< the packet's bytes are gone, its microframe comes empty
  Short,      ///< only the first half of the packet arrives
  Oversized,  ///< the packet is longer than its frame's rest, up to the endpoint's limit and beyond
  Corrupted,  ///< the packet arrives with wrong bytes and a bus error
  MarkerAtHead,  ///< a packet within a frame begins like a frame
  MarkerInside,  ///< the marker's bytes stand in the middle of a packet
  EmptyRun,      ///< the frame pauses for some microframes; no byte is lost
  Silence,       ///< nothing arrives for some microframes while the frame goes by
  Stall,         ///< the endpoint halts until it is cleared
};

/// One disturbance: which packet, what, and for how long.
struct PacketFault {
  static constexpr std::uint64_t kAny = UINT64_MAX;

  std::uint64_t Frame = kAny;  ///< frame counted from 0 since the stream began, or any
  std::uint64_t Packet =
      kAny;  ///< packet within the frame; with any frame, packet of the whole stream
  FaultKind Kind = FaultKind::Lost;
  std::uint32_t Microframes = 1;  ///< length of an EmptyRun or a Silence; 0 is without end
};

/// Decides for each packet whether and how it is disturbed: by a list, by chance, or both.
class FaultScript {
 public:
  FaultScript() = default;
  explicit FaultScript(std::vector<PacketFault> faults) : faults_(std::move(faults)) {}

  void Add(const PacketFault& fault) { faults_.push_back(fault); }

  /// Disturbs about one packet in `oneIn` by chance, with any kind but Stall and endless silence.
  /// @param oneIn  0 turns chance off
  void DisturbAtRandom(std::uint64_t seed, std::uint32_t oneIn);

  /// @param frame           frames begun before this one
  /// @param packetOfFrame   0 is the packet with the marker
  /// @param packetOfStream  non-empty packets before this one
  /// @return null where the packet goes out as it is; valid until the next call
  [[nodiscard]] const PacketFault* FaultFor(std::uint64_t frame, std::uint64_t packetOfFrame,
                                            std::uint64_t packetOfStream);

 private:
  std::vector<PacketFault> faults_;
  std::mt19937_64 random_;
  std::uint32_t oneIn_ = 0;
  PacketFault chance_;
};

/// A packet on its way to the host, and what the fault makes of it.
struct DisturbedPacket {
  std::vector<std::uint8_t> Bytes;
  bool HasBusError = false;
};

/// Applies the kinds that change a packet's bytes (Lost to MarkerInside).
/// @param limit  bytes per microframe of the endpoint; more than that is a bus error
[[nodiscard]] DisturbedPacket Disturb(std::span<const std::uint8_t> packet, FaultKind kind,
                                      std::uint32_t limit);

}  // namespace lidcam::camera_model
