#include "apps/lidcam/output/output_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "apps/lidcam/command_error.h"

namespace lidcam::app {
namespace {

// What would be right, where the reason alone does not say it.
const char* HintFor(int error) {
  switch (error) {
    case ENOENT:
      return "; name a folder that exists";
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return "; free some space or choose another place";
    case EACCES:
    case EPERM:
    case EROFS:
      return "; choose a place that you may write to";
    default:
      return "";
  }
}

bool IsWrittenDirectly(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

std::string TemporaryName(const std::string& path) {
  const std::filesystem::path place(path);
  const std::string name =
      "." + place.filename().string() + "." + std::to_string(getpid()) + ".part";
  return (place.parent_path() / name).string();
}

}  // namespace

OutputFile::OutputFile(std::string path) : path_(std::move(path)) {
  if (path_ == "-") {
    file_ = stdout;
    return;
  }
  if (path_.empty())
    throw CommandError(
        "output '' can't be written: the name is empty; name a file or - for standard output");
  std::error_code ignored;
  if (std::filesystem::is_directory(path_, ignored)) {
    throw CommandError("output '" + path_ + "' can't be written: it is a folder");
  }
  if (!IsWrittenDirectly(path_)) temporaryPath_ = TemporaryName(path_);
  file_ = std::fopen((temporaryPath_.empty() ? path_ : temporaryPath_).c_str(), "wb");
  if (file_ == nullptr) Fail("can't be written", errno);
}

OutputFile::~OutputFile() {
  Discard();
}

void OutputFile::Write(std::span<const std::uint8_t> bytes) {
  if (std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size()) {
    Fail("can't be written", errno);
  }
}

void OutputFile::Write(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), file_) != text.size()) {
    Fail("can't be written", errno);
  }
}

void OutputFile::Commit() {
  if (std::fflush(file_) != 0) Fail("can't be written", errno);
  if (file_ == stdout) return;
  if (!temporaryPath_.empty() && fsync(fileno(file_)) != 0) Fail("can't be written", errno);
  std::FILE* const file = std::exchange(file_, nullptr);
  if (std::fclose(file) != 0) Fail("can't be written", errno);
  if (temporaryPath_.empty()) return;
  if (std::rename(temporaryPath_.c_str(), path_.c_str()) != 0) Fail("can't be renamed", errno);
  temporaryPath_.clear();
}

void OutputFile::Fail(const std::string& what, int error) {
  Discard();
  const std::string name = path_ == "-" ? "standard output" : "output '" + path_ + "'";
  throw CommandError(name + " " + what + ": " + std::strerror(error) + HintFor(error));
}

void OutputFile::Discard() {
  if (file_ != nullptr && file_ != stdout) std::fclose(file_);
  file_ = nullptr;
  if (!temporaryPath_.empty()) std::remove(temporaryPath_.c_str());
  temporaryPath_.clear();
}

}  // namespace lidcam::app
