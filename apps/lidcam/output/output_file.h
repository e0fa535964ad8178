#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <string_view>

namespace lidcam::app {

/// A file that appears under its name only when it is whole.
///
/// Bytes go to a temporary file in the same folder; Commit() flushes and renames it. Destroyed
/// before that, it leaves nothing behind. Standard output ("-") and devices or pipes under the name
/// are written to directly.
class OutputFile {
 public:
  /// Throws CommandError if the file can't be made.
  explicit OutputFile(std::string path);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();

  /// Appends. Throws CommandError, naming the path, if not every byte was taken.
  void Write(std::span<const std::uint8_t> bytes);
  void Write(std::string_view text);

  /// Completes the file. Throws CommandError if any byte of it did not reach its place.
  void Commit();

  [[nodiscard]] const std::string& Path() const { return path_; }

 private:
  [[noreturn]] void Fail(const std::string& what, int error);
  void Discard();

  std::string path_;
  std::string temporaryPath_;  ///< empty when written directly
  std::FILE* file_ = nullptr;
};

}  // namespace lidcam::app
