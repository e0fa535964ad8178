#pragma once

#include <cstddef>
#include <cstdint>

namespace lidcam {

/// Where a buffer lies between its two guard pages.
enum class Placement { FlushWithStart, FlushWithEnd };

/// Memory between two pages that may not be touched: an access outside ends the process.
class GuardedBuffer {
 public:
  explicit GuardedBuffer(std::size_t capacity);
  ~GuardedBuffer();
  GuardedBuffer(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(const GuardedBuffer&) = delete;

  /// `size` bytes that touch one of the guard pages.
  [[nodiscard]] std::uint8_t* Place(std::size_t size, Placement placement) const;

 private:
  std::uint8_t* mapping_;
  std::size_t capacity_;
  std::size_t page_;
};

}  // namespace lidcam
