#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace lidcam::app {

// A register set file is the length of its body, then the body: sections of a head (length with the
// head, type) and entries of three bytes (marker, register, value). Numbers are little-endian.

inline constexpr std::size_t kSetLengthSize = 4;
inline constexpr std::size_t kSetHeadSize = 8;
inline constexpr std::size_t kSetEntrySize = 3;

/// The largest body, in bytes: of a longer one the camera does not find the end.
inline constexpr std::size_t kLongestSetBody = 1980;

inline constexpr std::uint8_t kSetSensorMarker = 0x33;
inline constexpr std::uint8_t kSetBridgeMarker = 0x11;

/// Low byte of the register whose writes would be taken for selects.
inline constexpr std::uint8_t kSetSelectRegister = 0xFF;

struct SetSectionKind {
  std::uint32_t Type;
  std::string_view Name;    ///< as it stands in brackets in a source
  std::size_t MostEntries;  ///< more are not stored, or keep a list from being applied
};

inline constexpr SetSectionKind kSetSectionKinds[] = {
    {1, "setup", 600},
    {2, "low light", 599},
    {3, "normal", 599},
};

/// @return null for a type that no table of the camera takes
[[nodiscard]] const SetSectionKind* SetSectionOfType(std::uint32_t type);

/// @return null for a name that is no section's
[[nodiscard]] const SetSectionKind* SetSectionOfName(std::string_view name);

/// A finding about a set file, at a byte of it.
struct SetFinding {
  enum class Weight : std::uint8_t {
    Note,  ///< the camera can use the file nevertheless
    Fault  ///< the camera loads or applies the file in part, or not at all
  };

  std::size_t Offset;  ///< from the start of the file
  Weight Kind;
  std::string Text;
};

struct SetSectionView {
  std::size_t Offset;  ///< of the head, from the start of the file
  std::uint32_t Type;
  std::span<const std::uint8_t> Payload;
};

/// The sections of a file in their order, as far as their lengths lead, and what is wrong with the
/// frame that they make: the body's length, the sections' lengths and types. The views point into
/// `file`.
struct SetLayout {
  std::uint32_t BodyLength = 0;  ///< as stated in the file
  std::vector<SetSectionView> Sections;
  std::vector<SetFinding> Findings;
};

[[nodiscard]] SetLayout ReadSetLayout(std::span<const std::uint8_t> file);

}  // namespace lidcam::app
