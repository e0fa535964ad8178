#include "bus/capture/files/capture_input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <map>
#include <mutex>
#include <system_error>
#include <vector>

#include "bus/capture/files/capture_error.h"

namespace lidcam::bus {
namespace {

constexpr const char* kStandardInput = "-";

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  [[nodiscard]] int Number() const { return number_; }

 private:
  const int number_;
};
using SharedDescriptor = std::shared_ptr<const Descriptor>;

[[noreturn]] void Fail(const std::string& path, const std::string& reason) {
  throw CaptureError(CaptureName(path) + ": " + reason);
}

SharedDescriptor Open(const std::string& path) {
  auto file = std::make_shared<const Descriptor>(path == kStandardInput
                                                     ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                                     : open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file->Number() < 0) Fail(path, ErrorText(errno) + kWantedCapture);
  return file;
}

struct stat StatusOf(const std::string& path, const Descriptor& file) {
  struct stat status {};
  if (fstat(file.Number(), &status) != 0) Fail(path, ErrorText(errno));
  return status;
}

/// A file without a name, deleted when it is closed.
SharedDescriptor MakeTemporary(const std::string& path) {
  std::error_code error;
  const std::filesystem::path folder = std::filesystem::temp_directory_path(error);
  std::string name = (folder / "lidcam-capture-XXXXXX").string();
  auto file = std::make_shared<const Descriptor>(mkostemp(name.data(), O_CLOEXEC));
  if (file->Number() < 0) Fail(path, "no temporary file for it: " + ErrorText(errno));
  unlink(name.c_str());
  return file;
}

bool WriteAll(const Descriptor& file, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(file.Number(), bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
  return true;
}

SharedDescriptor CopyOf(const std::string& path, const Descriptor& pipe) {
  SharedDescriptor copy = MakeTemporary(path);
  std::vector<std::uint8_t> block(65536);
  for (;;) {
    const ssize_t count = read(pipe.Number(), block.data(), block.size());
    if (count == 0) return copy;
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) Fail(path, ErrorText(errno));
    if (!WriteAll(*copy, std::span(block).first(static_cast<std::size_t>(count)))) {
      Fail(path, "no room for a copy of it in the folder of temporary files: " + ErrorText(errno));
    }
  }
}

/// Copies of the pipes read so far, by their names.
class PipeCopies {
 public:
  SharedDescriptor Find(const std::string& path) {
    const std::lock_guard lock(mutex_);
    const auto found = copies_.find(path);
    return found == copies_.end() ? nullptr : found->second;
  }

  SharedDescriptor Add(const std::string& path, const Descriptor& pipe) {
    const std::lock_guard lock(mutex_);
    SharedDescriptor& copy = copies_[path];
    if (copy == nullptr) copy = CopyOf(path, pipe);
    return copy;
  }

 private:
  std::mutex mutex_;
  std::map<std::string, SharedDescriptor> copies_;
};

/// A file that can be read again from any offset.
SharedDescriptor OpenRereadable(const std::string& path) {
  static PipeCopies copies;
  if (SharedDescriptor copy = copies.Find(path)) return copy;
  SharedDescriptor file = Open(path);
  const mode_t mode = StatusOf(path, *file).st_mode;
  if (S_ISDIR(mode)) Fail(path, std::string("is a directory") + kWantedCapture);
  // Part of standard input may have been read already.
  if (S_ISREG(mode) && path != kStandardInput) return file;
  return copies.Add(path, *file);
}

std::size_t ReadHead(const std::string& path, const Descriptor& file,
                     std::span<std::uint8_t> head) {
  const ssize_t count = pread(file.Number(), head.data(), head.size(), 0);
  if (count < 0) Fail(path, ErrorText(errno));
  return static_cast<std::size_t>(count);
}

ByteSource SourceOf(SharedDescriptor file) {
  return [file = std::move(file), offset = off_t{0}](std::span<std::uint8_t> buffer) mutable {
    ssize_t count = -1;
    do {
      count = pread(file->Number(), buffer.data(), buffer.size(), offset);
    } while (count < 0 && errno == EINTR);
    if (count > 0) offset += count;
    return count;
  };
}

}  // namespace

std::string CaptureName(const std::string& path) {
  return path == kStandardInput ? "standard input" : path;
}

CaptureInput::CaptureInput(const std::string& path) {
  SharedDescriptor file = OpenRereadable(path);
  std::array<std::uint8_t, kCompressionMarkSize> head{};
  const std::size_t count = ReadHead(path, *file, head);
  if (count == 0) Fail(path, std::string("the file is empty") + kWantedCapture);
  ByteSource source = SourceOf(std::move(file));
  stream_ = IsCompressed(std::span(head).first(count)) ? OpenDecompressed(std::move(source), *end_)
                                                       : OpenPlain(std::move(source));
  if (!stream_) Fail(path, "no memory to read it");
}

}  // namespace lidcam::bus
