#pragma once

#include <sys/types.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "apps/lidcam/output/byte_output.h"
#include "base/file_replacement.h"

namespace lidcam::app {

/// A file that appears under its name only when it is complete.
///
/// Bytes go to a temporary file in the same folder, which other programs see locked; Commit() flushes
/// and renames it. Destroyed before that, it leaves nothing behind. Standard output ("-") and devices or
/// pipes under the name are written to directly.
class OutputFile final : public ByteOutput {
 public:
  /// Throws CommandError if the file can't be made.
  explicit OutputFile(std::string path);
  ~OutputFile() override;

  void Write(std::span<const std::uint8_t> bytes) override;
  void Write(std::string_view text);

  [[nodiscard]] bool IsSeekable() const override { return replacement_.IsOpen(); }
  [[nodiscard]] std::int64_t Size() const override { return written_; }
  void Overwrite(std::int64_t at, std::span<const std::uint8_t> bytes) override;
  void MarkWhole() override;
  void Commit() override;

  [[nodiscard]] const std::string& Path() const override { return path_; }

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
