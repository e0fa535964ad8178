#include "platform/image/block_coverage.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/image/file/image_file.h"
#include "platform/image/processor_traps.h"

namespace lidcam::image {
namespace {

// Through it a process changes its own read-only pages, so that none has to be writable and executable.
int OwnMemory() {
  static const int file = open("/proc/self/mem", O_RDWR | O_CLOEXEC);
  return file;
}

void* MapShared(const std::string& path, std::size_t size) {
  const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
  if (file < 0) throw ImageError(path + ": " + std::strerror(errno));
  struct stat status {};
  fstat(file, &status);
  const bool isOfSize = static_cast<std::size_t>(status.st_size) == size;
  void* const memory =
      isOfSize ? mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0) : MAP_FAILED;
  const std::string reason = isOfSize ? std::strerror(errno) : "is the coverage of another image";
  close(file);
  if (memory == MAP_FAILED) throw ImageError(path + ": " + reason);
  return memory;
}

}  // namespace

BlockCoverage::BlockCoverage(const std::string& path, std::size_t imageSize)
    : blocks_(static_cast<std::uint8_t*>(MapShared(path, imageSize)), imageSize) {}

BlockCoverage::~BlockCoverage() {
  munmap(blocks_.data(), blocks_.size());
}

// Never destroyed: drivers may be unloaded during static destruction.
BlockCoverage* BlockCoverage::OfEnvironment(std::size_t imageSize) {
  const char* const path = std::getenv("LIDCAM_DRIVER_COVERAGE");
  if (path == nullptr) return nullptr;
  static auto* const coverage = new BlockCoverage(path, imageSize);
  return coverage;
}

BlockBreakpoints::BlockBreakpoints(BlockCoverage& coverage, std::span<std::uint8_t> image)
    : coverage_(coverage), image_(image.data()), code_(image.begin(), image.end()) {
  if (OwnMemory() < 0) throw ImageError(std::string("/proc/self/mem: ") + std::strerror(errno));
  for (std::size_t offset = 0; offset < image.size(); ++offset) {
    if (coverage.IsBlock(offset) && !coverage.HasRun(offset)) image[offset] = kBreakpoint;
  }
}

// Another thread may have taken the same breakpoint just before.
bool BlockBreakpoints::Take(std::size_t offset) const noexcept {
  if (!coverage_.IsBlock(offset)) return false;
  coverage_.NoteRun(offset);
  if (code_[offset] == kBreakpoint) return false;
  const auto place = reinterpret_cast<off_t>(image_ + offset);
  return pwrite(OwnMemory(), &code_[offset], 1, place) == 1;
}

}  // namespace lidcam::image
