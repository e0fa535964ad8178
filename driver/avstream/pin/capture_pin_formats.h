#pragma once

#include "platform/kernel.h"

// The format checks of the pin: functions of the blocks they are given, at any level. A block is as
// long as its FormatSize says, and nothing beyond that is touched, whatever the numbers in it are.

namespace lidcam {

/// Bytes of the video header in a connection's format, as its biSize tells: what of them lies in the
/// block.
/// @param format  a KSDATAFORMAT at least
ULONG VideoHeaderBytes(const KSDATAFORMAT& format);

/// Checks a connection's format against the range that it was matched with.
///
/// @param range  a range of the pin's, or the format itself: its header lies where a format has it
/// @return STATUS_NO_MATCH for a format of another kind or size; STATUS_INVALID_PARAMETER for one
///         whose header reaches beyond it
NTSTATUS CheckVideoFormat(const KSDATAFORMAT& format, const KSDATARANGE& range);

/// Finds the format that a client's range and one of the pin's have in common: one of the pin's
/// picture sizes, with frame interval and whatever else the header says from the client.
///
/// @param descriptorRange  one of the pin's: a whole KS_DATARANGE_VIDEO
/// @param bufferSize       bytes at `data`; 0 asks how many are needed
/// @param data             becomes a KS_DATAFORMAT_VIDEOINFOHEADER; aligned to 8 bytes
/// @param dataSize         bytes needed; left alone if the buffer is too small or nothing matches
/// @return STATUS_NO_MATCH, STATUS_INVALID_PARAMETER for a header that reaches beyond its range,
///         STATUS_BUFFER_OVERFLOW for a `bufferSize` of 0, or STATUS_BUFFER_TOO_SMALL
NTSTATUS IntersectVideoFormats(const KSDATARANGE& callerRange, const KSDATARANGE& descriptorRange,
                               ULONG bufferSize, void* data, ULONG& dataSize);

}  // namespace lidcam
