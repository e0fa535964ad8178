#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/host/nt/memory/pool_arena.h"
#include "platform/host/nt/scheduling/scheduler.h"

namespace lidcam::host {

/// Tag of request packets: "Irp ".
inline constexpr std::uint32_t kIrpTag = 0x20707249;

/// The contents of the host's pool, of both types unless a member says otherwise.
struct PoolUsage {
  std::size_t Blocks = 0;
  std::size_t Bytes = 0;
  std::size_t NonPagedBlocks = 0;
};

/// Blocks and bytes that carry `tag` (four letters as the number that they make in memory).
[[nodiscard]] PoolUsage PoolUsageOfTag(std::uint32_t tag);

/// Blocks and bytes of all tags.
[[nodiscard]] PoolUsage PoolUsageOfAll();

/// Blocks of the same tag and size.
struct PoolBlocks {
  std::uint32_t Tag = 0;
  std::size_t Size = 0;
  std::size_t Count = 0;

  friend bool operator==(const PoolBlocks&, const PoolBlocks&) = default;
};

/// The blocks of all tags, the largest first.
[[nodiscard]] std::vector<PoolBlocks> PoolBlocksOfAll();

/// Those of `now` that aren't among those of `before`.
[[nodiscard]] std::vector<PoolBlocks> PoolBlocksAdded(const std::vector<PoolBlocks>& now,
                                                      const std::vector<PoolBlocks>& before);

/// A world's allocations that were not freed, as "2 block(s) of 48 bytes with tag 'Test'" for each
/// tag; empty if none.
[[nodiscard]] std::string DescribePoolOfWorld(const Scheduler& world);

/// Drops the blocks of a world that ends: they belong to no world any more.
void ForgetPoolOfWorld(const Scheduler& world);

/// Frees the blocks of a world that ends: nothing uses them any more.
void FreePoolOfWorld(const Scheduler& world);

/// Allocates the kernel's own objects that drivers get: memory of the pool, without a driver's
/// call.
///
/// @return null without memory, or for an injected failure
[[nodiscard]] void* AllocatePoolBlock(POOL_TYPE type, std::size_t size, std::uint32_t tag);

/// Frees a block, which must not be overrun or contain objects in use; `call` is named in reports.
void FreePoolBlock(const char* call, void* memory);

/// Makes the `countdown`-th allocation from now on fail, once: 1 is the very next. 0 turns it off.
/// All threads count together.
void FailPoolAllocation(std::uint32_t countdown);

/// Whether the failure of FailPoolAllocation() is still to come.
[[nodiscard]] bool IsPoolFailureToCome();

/// A block that is allocated or freed, or an allocation that fails.
struct PoolEvent {
  enum class Kind : std::uint8_t { Allocated, Failed, Freed };
  Kind What;
  POOL_TYPE Type;
  std::size_t Size;
  std::uint32_t Tag;
};

/// "pool allocated 48 'Test' nonpaged"
[[nodiscard]] std::string ToString(const PoolEvent& event);

/// Sees all pool events during its lifetime; one at a time, not while threads run outside of a simulation.
class PoolObserver {
 public:
  /// @param see  called on the thread that allocates or frees
  explicit PoolObserver(std::function<void(const PoolEvent& event)> see);
  PoolObserver(const PoolObserver&) = delete;
  PoolObserver& operator=(const PoolObserver&) = delete;
  ~PoolObserver();
};

}  // namespace lidcam::host
