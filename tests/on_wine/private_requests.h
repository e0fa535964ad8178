#pragma once

/// Requests by which a test program in user mode replaces the opening of relative names and
/// unbuffered requests: not every kernel that can load the driver offers them to user mode. The
/// program and the streaming class's test double must have the same architecture.
///
/// A file of the camera's interface is a filter. Each filter can have one pin and that pin's clock,
/// which are opened and closed by these requests, and closed with the file. All of them are
/// buffered.

#if !defined(CTL_CODE)
#error "include the platform's headers first"
#endif

#include <cstdint>

namespace lidcam::wine {

constexpr ULONG PrivateCode(ULONG number) {
  return CTL_CODE(0x2F /* streaming */, 0x900 + number, METHOD_BUFFERED, FILE_ANY_ACCESS);
}

/// Opens the pin. Input: KSPIN_CONNECT, followed by the format.
inline constexpr ULONG kOpenPin = PrivateCode(0);
/// Closes the pin, and its clock before it.
inline constexpr ULONG kClosePin = PrivateCode(1);
/// Opens the pin's clock and makes it the pin's master clock.
inline constexpr ULONG kUseClock = PrivateCode(2);
/// Sends a property request. Input: PropertyQuestion, the request (a KSPROPERTY with any bytes
/// after it), the value. Output: PropertyAnswer, the value.
inline constexpr ULONG kProperty = PrivateCode(3);
/// Sends the pin a buffer for a frame; pending until it is filled. Output: FrameAnswer, the
/// picture; the size of the buffer is the frame's extent. Several may be in flight; they are
/// completed in order.
inline constexpr ULONG kReadFrame = PrivateCode(4);

enum class Target : std::uint32_t { Filter, Pin, Clock };

struct PropertyQuestion {
  Target Whom;
  std::uint32_t RequestBytes;
  std::uint32_t ValueBytes;  ///< of the value's buffer, also for a get
  std::uint32_t Reserved;
};

/// The request itself succeeds if it is well formed; the driver's status is here.
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
