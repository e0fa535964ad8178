#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace lidcam::app {

/// Where the bytes of a file go, for code that doesn't open it itself. One thread at a time.
class ByteOutput {
 public:
  ByteOutput() = default;
  ByteOutput(const ByteOutput&) = delete;
  ByteOutput& operator=(const ByteOutput&) = delete;
  virtual ~ByteOutput() = default;

  /// Appends. Throws CommandError, naming the path, if not every byte was taken; so it does when the
  /// reader of a pipe takes nothing and the end of the program is requested.
  virtual void Write(std::span<const std::uint8_t> bytes) = 0;

  /// Whether bytes that were written can be replaced later.
  [[nodiscard]] virtual bool IsSeekable() const = 0;
  /// Bytes that were appended.
  [[nodiscard]] virtual std::int64_t Size() const = 0;
  /// Replaces bytes that were written, all of which lie within Size(). Throws as Write() does.
  virtual void Overwrite(std::int64_t at, std::span<const std::uint8_t> bytes) = 0;

  /// What was written up to here can stand alone: Commit() keeps it even if a later write fails.
  virtual void MarkWhole() = 0;

  /// Completes the file. After a failed write it keeps what was marked as whole, and nothing without a
  /// mark. Throws CommandError if any byte of it did not reach its place.
  virtual void Commit() = 0;

  [[nodiscard]] virtual const std::string& Path() const = 0;
};

}  // namespace lidcam::app
