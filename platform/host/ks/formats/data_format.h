#pragma once

#include "platform/kernel.h"

namespace lidcam::host {

/// Data ranges follow each other at multiples of this.
inline constexpr ULONG kRangeAlignment = 8;

constexpr ULONG AlignedRangeSize(ULONG formatSize) {
  return (formatSize + kRangeAlignment - 1) / kRangeAlignment * kRangeAlignment;
}

bool IsSameGuid(const GUID& one, const GUID& other);

/// The format's major format, subformat and specifier are the range's, where that names one.
bool FitsRange(const KSDATAFORMAT& format, const KSDATARANGE& range);

/// As FitsRange(), with wildcards on either side.
bool DoRangesMeet(const KSDATARANGE& one, const KSDATARANGE& other);

/// A format is whole: at least a KSDATAFORMAT, and within `bytes`.
bool IsWholeFormat(const KSDATAFORMAT& format, ULONG bytes);

/// A copy of a whole format in the pool; null without memory.
PKSDATAFORMAT CopyFormat(const KSDATAFORMAT& format);

/// Iterates over a caller's data ranges, whose bytes may be invalid.
class RangeReader {
 public:
  /// @param bytes  from the list's address, the list's head included
  RangeReader(PKSMULTIPLE_ITEM list, ULONG bytes);

  /// @param range  null at the end
  /// @return STATUS_INVALID_BUFFER_SIZE for a list or a range that isn't whole or not at a multiple
  ///         of 8 bytes
  NTSTATUS Next(PKSDATARANGE* range);

 private:
  PUCHAR position_;
  ULONG bytesLeft_ = 0;
  ULONG rangesLeft_ = 0;
  bool isWhole_ = false;
};

}  // namespace lidcam::host
