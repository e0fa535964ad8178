#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace lidcam::base {

/// A process that has a file open.
struct FileUser {
  int Process = 0;
  std::string Program{};

  bool operator==(const FileUser&) const = default;
};

/// The processes that have a file open, by their numbers; those of other users are seen by root only.
///
/// @param file       not a link: /proc names what is behind one
/// @param processes  /proc
[[nodiscard]] std::vector<FileUser> UsersOf(const std::filesystem::path& file,
                                            const std::filesystem::path& processes = "/proc");

}  // namespace lidcam::base
