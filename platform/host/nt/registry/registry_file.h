#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "base/file_replacement.h"

namespace lidcam::host {

/// Keeps other processes, and other locks of this process, from changing the file at `path` during
/// its lifetime. It locks a separate file, `path` + ".lock", because the file itself is replaced.
class RegistryFileLock {
 public:
  explicit RegistryFileLock(const std::string& path);
  RegistryFileLock(const RegistryFileLock&) = delete;
  RegistryFileLock& operator=(const RegistryFileLock&) = delete;
  ~RegistryFileLock();

  /// 0 if the lock is held, else the error number.
  [[nodiscard]] int Error() const { return error_; }

 private:
  int file_ = -1;
  int error_ = 0;
};

/// Size limit of a registry file: a thousand times the size of all cameras' settings.
inline constexpr std::size_t kLargestRegistryFile = std::size_t{16} << 20;

/// A file as it was read. It is kept open, so that no later file can be mistaken for it by getting
/// its inode number.
class RegistryFileReader {
 public:
  RegistryFileReader() = default;
  RegistryFileReader(const RegistryFileReader&) = delete;
  RegistryFileReader& operator=(const RegistryFileReader&) = delete;
  ~RegistryFileReader();

  /// Reads the whole file.
  ///
  /// @return 0; ENOENT if it does not exist; EINVAL if it is no regular file; EOVERFLOW if it is
  ///         larger than kLargestRegistryFile; else the error number
  [[nodiscard]] int Read(const std::string& path, std::string& content);

  /// Whether `path` is still the file that the last Read() saw, by identity, size and times. False
  /// after a Read() that failed.
  [[nodiscard]] bool IsCurrent(const std::string& path) const;

 private:
  void Forget();

  int file_ = -1;
  struct stat seen_ {};
  bool wasAbsent_ = false;
};

/// Replaces or creates the file at `path` by way of a temporary file (`path` + ".new"). An
/// interruption at any moment leaves the old file or the new one, whole. The caller holds the lock.
///
/// @return 0 or the error number of the step that failed; the file is then the old one, unless only
///         the folder's flush failed
[[nodiscard]] int ReplaceRegistryFile(const std::string& path, std::string_view content,
                                      const base::FileReplacementSteps& steps);

/// Renames an invalid file to the first free of `path` + ".damaged-1", "-2", ... and never over
/// another file. The caller holds the lock.
///
/// @param aside  receives the new path
/// @return 0 or the error number
[[nodiscard]] int SetRegistryFileAside(const std::string& path, std::string& aside);

}  // namespace lidcam::host
