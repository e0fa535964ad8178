#pragma once

#include <functional>
#include <utility>
#include <vector>

#include "platform/kernel.h"

namespace lidcam::test {

/// Observes the driver's allocations from the pool while it lives; one at a time. The linker
/// redirects them here (--wrap).
class PoolCalls {
 public:
  struct Allocation {
    POOL_TYPE Type;
    SIZE_T Size;
    ULONG Tag;

    friend bool operator==(const Allocation&, const Allocation&) = default;
  };

  /// @param onAllocation  runs ahead of each
  explicit PoolCalls(std::function<void()> onAllocation = {});
  PoolCalls(const PoolCalls&) = delete;
  PoolCalls& operator=(const PoolCalls&) = delete;
  ~PoolCalls();

  void Add(const Allocation& allocation);
  [[nodiscard]] const std::vector<Allocation>& Allocations() const { return allocations_; }

 private:
  std::function<void()> onAllocation_;
  std::vector<Allocation> allocations_;
};

}  // namespace lidcam::test
