#pragma once

#include <sys/types.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "base/file_replacement.h"

namespace lidcam::app {

/// A file that appears under its name only when it is complete.
///
/// Bytes go to a temporary file in the same folder, which other programs see locked; Commit() flushes
/// and renames it. Destroyed before that, it leaves nothing behind. Standard output ("-") and devices or
/// pipes under the name are written to directly.
class OutputFile {
 public:
  /// Throws CommandError if the file can't be made.
  explicit OutputFile(std::string path);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();

  /// Appends. Throws CommandError, naming the path, if not every byte was taken; so it does when the
  /// reader of a pipe takes nothing and the end of the program is requested.
  void Write(std::span<const std::uint8_t> bytes);
  void Write(std::string_view text);

  /// Whether bytes that were written can be replaced later.
  [[nodiscard]] bool IsSeekable() const { return replacement_.IsOpen(); }
  /// Bytes that were appended.
  [[nodiscard]] std::int64_t Size() const { return written_; }
  /// Replaces bytes that were written, all of which lie within Size(). Throws as Write() does.
  void Overwrite(std::int64_t at, std::span<const std::uint8_t> bytes);

  /// What was written up to here can stand alone: Commit() keeps it even if a later write fails.
  void MarkWhole();

  /// Completes the file. After a failed write it keeps what was marked as whole, and nothing without a
  /// mark. Throws CommandError if any byte of it did not reach its place.
  void Commit();

  [[nodiscard]] const std::string& Path() const { return path_; }

 private:
  /// Appends as far as possible.
  /// @return 0 or the error number
  int Append(std::span<const std::uint8_t> bytes);
  [[noreturn]] void Fail(const std::string& what, int error) const;

  std::string path_;
  base::FileReplacement replacement_;  ///< not open when written directly
  int file_ = -1;                      ///< to which every byte goes
  off_t written_ = 0;
  off_t whole_ = 0;
  bool hasFailed_ = false;
};

}  // namespace lidcam::app
