#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace lidcam::bus {

/// The place on the bus where a fault is injected.
enum class FaultPlace : std::uint8_t {
  Control,  ///< a control request, counted from 1 since the bus was made
  Setting,  ///< the selection of an alternate setting
  Time,     ///< the isochronous reads from a bus time on
  Frame,    ///< a packet of a simulated camera's frames; other buses have no frames
};
inline constexpr std::size_t kFaultPlaceCount = 4;

enum class FaultKind : std::uint8_t {
  Stall,       ///< the request is refused; for a frame: the endpoint halts until it is cleared
  Fail,        ///< the request or the whole read fails on the wire
  Silent,      ///< the request or the whole read is never answered
  Late,        ///< the answer waits for `Amount` microseconds
  Short,       ///< the answer is cut to `Amount` bytes, a packet to a part of its length
  Corrupt,     ///< bits of the answer or the packet are flipped, without an error status
  Refuse,      ///< the bus has no room for the setting
  Lose,        ///< the packet's bytes are lost, without an error status
  Oversize,    ///< the packet fills its share of the read's buffer
  Marker,      ///< the bytes of a frame's begin appear within the packet
  FalseStart,  ///< the packet begins like a frame
  Error,       ///< the packet comes with a bus error
  Silence,     ///< the device sends nothing for `Amount` microseconds
  Unplug,
  Pause,  ///< the frame pauses for `Amount` microseconds, and none of it is lost
};
inline constexpr std::size_t kFaultKindCount = 15;

/// One fault.
struct BusFault {
  FaultPlace Place = FaultPlace::Control;
  FaultKind Kind = FaultKind::Stall;
  /// Number of the request, number of the setting, microseconds, or FramePacket().
  std::uint64_t At = 0;
  std::uint64_t Amount = 0;  ///< microseconds or bytes, if the kind has an amount
  std::uint32_t Count = 1;  ///< requests, packets or reads in a row; 0 is every time (Setting only)

  friend bool operator==(const BusFault&, const BusFault&) = default;
};

/// All faults of a bus. The text form is described in docs/faults.md.
struct FaultScript {
  std::uint64_t Bits = 0;  ///< determines flipped bits, cut lengths and positions of markers
  std::vector<BusFault> Faults{};

  friend bool operator==(const FaultScript&, const FaultScript&) = default;
};

/// A fault script can't be read or used. what() is one line for the user: the line, the word, the
/// reason and the expected form.
class FaultScriptError : public std::runtime_error {
 public:
  FaultScriptError(const std::string& what, std::size_t line)
      : std::runtime_error(what), line_(line) {}

  /// Line of the text, from 1; 0 if the error concerns no single line.
  [[nodiscard]] std::size_t Line() const { return line_; }

 private:
  std::size_t line_;
};

/// The latest time that a script can name, in microseconds: the bus counts microframes in 32 bits.
inline constexpr std::uint64_t kLatestFaultTime = 500'000'000'000;
inline constexpr std::uint64_t kHighestControlRequest = 1'000'000'000;
inline constexpr std::uint64_t kHighestFaultCount = 1'000'000'000;
inline constexpr std::size_t kMostFaults = 100'000;
inline constexpr std::uint64_t kHighestFrame = 1'000'000'000;
inline constexpr std::uint64_t kHighestPacketOfFrame = 1'000'000'000;

/// A packet's position in the camera's whole stream.
///
/// @param frame   counted from 1 since the camera was plugged in
/// @param packet  of the frame, from 1; the first one begins with the marker
[[nodiscard]] constexpr std::uint64_t FramePacket(std::uint64_t frame, std::uint64_t packet) {
  return frame << 32 | packet;
}
[[nodiscard]] constexpr std::uint64_t FrameOf(std::uint64_t at) {
  return at >> 32;
}
[[nodiscard]] constexpr std::uint64_t PacketOf(std::uint64_t at) {
  return at & 0xFFFFFFFF;
}

/// Reads a script.
///
/// @param name  the text's origin, for error messages
/// Throws FaultScriptError.
[[nodiscard]] FaultScript ParseFaultScript(std::string_view text,
                                           const std::string& name = "faults");

/// The script in the form that ParseFaultScript() reads, one fault per line; reads back as an equal
/// one.
[[nodiscard]] std::string ToText(const FaultScript& script);

/// One line of a script, without its end.
[[nodiscard]] std::string ToText(const BusFault& fault);

/// The parameter that follows a fault's kind.
enum class FaultAmount : std::uint8_t { None, Time, Bytes };

/// A row of the grammar: a kind that is possible in a place.
struct FaultForm {
  FaultPlace Place;
  FaultKind Kind;
  FaultAmount Amount = FaultAmount::None;
  bool HasCount = true;
};

/// The whole grammar, the faults of a place in consecutive rows.
[[nodiscard]] std::span<const FaultForm> FaultForms();

[[nodiscard]] std::string_view WordOf(FaultKind kind);
[[nodiscard]] std::string_view WordOf(FaultPlace place);

/// The default count.
[[nodiscard]] constexpr std::uint32_t UsualCount(FaultPlace place) {
  return place == FaultPlace::Setting ? 0 : 1;
}

}  // namespace lidcam::bus
