#include "apps/lidcam/output/file_roles.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>

#include "base/file_replacement.h"
#include "base/folder_entries.h"
#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

namespace fs = std::filesystem;

/// The file that a name refers to. One that doesn't exist yet is identified by its folder and its
/// name.
struct FileIdentity {
  dev_t Device;
  ino_t Number;
  std::string Name{};  ///< within the folder of these numbers; empty for an existing file

  friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

fs::path FolderOf(const fs::path& path) {
  return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

std::optional<FileIdentity> IdentityOf(const struct stat& status) {
  if (!S_ISREG(status.st_mode) && !S_ISFIFO(status.st_mode)) return std::nullopt;
  return FileIdentity{status.st_dev, status.st_ino};
}

// Nothing for a path that can't be overwritten: a device, a folder, a missing folder. The standard
// stream is the one that "-" stands for.
std::optional<FileIdentity> IdentityOf(const std::string& path, int standardStream) {
  struct stat status {};
  if (path == "-") {
    return fstat(standardStream, &status) == 0 ? IdentityOf(status) : std::nullopt;
  }
  if (stat(path.c_str(), &status) == 0) return IdentityOf(status);
  const fs::path place = base::FollowLink(path);
  if (stat(FolderOf(place).c_str(), &status) != 0) return std::nullopt;
  return FileIdentity{status.st_dev, status.st_ino, place.filename().string()};
}

bool IsNumber(std::string_view text) {
  return !text.empty() &&
         std::ranges::all_of(text, [](unsigned char letter) { return std::isdigit(letter) != 0; });
}

// The text between a prefix and a suffix; nothing if it has others.
std::optional<std::string_view> Between(std::string_view text, std::string_view begin,
                                        std::string_view end) {
  const bool fits =
      text.size() >= begin.size() + end.size() && text.starts_with(begin) && text.ends_with(end);
  if (!fits) return std::nullopt;
  return text.substr(begin.size(), text.size() - begin.size() - end.size());
}

bool IsNumberedName(const OutputRole& series, std::string_view name) {
  const fs::path path(series.Path);
  const auto number = Between(name, path.stem().string() + "-", path.extension().string());
  return number && IsNumber(*number);
}

/// The names in an output's folder; none for standard output, or if it can't be read.
std::vector<fs::path> Neighbours(const OutputRole& output) {
  if (output.Path == "-") return {};
  return base::EntriesOf(FolderOf(base::FollowLink(output.Path)));
}

/// The files of an output, existing or not: of a series, the existing pictures.
std::vector<FileIdentity> FilesOf(const OutputRole& output) {
  std::vector<FileIdentity> files;
  if (!output.IsSeries) {
    if (const auto file = IdentityOf(output.Path, STDOUT_FILENO)) files.push_back(*file);
    return files;
  }
  for (const fs::path& path : Neighbours(output)) {
    if (!IsNumberedName(output, path.filename().string())) continue;
    if (const auto file = IdentityOf(path.string(), STDOUT_FILENO)) files.push_back(*file);
  }
  return files;
}

bool WouldWrite(const OutputRole& output, const std::optional<FileIdentity>& file) {
  const std::vector<FileIdentity> files = FilesOf(output);
  return file && std::ranges::find(files, *file) != files.end();
}

std::string NameOf(const OutputRole& output) {
  return output.Path == "-" ? "standard output" : "'" + output.Path + "'";
}

void RequireApart(const std::vector<InputRole>& inputs, const std::vector<OutputRole>& outputs) {
  for (const OutputRole& output : outputs) {
    for (const InputRole& input : inputs) {
      if (!WouldWrite(output, IdentityOf(input.Path, STDIN_FILENO))) continue;
      throw UsageError("output " + NameOf(output) + " would overwrite the " + input.What + " '" +
                       input.Path + "', which is read: name another file");
    }
    for (const OutputRole& other : outputs) {
      if (&other == &output || other.IsSeries) continue;
      if (!WouldWrite(output, IdentityOf(other.Path, STDOUT_FILENO))) continue;
      throw UsageError("the outputs " + output.Option + " " + NameOf(output) + " and " +
                       other.Option + " " + NameOf(other) + " are one file: name two");
    }
  }
}

// The names of FileReplacement's temporary files.
bool IsPartOf(const OutputRole& output, std::string_view part) {
  const auto hidden = Between(part, ".", ".part");
  const std::size_t dot = hidden ? hidden->rfind('.') : std::string_view::npos;
  if (dot == std::string_view::npos) return false;
  const std::string_view number = hidden->substr(dot + 1);
  if (!IsNumber(number.substr(0, number.find('-')))) return false;
  const std::string_view of = hidden->substr(0, dot);
  if (output.IsSeries) return IsNumberedName(output, of);
  return of == fs::path(base::FollowLink(output.Path)).filename().string();
}

// A running program holds its file's lock.
bool IsLeftBehind(const fs::path& path) {
  const int file = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  if (file < 0) return false;
  const bool isFree = ::flock(file, LOCK_SH | LOCK_NB) == 0;
  ::close(file);
  return isFree;
}

void TellLeftParts(const OutputRole& output) {
  for (const fs::path& path : Neighbours(output)) {
    if (!IsPartOf(output, path.filename().string()) || !IsLeftBehind(path)) continue;
    std::error_code error;
    const std::uintmax_t size = fs::file_size(path, error);
    std::fprintf(stderr,
                 "lidcam: '%s' was left by a lidcam that was killed: it holds the %llu bytes that "
                 "it had written for '%s'; rename it or remove it\n",
                 path.c_str(), static_cast<unsigned long long>(error ? 0 : size),
                 output.Path.c_str());
  }
}

}  // namespace

void LookAtFiles(const std::vector<InputRole>& inputs, const std::vector<OutputRole>& outputs) {
  RequireApart(inputs, outputs);
  for (const OutputRole& output : outputs) TellLeftParts(output);
}

}  // namespace lidcam::app
