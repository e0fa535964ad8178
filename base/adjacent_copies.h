#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace lidcam::base {

/// Copies pieces of memory one after the other; those whose sources and places are adjacent are moved by one memcpy. A
/// copy of 3 KB from memory that isn't in the caches is over before the processor fetches ahead. The memory has to last
/// until Finish().
class AdjacentCopies {
 public:
  AdjacentCopies() = default;
  AdjacentCopies(const AdjacentCopies&) = delete;
  AdjacentCopies& operator=(const AdjacentCopies&) = delete;
  ~AdjacentCopies() { Finish(); }

  void Add(std::uint8_t* to, std::span<const std::uint8_t> from) {
    if (from.empty()) return;
    if (size_ == 0 || to != to_ + size_ || from.data() != from_ + size_) {
      Finish();
      to_ = to;
      from_ = from.data();
    }
    size_ += from.size();
  }

  /// Copies what is still outstanding.
  void Finish() {
    if (size_ != 0) std::memcpy(to_, from_, size_);
    size_ = 0;
  }

 private:
  std::uint8_t* to_ = nullptr;
  const std::uint8_t* from_ = nullptr;
  std::size_t size_ = 0;  ///< bytes not yet copied
};

}  // namespace lidcam::base
