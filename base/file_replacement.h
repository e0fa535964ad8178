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
/// call that it stands for. Null is that call. Set to stop a replacement where a power cut would.
struct FileReplacementSteps {
  std::function<ssize_t(int file, const char* bytes, std::size_t count)> Write;
  std::function<int(int file)> Sync;
  std::function<int(const char* from, const char* to)> Rename;
};

/// The file that a name leads to, with a link at its end followed: what replaces the name itself would
/// leave a user without the link. The file need not be there.
[[nodiscard]] std::string FollowLink(const std::string& path);

/// Replaces a file in one step, or makes it: the new content goes to a temporary file beside it, which is
/// flushed and renamed, and the folder is flushed. A cut at any moment leaves the old file or the new
/// one, whole, and beside it at most the temporary one. The file keeps its permissions; a new one has what
/// the user's mask leaves. Operations return 0 or the error number of the step that they are named for.
///
/// Open(), Append() and Flush() leave the old file as it is. One thread at a time.
class FileReplacement {
 public:
  explicit FileReplacement(FileReplacementSteps steps = {});
  FileReplacement(const FileReplacement&) = delete;
  FileReplacement& operator=(const FileReplacement&) = delete;
  /// Removes a temporary file that was neither renamed nor kept.
  ~FileReplacement();

  /// Makes the temporary file: ".NAME.PROCESS.part", or a free name like it. Other programs see it locked
  /// for as long as it is written, and by that tell it from one that a killed program left.
  [[nodiscard]] int Open(const std::string& path);

  /// The same under a name of the caller's, who keeps all others from it by a lock of its own: what is
  /// left there is removed.
  [[nodiscard]] int OpenAs(const std::string& path, const std::string& temporary);

  [[nodiscard]] bool IsOpen() const { return file_ >= 0; }
  /// Of the temporary file, for reading and writing; -1 unless it is open.
  [[nodiscard]] int Descriptor() const { return file_; }

  /// Writes every byte, or tells why not.
  [[nodiscard]] int Append(std::string_view content);
  [[nodiscard]] int Append(std::span<const std::uint8_t> content);

  /// Brings what was written to the disk.
  [[nodiscard]] int Flush();

  /// Gives the file its name and flushes the folder. If the name can't be had the temporary file is open
  /// as before; if only the folder's flush fails, the file has its name.
  [[nodiscard]] int Rename();

  /// Leaves the temporary file where it is.
  /// @return its path
  std::string Keep();

  /// Removes the temporary file, if there is one.
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

/// Replaces a file by `content`, all steps in one.
/// @return 0 or the error number; the file is then the old one, unless only the folder's flush failed
[[nodiscard]] int ReplaceFile(const std::string& path, std::span<const std::uint8_t> content);

}  // namespace lidcam::base
