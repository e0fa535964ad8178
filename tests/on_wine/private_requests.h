#pragma once

/// How a test program in user mode reaches what an application would open by relative names and ask
/// without buffering: not every kernel that can load the driver offers that to user mode. The program
/// and the stand-in for the streaming class are of one architecture.
///
/// A file of the camera's interface is a filter. Each filter has room for one pin and that pin's clock,
/// which are opened and closed with these requests, and closed with the file. All of them are buffered.

#if !defined(CTL_CODE)
#error "include the platform's headers first"
#endif

#include <cstdint>

namespace lidcam::wine {

constexpr ULONG PrivateCode(ULONG number) {
  return CTL_CODE(0x2F /* streaming */, 0x900 + number, METHOD_BUFFERED, FILE_ANY_ACCESS);
}

/// Opens the pin. Input: KSPIN_CONNECT, the format behind it.
inline constexpr ULONG kOpenPin = PrivateCode(0);
/// Closes the pin, and its clock before it.
inline constexpr ULONG kClosePin = PrivateCode(1);
/// Opens the pin's clock and makes it the pin's master clock.
inline constexpr ULONG kUseClock = PrivateCode(2);
/// Asks for a property. Input: PropertyQuestion, the request (a KSPROPERTY with what follows it), the
/// value. Output: PropertyAnswer, the value.
inline constexpr ULONG kProperty = PrivateCode(3);
/// Sends the pin a frame to be filled; pending until it is. Output: FrameAnswer, the picture; the room
/// for the picture is the frame's extent. Several may be out at a time; they come back in order.
inline constexpr ULONG kReadFrame = PrivateCode(4);

enum class Target : std::uint32_t { Filter, Pin, Clock };

struct PropertyQuestion {
  Target Whom;
  std::uint32_t RequestBytes;
  std::uint32_t ValueBytes;  ///< of the value's buffer, for a get too
  std::uint32_t Reserved;
};

/// The request itself succeeds if the question was well formed; what the driver says stands here.
struct PropertyAnswer {
  std::uint32_t Status;
  std::uint32_t Information;
};

struct FrameAnswer {
  std::uint32_t OptionsFlags;
  std::uint32_t DataUsed;
  std::int64_t PresentationTime;
  std::int64_t Duration;
  std::int64_t PictureNumber;
  std::int64_t DropCount;
};

}  // namespace lidcam::wine
