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

/// Reads the next bytes of a file: returns their number, 0 at its end, -1 with errno on an error.
using ByteSource = std::function<std::ptrdiff_t(std::span<std::uint8_t> buffer)>;

/// How the compressed data ended.
struct DecompressionEnd {
  bool IsCut = false;  ///< the data are incomplete
  std::string Damage;  ///< why the rest can't be read; empty if it can
};

/// Bytes at the begin of a file that show whether it is compressed.
inline constexpr std::size_t kCompressionMarkSize = 6;

/// Whether a file with this begin is compressed by gzip, xz or Zstandard.
[[nodiscard]] bool IsCompressed(std::span<const std::uint8_t> head);

/// A stream of the decompressed content of a file.
///
/// Incomplete data end the stream early, damaged data end it with an error; `end` then has the
/// cause.
/// @param source  from the file's begin on; kept as long as the stream
/// @param end     outlives the stream
/// @return null without memory
[[nodiscard]] StreamHandle OpenDecompressed(ByteSource source, DecompressionEnd& end);

/// A stream of a file's bytes, unchanged. Null without memory.
[[nodiscard]] StreamHandle OpenPlain(ByteSource source);

}  // namespace lidcam::bus
