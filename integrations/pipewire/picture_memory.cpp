#include "integrations/pipewire/picture_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "integrations/camera/camera_description.h"

namespace lidcam::integrations::pipewire {
namespace {

/// Each part begins at a page, so that a buffer of PipeWire's can be mapped by itself.
std::size_t WholePages(std::size_t bytes) {
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  return (bytes + page - 1) / page * page;
}

}  // namespace

PictureMemory::PictureMemory(std::size_t pictureBytes, std::size_t parts)
    : partBytes_(WholePages(pictureBytes)) {
  const std::size_t size = partBytes_ * parts;
  file_ = memfd_create("lidcam-pictures", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  void* mapped = MAP_FAILED;
  if (file_ >= 0 && ftruncate(file_, static_cast<off_t>(size)) == 0) {
    mapped = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file_, 0);
  }
  if (mapped == MAP_FAILED) {
    const std::string reason = std::strerror(errno);
    if (file_ >= 0) close(file_);
    throw ShareError("memory for pictures cannot be shared: " + reason);
  }
  // Who maps it need not fear that it shrinks.
  fcntl(file_, F_ADD_SEALS, F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL);
  bytes_ = {static_cast<std::uint8_t*>(mapped), size};
}

PictureMemory::~PictureMemory() {
  munmap(bytes_.data(), bytes_.size());
  close(file_);
}

}  // namespace lidcam::integrations::pipewire
