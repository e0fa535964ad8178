#pragma once

#include <cstddef>

namespace lidcam::host {

/// The stack of a fiber, with an inaccessible page below it: an overflow ends the process there.
/// Stacks of ended fibers are used again.
class FiberStack {
 public:
  /// Throws std::bad_alloc.
  FiberStack();
  FiberStack(const FiberStack&) = delete;
  FiberStack& operator=(const FiberStack&) = delete;
  ~FiberStack();

  [[nodiscard]] std::byte* Bottom() const;  ///< the lowest usable byte
  [[nodiscard]] std::byte* Top() const;     ///< behind the highest; the stack grows down from here

  static constexpr std::size_t kBytes = std::size_t{1} << 20;

 private:
  std::byte* const begin_;  // of the inaccessible page
};

}  // namespace lidcam::host
