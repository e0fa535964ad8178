#include "platform/host/nt/memory/pool.h"

#include <array>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <utility>

#include "base/process_mutex.h"
#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/host/nt/memory/guards/freed_use.h"
#include "platform/host/nt/memory/guards/paged_memory.h"
#include "platform/host/nt/memory/guards/pool_guard.h"
#include "platform/host/nt/memory/pool_arena.h"
#include "platform/host/nt/scheduling/violation.h"
#include "platform/host/nt/verifier/irp_tracker.h"
#include "platform/host/nt/verifier/lock_order.h"
#include "platform/host/nt/verifier/object_tracker.h"

namespace lidcam::host {
namespace {

struct Block {
  POOL_TYPE Type;
  std::size_t Size;
  std::uint32_t Tag;
  const Scheduler* World;            ///< that allocated it; null if the world has ended
  std::shared_ptr<PoolArena> Arena;  ///< that contains it; null: memory of malloc()
};

// Never destroyed: drivers may free memory during static destruction.
struct Pool {
  base::ProcessMutex Lock;
  std::unordered_map<void*, Block> Blocks;
  std::uint32_t FailCountdown = 0;
  std::function<void(const PoolEvent& event)> See;
};

Pool& ThePool() {
  static auto* const pool = new Pool;
  return *pool;
}

void Show(PoolEvent::Kind what, POOL_TYPE type, std::size_t size, std::uint32_t tag) {
  const Pool& pool = ThePool();
  if (pool.See) pool.See({what, type, size, tag});
}

void Count(const Block& block, PoolUsage& usage) {
  ++usage.Blocks;
  usage.Bytes += block.Size;
  if (block.Type == NonPagedPool) ++usage.NonPagedBlocks;
}

std::optional<Block> FindBlock(void* memory) {
  Pool& pool = ThePool();
  const std::lock_guard guard(pool.Lock);
  const auto found = pool.Blocks.find(memory);
  if (found == pool.Blocks.end()) return std::nullopt;
  return found->second;
}

bool RemoveBlock(void* memory) {
  Pool& pool = ThePool();
  const std::lock_guard guard(pool.Lock);
  return pool.Blocks.erase(memory) != 0;
}

// The rest of the guard behind a block is the inaccessible page.
std::size_t BytesBehind(const PoolArena* arena, std::size_t size) {
  if (arena == nullptr || !arena->HasGuardPages()) return GuardBytesBehind();
  return (PoolArena::kAlignment - size % PoolArena::kAlignment) % PoolArena::kAlignment;
}

void CheckOverrun(const char* call, const void* memory, const Block& block) {
  const std::string overrun =
      FindOverrun(memory, block.Size, BytesBehind(block.Arena.get(), block.Size));
  if (!overrun.empty()) {
    ReportViolation(call, BlockText(memory, block.Size, block.Tag) + " was overrun: " + overrun);
  }
}

// Requests and their URBs are allocated and freed thousands of times in a run. A use of a freed
// request is detected by the calls that it is passed to.
bool IsTakenAmongOthers(std::size_t size, std::uint32_t tag) {
  constexpr std::size_t kLargestUrb = 176;  // with its guards
  return size <= (tag == kIrpTag ? PoolArena::kLargestAmongOthers : kLargestUrb);
}

// When an arena has no addresses left, malloc() is used.
void* TakeMemory(std::shared_ptr<PoolArena>& arena, POOL_TYPE type, std::size_t size,
                 std::uint32_t tag) {
  const std::size_t bytes = GuardedBytes(size);
  if (bytes == 0) return nullptr;
  void* start = nullptr;
  if (arena != nullptr && arena->HasGuardPages()) {
    start = arena->TakeAtGuardPage(bytes, tag);
  } else if (arena != nullptr) {
    const bool isAmongOthers = type == NonPagedPool && IsTakenAmongOthers(bytes, tag);
    start = isAmongOthers ? arena->TakeAmongOthers(bytes, tag) : arena->TakeAlone(bytes, tag);
  }
  if (start == nullptr) {
    arena.reset();
    start = std::malloc(bytes);
  }
  return start != nullptr ? LayGuards(start, size, BytesBehind(arena.get(), size)) : nullptr;
}

void GiveBack(void* memory, const std::shared_ptr<PoolArena>& arena) {
  void* const start = StartOfGuarded(memory);
  if (arena != nullptr) {
    arena->Free(start);
  } else {
    std::free(start);
  }
}

}  // namespace

PoolUsage PoolUsageOfTag(std::uint32_t tag) {
  Pool& pool = ThePool();
  const std::lock_guard guard(pool.Lock);
  PoolUsage usage;
  for (const auto& [address, block] : pool.Blocks) {
    if (block.Tag == tag) Count(block, usage);
  }
  return usage;
}

PoolUsage PoolUsageOfAll() {
  Pool& pool = ThePool();
  const std::lock_guard guard(pool.Lock);
  PoolUsage usage;
  for (const auto& [address, block] : pool.Blocks) Count(block, usage);
  return usage;
}

std::vector<PoolBlocks> PoolBlocksOfAll() {
  Pool& pool = ThePool();
  const std::lock_guard guard(pool.Lock);
  std::map<std::pair<std::size_t, std::uint32_t>, std::size_t, std::greater<>> counts;
  for (const auto& [address, block] : pool.Blocks) ++counts[{block.Size, block.Tag}];
  std::vector<PoolBlocks> blocks;
  blocks.reserve(counts.size());
  for (const auto& [kind, count] : counts) blocks.push_back({kind.second, kind.first, count});
  return blocks;
}

std::vector<PoolBlocks> PoolBlocksAdded(const std::vector<PoolBlocks>& now,
                                        const std::vector<PoolBlocks>& before) {
  std::vector<PoolBlocks> added;
  for (PoolBlocks blocks : now) {
    for (const PoolBlocks& old : before) {
      if (old.Tag == blocks.Tag && old.Size == blocks.Size) blocks.Count -= old.Count;
    }
    if (blocks.Count != 0) added.push_back(blocks);
  }
  return added;
}

void FailPoolAllocation(std::uint32_t countdown) {
  Pool& pool = ThePool();
  const std::lock_guard guard(pool.Lock);
  pool.FailCountdown = countdown;
}

bool IsPoolFailureToCome() {
  Pool& pool = ThePool();
  const std::lock_guard guard(pool.Lock);
  return pool.FailCountdown != 0;
}

std::string DescribePoolOfWorld(const Scheduler& world) {
  Pool& pool = ThePool();
  const std::lock_guard guard(pool.Lock);
  std::map<std::uint32_t, PoolUsage> tags;
  for (const auto& [address, block] : pool.Blocks) {
    if (block.World == &world) Count(block, tags[block.Tag]);
  }
  std::string text;
  for (const auto& [tag, usage] : tags) {
    text += (text.empty() ? "" : ", ") + std::to_string(usage.Blocks) + " block(s) of " +
            std::to_string(usage.Bytes) + " bytes with tag " + TagText(tag);
  }
  return text;
}

void ForgetPoolOfWorld(const Scheduler& world) {
  Pool& pool = ThePool();
  const std::lock_guard guard(pool.Lock);
  for (auto& [address, block] : pool.Blocks) {
    if (block.World != &world) continue;
    block.World = nullptr;
    RemovePagedBlock(address);
  }
}

void FreePoolOfWorld(const Scheduler& world) {
  Pool& pool = ThePool();
  const std::lock_guard guard(pool.Lock);
  std::erase_if(pool.Blocks, [&world](const auto& entry) {
    const auto& [address, block] = entry;
    if (block.World != &world) return false;
    RemovePagedBlock(address);
    GiveBack(address, block.Arena);
    return true;
  });
}

std::string ToString(const PoolEvent& event) {
  constexpr std::array kWords{"allocated ", "failed ", "freed "};
  return std::string("pool ") + kWords.at(static_cast<std::size_t>(event.What)) +
         std::to_string(event.Size) + " " + TagText(event.Tag) +
         (event.Type == NonPagedPool ? " nonpaged" : " paged");
}

PoolObserver::PoolObserver(std::function<void(const PoolEvent& event)> see) {
  ThePool().See = std::move(see);
}

PoolObserver::~PoolObserver() {
  ThePool().See = nullptr;
}

namespace {

void NotePaged(void* memory, std::size_t size, std::uint32_t tag, const Scheduler& world,
               const PoolArena* arena) {
  PagedBlock block{.Memory = memory, .Size = size, .Tag = tag, .World = &world};
  if (arena != nullptr) {
    const std::span<std::byte> pages = arena->PagesOf(StartOfGuarded(memory));
    block.Pages = pages.data();
    block.PageBytes = pages.size();
  }
  AddPagedBlock(block);
}

void* TakeBlock(POOL_TYPE type, std::size_t size, std::uint32_t tag) {
  const Scheduler& world = CurrentWorld();
  Pool& pool = ThePool();
  const std::lock_guard guard(pool.Lock);
  if (pool.FailCountdown != 0 && --pool.FailCountdown == 0) return nullptr;
  std::shared_ptr<PoolArena> arena = world.Arena();
  void* const memory = TakeMemory(arena, type, size, tag);
  if (memory != nullptr) {
    if (type == PagedPool) NotePaged(memory, size, tag, world, arena.get());
    pool.Blocks.emplace(memory, Block{type, size, tag, &world, std::move(arena)});
  }
  return memory;
}

}  // namespace

void* AllocatePoolBlock(POOL_TYPE type, std::size_t size, std::uint32_t tag) {
  void* const memory = TakeBlock(type, size, tag);
  Show(memory != nullptr ? PoolEvent::Kind::Allocated : PoolEvent::Kind::Failed, type, size, tag);
  return memory;
}

void FreePoolBlock(const char* call, void* memory) {
  const auto block = FindBlock(memory);
  if (block) {
    CheckOverrun(call, memory, *block);
    ForgetLockOrders(memory, block->Size);
    CheckFreedMemory(call, memory, block->Size);
  }
  // Another thread may have freed it since.
  if (!RemoveBlock(memory)) {
    ReportViolation(call, DescribeObject("memory", memory) + " is not a block of the pool");
  }
  RemovePagedBlock(memory);
  GiveBack(memory, block->Arena);
  Show(PoolEvent::Kind::Freed, block->Type, block->Size, block->Tag);
}

}  // namespace lidcam::host

using namespace lidcam::host;

PVOID ExAllocatePoolWithTag(POOL_TYPE type, SIZE_T size, ULONG tag) {
  EnterKernelCall(type == NonPagedPool ? calls::kExAllocateNonPaged : calls::kExAllocatePaged,
                  nullptr);
  return AllocatePoolBlock(type, size, tag);
}

void ExFreePool(PVOID memory) {
  const auto block = FindBlock(memory);
  const auto& rule =
      block && block->Type == PagedPool ? calls::kExFreePaged : calls::kExFreeNonPaged;
  EnterKernelCall(rule, memory);
  if (block) CheckFreedIrps(rule.Name, memory, block->Size);
  FreePoolBlock(rule.Name, memory);
}
