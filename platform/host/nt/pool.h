#pragma once

#include <cstddef>
#include <cstdint>

namespace lidcam::host {

/// What stands in the host's pool, of both types unless a member says otherwise.
struct PoolUsage {
  std::size_t Blocks = 0;
  std::size_t Bytes = 0;
  std::size_t NonPagedBlocks = 0;
};

/// Blocks and bytes that carry `tag` (four letters as the number that they make in memory).
[[nodiscard]] PoolUsage PoolUsageOfTag(std::uint32_t tag);

/// Blocks and bytes of all tags.
[[nodiscard]] PoolUsage PoolUsageOfAll();

/// Lets the `countdown`-th allocation from now on fail, once: 1 is the very next. 0 turns it off.
/// All threads count together.
void FailPoolAllocation(std::uint32_t countdown);

}  // namespace lidcam::host
