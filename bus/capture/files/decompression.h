#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <span>
#include <string>

namespace lidcam::bus {

struct StreamCloser {
  void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using StreamHandle = std::unique_ptr<std::FILE, StreamCloser>;

/// Gives the next bytes of a file: how many, 0 at its end, -1 with errno on an error.
using ByteSource = std::function<std::ptrdiff_t(std::span<std::uint8_t> buffer)>;

/// How compressed data came to their end, once they have.
struct DecompressionEnd {
  bool IsCut = false;  ///< there should be more
  std::string Damage;  ///< why they can't be read any further; empty if they can
};

/// Bytes at a file's begin that tell whether it is compressed.
inline constexpr std::size_t kCompressionMarkSize = 6;

/// Whether a file that begins so is compressed by gzip, xz or Zstandard.
[[nodiscard]] bool IsCompressed(std::span<const std::uint8_t> head);

/// A stream of what a compressed file holds.
///
/// Data that are cut end early, and damaged ones with an error of the stream; `end` then tells.
/// @param source  from the file's begin on; kept as long as the stream
/// @param end     outlives the stream
/// @return null if there is no memory for it
[[nodiscard]] StreamHandle OpenDecompressed(ByteSource source, DecompressionEnd& end);

/// A stream of a file's bytes as they are. Null if there is no memory for it.
[[nodiscard]] StreamHandle OpenPlain(ByteSource source);

}  // namespace lidcam::bus
