#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace lidcam::integrations::pipewire {

/// Memory for pictures that other processes can map, in equal parts, one behind the other.
class PictureMemory {
 public:
  /// @param pictureBytes  what fits in each part
  /// @throws ShareError if the machine has no such memory
  PictureMemory(std::size_t pictureBytes, std::size_t parts);
  PictureMemory(const PictureMemory&) = delete;
  PictureMemory& operator=(const PictureMemory&) = delete;
  ~PictureMemory();

  /// The file that other processes map. Its size never changes.
  [[nodiscard]] int File() const { return file_; }
  [[nodiscard]] std::span<std::uint8_t> Bytes() const { return bytes_; }
  [[nodiscard]] std::size_t PartBytes() const { return partBytes_; }

 private:
  const std::size_t partBytes_;
  int file_ = -1;
  std::span<std::uint8_t> bytes_;
};

}  // namespace lidcam::integrations::pipewire
