#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/host/nt/memory/pool_arena.h"
#include "platform/host/nt/scheduling/scheduler.h"

namespace lidcam::host {

/// Of request packets: "Irp ".
inline constexpr std::uint32_t kIrpTag = 0x20707249;

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

/// What a world allocated and has not freed, as "2 block(s) of 48 bytes with tag 'Test'" for each
/// tag; empty if nothing.
[[nodiscard]] std::string DescribePoolOfWorld(const Scheduler& world);

/// A world goes: its blocks are nobody's.
void ForgetPoolOfWorld(const Scheduler& world);

/// For the kernel's own objects that drivers get: memory of the pool, without a call of the driver's.
///
/// @return null if there is none, or if the allocation is to fail
[[nodiscard]] void* AllocatePoolBlock(POOL_TYPE type, std::size_t size, std::uint32_t tag);

/// Frees a block, which must not be overrun, or hold objects in use; `call` is who reports it.
void FreePoolBlock(const char* call, void* memory);

/// Lets the `countdown`-th allocation from now on fail, once: 1 is the very next. 0 turns it off.
/// All threads count together.
void FailPoolAllocation(std::uint32_t countdown);

/// The failure that FailPoolAllocation() asked for is still to come.
[[nodiscard]] bool IsPoolFailureToCome();

}  // namespace lidcam::host
