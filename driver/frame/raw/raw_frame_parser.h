#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"

namespace lidcam {

/// Bytes of header ahead of the pixels of a raw frame.
inline constexpr std::uint32_t kRawFrameHeaderSize = 64;

/// Offsets of the picture's statistics in the header.
inline constexpr std::uint32_t kRawFrameLevelOffset = 16;  ///< exposure level of the sensor's own
                                                           ///< automatic exposure
inline constexpr std::uint32_t kRawFrameLumaOffset = 23;   ///< average luminance

/// Flags of a parsed packet.
inline constexpr std::uint32_t kPacketFlagBadFrame = 2;      ///< the frame it closes, or the one in
                                                             ///< progress, must not be kept
inline constexpr std::uint32_t kPacketFlagForcePublish = 8;  ///< publish in any state; not set by
                                                             ///< this parser

inline constexpr std::uint8_t kFrameMarker[] = {0xFF, 0xD8};

/// The parser's work at a start marker: measures the frame that ends here, prints a wrong size, and
/// counts.
/// @par Callable on the frame thread only
void CloseRawFrame(CameraContext& context, std::uint8_t& frameEnd, std::uint32_t& flags);

/// Decides what one isochronous packet means.
///
/// The stream has no structure but this: a packet that begins with 0xFF 0xD8 starts a frame. Only
/// then is the size of the frame before it known: its bytes are compared with `RawFrameSize`, with
/// a tolerance of 10 bytes to either side, and a wrong size is printed to the debug output. A
/// payload that happens to begin with the two bytes ends the frame as well; the size test then
/// finds both pieces bad.
///
/// A start marker that finds `FrameSettleCount` 0 closes nothing: the light state has just changed,
/// and neither the frame before nor the frame after it has one exposure throughout.
///
/// Inline because it runs for every packet, thousands a second, of which only one in hundreds is a
/// marker.
///
/// @param data      null for an empty packet. Two bytes must be readable even if `length` is 1: the
///                  camera's packets lie in slots, and the byte behind a one-byte packet decides.
/// @param length    bytes of payload; an empty packet changes nothing
/// @param frameEnd  1: the packet closes a frame
/// @param flags     kPacketFlag bits
/// @param offset    bytes of the packet to leave out at its head: always 0
/// @return bytes of the packet to store: always `length`
/// @par Callable on the frame thread only
inline std::uint32_t ParseRawPacket(CameraContext& context, const std::uint8_t* data,
                                    std::uint32_t length, std::uint8_t& frameEnd,
                                    std::uint32_t& flags, std::uint32_t& offset) {
  offset = 0;
  flags = 0;
  frameEnd = 0;
  if (length == 0) return 0;
  if (data[0] == kFrameMarker[0] && data[1] == kFrameMarker[1]) [[unlikely]] {
    CloseRawFrame(context, frameEnd, flags);
  }
  const std::uint32_t bytes = context.ReceivedFrameBytes;
  const std::uint32_t packets = context.FramePacketCount;
  context.ReceivedFrameBytes = bytes + length;
  context.FramePacketCount = packets + 1;
  return length;
}

}  // namespace lidcam
