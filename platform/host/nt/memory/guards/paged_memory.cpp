#include "platform/host/nt/memory/guards/paged_memory.h"

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

#include "base/process_mutex.h"

namespace lidcam::host {
namespace {

struct Entry {
  PagedBlock Block;
  bool IsOut = false;
};

struct PagedMemory {
  base::ProcessMutex Lock;
  std::vector<Entry> Entries;
};

// Never destroyed: drivers may free memory during static destruction.
PagedMemory& ThePagedMemory() {
  static auto* const memory = new PagedMemory;
  return *memory;
}

void SetAccess(Entry& entry, bool isOut) {
  if (entry.Block.Pages == nullptr || std::exchange(entry.IsOut, isOut) == isOut) return;
  mprotect(entry.Block.Pages, entry.Block.PageBytes, isOut ? PROT_NONE : PROT_READ | PROT_WRITE);
}

bool Contains(const void* begin, std::size_t size, const void* address) {
  const auto* const first = static_cast<const std::byte*>(begin);
  const auto* const at = static_cast<const std::byte*>(address);
  return at >= first && at < first + size;
}

// Without the lock: the signal handler's thread may not wait for it.
Entry* FindOut(const void* address) {
  std::vector<Entry>& entries = ThePagedMemory().Entries;
  const auto found = std::ranges::find_if(entries, [address](const Entry& entry) {
    return entry.IsOut && Contains(entry.Block.Pages, entry.Block.PageBytes, address);
  });
  return found != entries.end() ? &*found : nullptr;
}

FreedUse UseOf(const PagedBlock& block, const void* address) {
  const auto offset =
      static_cast<const std::byte*>(address) - static_cast<const std::byte*>(block.Memory);
  return {block.Memory, static_cast<std::size_t>(offset), block.Size, block.Tag, true};
}

}  // namespace

constinit std::atomic<std::size_t> g_pagedBlocks{0};

void AddPagedBlock(const PagedBlock& block) {
  PagedMemory& memory = ThePagedMemory();
  const std::lock_guard guard(memory.Lock);
  memory.Entries.push_back({block});
  ++g_pagedBlocks;
}

void RemovePagedBlock(const void* memory) {
  if (!IsPagedMemoryInUse()) return;
  PagedMemory& paged = ThePagedMemory();
  const std::lock_guard guard(paged.Lock);
  g_pagedBlocks -= std::erase_if(
      paged.Entries, [memory](const Entry& entry) { return entry.Block.Memory == memory; });
}

std::string FindPagedBlock(const void* object) {
  PagedMemory& memory = ThePagedMemory();
  const std::lock_guard guard(memory.Lock);
  const auto found = std::ranges::find_if(memory.Entries, [object](const Entry& entry) {
    return Contains(entry.Block.Memory, entry.Block.Size, object);
  });
  if (found == memory.Entries.end()) return {};
  return BlockText(found->Block.Memory, found->Block.Size, found->Block.Tag);
}

void FollowLevel(const void* world, KIRQL level) {
  PagedMemory& memory = ThePagedMemory();
  const std::lock_guard guard(memory.Lock);
  for (Entry& entry : memory.Entries) {
    if (entry.Block.World == world) SetAccess(entry, level >= DISPATCH_LEVEL);
  }
}

bool PageIn(const void* address, FreedUse& use) noexcept {
  if (!IsPagedMemoryInUse()) return false;
  Entry* const entry = FindOut(address);
  if (entry == nullptr) return false;
  use = UseOf(entry->Block, address);
  SetAccess(*entry, false);
  return true;
}

std::string DescribePagedOut(const void* address) {
  const Entry* const entry = IsPagedMemoryInUse() ? FindOut(address) : nullptr;
  return entry != nullptr ? DescribeFreedUse(UseOf(entry->Block, address)) : std::string();
}

}  // namespace lidcam::host
