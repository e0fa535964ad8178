#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/host/nt/memory/guards/freed_use.h"

namespace lidcam::host {

/// A block of memory that the platform may page out. At dispatch level nothing can bring it back.
struct PagedBlock {
  const void* Memory = nullptr;
  std::size_t Size = 0;
  std::uint32_t Tag = 0;
  const void* World = nullptr;  ///< that allocated it
  void* Pages = nullptr;        ///< that nothing else shares; null: an access isn't noticed
  std::size_t PageBytes = 0;
};

/// Number of blocks of paged memory.
extern constinit std::atomic<std::size_t> g_pagedBlocks;

/// A driver whose memory is all nonpaged, as the camera's, costs no more than this.
inline bool IsPagedMemoryInUse() {
  return g_pagedBlocks.load(std::memory_order_relaxed) != 0;
}

/// @par Any thread
void AddPagedBlock(const PagedBlock& block);
/// Does nothing for other memory.
void RemovePagedBlock(const void* memory);

/// The block of paged memory that contains an object, as reports name it; empty if none does. For callers that know
/// of paged memory in use.
[[nodiscard]] std::string FindPagedBlock(const void* object);

/// A thread of a world in which one thread runs at a time goes on at this level: from dispatch level on the world's
/// paged pages are inaccessible. For callers that know of paged memory in use.
void FollowLevel(const void* world, KIRQL level);

/// For the signal handler: lets an access to a page that is paged out continue.
///
/// @return false if `address` lies in none
[[nodiscard]] bool PageIn(const void* address, FreedUse& use) noexcept;

/// What a refused access to `address` was an access to; empty if it lies in no page that is paged out.
[[nodiscard]] std::string DescribePagedOut(const void* address);

}  // namespace lidcam::host
