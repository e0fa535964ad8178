#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

namespace lidcam::base {

/// The steps that make a replacement durable, each with the meaning and the result of the system
/// call of its name. Null is that call. Tests set one to stop a replacement at any step, as a power
/// failure would.
struct FileReplacementSteps {
  std::function<ssize_t(int file, const char* bytes, std::size_t count)> Write;
  std::function<int(int file)> Sync;
  std::function<int(const char* from, const char* to)> Rename;
};

/// The path of the file behind a name, with symbolic links resolved: replacing the link itself
/// would leave the user without it. The file need not exist.
[[nodiscard]] std::string FollowLink(const std::string& path);

/// Replaces or creates a file in one step: the new content is written to a temporary file in the
/// same folder, which is flushed and renamed, and the folder is flushed. An interruption at any
/// moment leaves the old file or the new one, whole, and at most the temporary file in addition.
/// The file keeps its permissions; a new one gets those that the user's umask allows. Operations
/// return 0 or the error number of the failed step.
///
/// Open(), Append() and Flush() do not touch the old file. One thread at a time.
class FileReplacement {
 public:
  explicit FileReplacement(FileReplacementSteps steps = {});
  FileReplacement(const FileReplacement&) = delete;
  FileReplacement& operator=(const FileReplacement&) = delete;
  /// Removes the temporary file unless it was renamed or kept.
  ~FileReplacement();

  /// Creates the temporary file: ".NAME.PROCESS.part", or a similar free name. It is locked while
  /// it is written, which distinguishes it from one that a killed process left.
  [[nodiscard]] int Open(const std::string& path);

  /// The same with the caller's temporary name, which a lock of the caller's reserves: an existing
  /// file there is removed.
  [[nodiscard]] int OpenAs(const std::string& path, const std::string& temporary);

  [[nodiscard]] bool IsOpen() const { return file_ >= 0; }
  /// File descriptor of the temporary file, for reading and writing; -1 unless it is open.
  [[nodiscard]] int Descriptor() const { return file_; }

  /// Writes all bytes, or returns the error.
  [[nodiscard]] int Append(std::string_view content);
  [[nodiscard]] int Append(std::span<const std::uint8_t> content);

  /// Flushes the written bytes to the disk.
  [[nodiscard]] int Flush();

  /// Renames the file and flushes the folder. If the renaming fails the temporary file stays open;
  /// if only the folder's flush fails, the file is renamed.
  [[nodiscard]] int Rename();

  /// Keeps the temporary file under its temporary name.
  /// @return its path
  std::string Keep();

  /// Removes the temporary file, if any.
  void Discard();

 private:
  int Create(const std::string& temporary);
  int TakePermissions();
  int Sync(int file) const;
  int SyncFolder() const;
  void Close();

  const FileReplacementSteps steps_;
  std::string path_;
  std::string temporary_;
  int file_ = -1;
};

/// Replaces a file by `content`, all steps in one call.
/// @return 0 or the error number; the file is then the old one, unless only the folder's flush failed
[[nodiscard]] int ReplaceFile(const std::string& path, std::span<const std::uint8_t> content);

}  // namespace lidcam::base
