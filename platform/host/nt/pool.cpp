#include "platform/host/nt/pool.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <unordered_map>

#include "platform/host/nt/nt_declarations.h"

namespace lidcam::host {
namespace {

struct Block {
  POOL_TYPE Type;
  std::size_t Size;
  std::uint32_t Tag;
};

// Never destroyed: drivers may free memory while statics go away.
struct Pool {
  std::mutex Lock;
  std::unordered_map<void*, Block> Blocks;
  std::uint32_t FailCountdown = 0;
};

Pool& ThePool() {
  static auto* const pool = new Pool;
  return *pool;
}

// What fresh memory holds, so that nothing comes to rely on zeroes.
constexpr int kFreshByte = 0xCD;

void Count(const Block& block, PoolUsage& usage) {
  ++usage.Blocks;
  usage.Bytes += block.Size;
  if (block.Type == NonPagedPool) ++usage.NonPagedBlocks;
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

void FailPoolAllocation(std::uint32_t countdown) {
  Pool& pool = ThePool();
  const std::lock_guard guard(pool.Lock);
  pool.FailCountdown = countdown;
}

}  // namespace lidcam::host

using lidcam::host::ThePool;

PVOID ExAllocatePoolWithTag(POOL_TYPE type, SIZE_T size, ULONG tag) {
  auto& pool = ThePool();
  const std::lock_guard guard(pool.Lock);
  if (pool.FailCountdown != 0 && --pool.FailCountdown == 0) return nullptr;
  void* const memory = std::malloc(size != 0 ? size : 1);
  if (memory == nullptr) return nullptr;
  std::memset(memory, lidcam::host::kFreshByte, size);
  pool.Blocks.emplace(memory, lidcam::host::Block{type, size, tag});
  return memory;
}

void ExFreePool(PVOID memory) {
  auto& pool = ThePool();
  const std::lock_guard guard(pool.Lock);
  if (pool.Blocks.erase(memory) == 0) {
    std::fprintf(stderr, "ExFreePool: %p is not a block of the pool\n", memory);
    std::abort();
  }
  std::free(memory);
}
