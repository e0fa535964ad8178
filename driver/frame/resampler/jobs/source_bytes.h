#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

#include "driver/frame/resampler/jobs/resize_arguments.h"

namespace lidcam {

/// The bytes of a source, by their place: rows times the step. A read that would leave them gets the
/// nearest byte instead.
struct SourceBytes {
  const std::uint8_t* Begin;
  std::int64_t Length;
  std::int64_t First;  ///< place of the first byte of the region

  [[nodiscard]] std::uint8_t At(std::int64_t place) const {
    return Begin[std::clamp<std::int64_t>(place, 0, Length - 1)];
  }
};

/// @param columnBytes  bytes from column to column of the region's start
inline SourceBytes BytesOf(const ResizeArguments& arguments, std::int32_t columnBytes) {
  const std::int64_t step = arguments.SourceStep;
  const std::int64_t length = step * arguments.SourceSize.Height;
  // A wrong size may claim more bytes than the address space has: its end is the bound.
  const auto space = std::numeric_limits<std::uintptr_t>::max() -
                     reinterpret_cast<std::uintptr_t>(arguments.Source);
  const std::uint64_t held = std::min<std::uint64_t>(
      {static_cast<std::uint64_t>(length), space,
       static_cast<std::uint64_t>(std::numeric_limits<std::ptrdiff_t>::max())});
  const std::int64_t first =
      std::int64_t{columnBytes} * arguments.Region.X + step * arguments.Region.Y;
  return {arguments.Source, static_cast<std::int64_t>(held), first};
}

/// A row pointer, without the arithmetic on pointers that may not leave their buffer.
template <typename Byte>
Byte* MovedBy(Byte* base, std::int64_t bytes) {
  return reinterpret_cast<Byte*>(reinterpret_cast<std::uintptr_t>(base) +
                                 static_cast<std::uintptr_t>(bytes));
}

}  // namespace lidcam
