#include "platform/host/nt/pool.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <unordered_map>

#include "platform/host/nt/lock_order.h"
#include "platform/host/nt/nt_declarations.h"
#include "platform/host/nt/object_registry.h"
#include "platform/host/nt/verifier.h"

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
  namespace calls = lidcam::host::calls;
  lidcam::host::EnterKernelCall(
      type == NonPagedPool ? calls::kExAllocateNonPaged : calls::kExAllocatePaged, nullptr);
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
  namespace calls = lidcam::host::calls;
  const auto block = lidcam::host::FindBlock(memory);
  const auto& rule =
      block && block->Type == PagedPool ? calls::kExFreePaged : calls::kExFreeNonPaged;
  lidcam::host::EnterKernelCall(rule, memory);
  if (block) {
    lidcam::host::ForgetLockOrders(memory, block->Size);
    lidcam::host::CheckFreedMemory(rule.Name, memory, block->Size);
  }
  // Another thread may have freed it since.
  if (!lidcam::host::RemoveBlock(memory)) {
    lidcam::host::ReportViolation(
        rule.Name, lidcam::host::DescribeObject("memory", memory) + " is not a block of the pool");
  }
  std::free(memory);
}
