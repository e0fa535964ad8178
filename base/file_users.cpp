#include "base/file_users.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <optional>
#include <system_error>

#include "base/folder_entries.h"

namespace lidcam::base {
namespace {

namespace fs = std::filesystem;

bool IsSameFile(const struct stat& one, const struct stat& other) {
  if (S_ISCHR(one.st_mode)) return S_ISCHR(other.st_mode) && one.st_rdev == other.st_rdev;
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

bool IsOpenAs(const fs::path& descriptor, const fs::path& file) {
  // By the name first: to ask for the file behind a descriptor may take long where that is on a network.
  std::error_code error;
  const fs::path target = fs::read_symlink(descriptor, error);
  if (error || target.filename() != file.filename()) return false;
  struct stat wanted {};
  struct stat opened {};
  if (stat(file.c_str(), &wanted) != 0 || stat(descriptor.c_str(), &opened) != 0) {
    return target == file;
  }
  return IsSameFile(wanted, opened);
}

std::optional<int> ProcessNumber(const fs::path& folder) {
  const std::string name = folder.filename();
  int number = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
  if (error != std::errc{} || end != name.data() + name.size()) return std::nullopt;
  return number;
}

std::string ProgramOf(const fs::path& process) {
  std::string program;
  std::getline(std::ifstream(process / "comm"), program);
  return program;
}

}  // namespace

std::vector<FileUser> UsersOf(const fs::path& file, const fs::path& processes) {
  std::vector<FileUser> users;
  for (const fs::path& process : EntriesOf(processes)) {
    const std::optional<int> number = ProcessNumber(process);
    if (!number) continue;
    const std::vector<fs::path> descriptors = EntriesOf(process / "fd");
    if (std::ranges::any_of(descriptors,
                            [&](const fs::path& each) { return IsOpenAs(each, file); })) {
      users.push_back({*number, ProgramOf(process)});
    }
  }
  std::ranges::sort(users, {}, &FileUser::Process);
  return users;
}

}  // namespace lidcam::base
