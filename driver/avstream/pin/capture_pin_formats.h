#pragma once

#include "platform/kernel.h"

// The format checks of the pin: pure functions, callable at any level. A block is as long as its
// FormatSize; nothing beyond that is touched, whatever values it contains.

namespace lidcam {

/// Bytes of the video header in a connection's format according to its biSize, as far as they lie
/// in the block.
/// @param format  a KSDATAFORMAT at least
ULONG VideoHeaderBytes(const KSDATAFORMAT& format);

/// Checks a connection's format against the range that it was matched with.
///
/// @param range  one of the pin's ranges, or the format itself: its header has a format's offset
///               then
/// @return STATUS_NO_MATCH for a format of another kind or size; STATUS_INVALID_PARAMETER for one
///         whose header reaches beyond it
NTSTATUS CheckVideoFormat(const KSDATAFORMAT& format, const KSDATARANGE& range);

/// Finds the format that a client's range and one of the pin's have in common: one of the pin's
/// picture sizes, with the frame interval and all other header fields from the client.
///
/// @param descriptorRange  one of the pin's: a whole KS_DATARANGE_VIDEO
/// @param bufferSize       bytes at `data`; 0 queries the number needed
/// @param data             becomes a KS_DATAFORMAT_VIDEOINFOHEADER; aligned to 8 bytes
/// @param dataSize         bytes needed; unchanged if the buffer is too small or nothing matches
/// @return STATUS_NO_MATCH, STATUS_INVALID_PARAMETER for a header that reaches beyond its range,
///         STATUS_BUFFER_OVERFLOW for a `bufferSize` of 0, or STATUS_BUFFER_TOO_SMALL
NTSTATUS IntersectVideoFormats(const KSDATARANGE& callerRange, const KSDATARANGE& descriptorRange,
                               ULONG bufferSize, void* data, ULONG& dataSize);

}  // namespace lidcam
