#pragma once

#include <cstddef>
#include <cstdint>

#include "driver/core/base/camera_memory.h"

namespace lidcam {

/// Nonpaged memory on a boundary of 64 bytes, given back when this goes out of scope.
class AlignedMemory {
 public:
  static constexpr std::size_t kAlignment = 64;

  /// The whole nonpaged pool of a 32-bit system. Larger sizes fail without an attempt.
  static constexpr std::uint64_t kLargest = std::uint64_t{256} << 20U;

  explicit AlignedMemory(std::uint64_t size) {
    if (size > kLargest) return;
    block_ = AllocateCameraMemory(static_cast<std::size_t>(size) + kAlignment - 1);
  }
  ~AlignedMemory() { FreeCameraMemory(block_); }
  AlignedMemory(const AlignedMemory&) = delete;
  AlignedMemory& operator=(const AlignedMemory&) = delete;

  /// The memory's first byte; null when the pool had no room. The content is undefined.
  [[nodiscard]] std::uint8_t* Bytes() const {
    if (block_ == nullptr) return nullptr;
    const auto address = reinterpret_cast<std::uintptr_t>(block_);
    return static_cast<std::uint8_t*>(block_) + (kAlignment - address % kAlignment) % kAlignment;
  }

  /// `size` rounded up so that what follows is aligned as well.
  static constexpr std::uint64_t Padded(std::uint64_t size) {
    return (size + kAlignment - 1) / kAlignment * kAlignment;
  }

 private:
  void* block_ = nullptr;
};

}  // namespace lidcam
