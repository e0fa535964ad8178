#include "platform/host/nt/memory/pool.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {
namespace {

constexpr ULONG kTag = 0x74736554;
constexpr ULONG kOtherTag = 0x6568744F;

TEST(HostPool, CountsBlocksAndBytesByTag) {
  const PoolUsage all = PoolUsageOfAll();
  void* const first = ExAllocatePoolWithTag(NonPagedPool, 10, kTag);
  void* const second = ExAllocatePoolWithTag(NonPagedPool, 20, kTag);
  void* const third = ExAllocatePoolWithTag(NonPagedPool, 400, kOtherTag);
  EXPECT_EQ(PoolUsageOfTag(kTag).Blocks, 2U);
  EXPECT_EQ(PoolUsageOfTag(kTag).Bytes, 30U);
  EXPECT_EQ(PoolUsageOfTag(kOtherTag).Bytes, 400U);
  EXPECT_EQ(PoolUsageOfAll().Bytes, all.Bytes + 430);
  ExFreePool(first);
  EXPECT_EQ(PoolUsageOfTag(kTag).Bytes, 20U);
  ExFreePool(second);
  ExFreePool(third);
  EXPECT_EQ(PoolUsageOfAll().Blocks, all.Blocks);
}

TEST(HostPool, ListsBlocksOfOneTagAndSizeTogether) {
  const std::size_t before = PoolBlocksOfAll().size();
  void* const blocks[] = {ExAllocatePoolWithTag(NonPagedPool, 777'777, kTag),
                          ExAllocatePoolWithTag(NonPagedPool, 777'778, kOtherTag),
                          ExAllocatePoolWithTag(PagedPool, 777'777, kTag)};
  const std::vector<PoolBlocks> all = PoolBlocksOfAll();
  ASSERT_EQ(all.size(), before + 2);
  EXPECT_EQ(all[0], (PoolBlocks{kOtherTag, 777'778, 1}));
  EXPECT_EQ(all[1], (PoolBlocks{kTag, 777'777, 2}));
  for (void* const block : blocks) ExFreePool(block);
  EXPECT_EQ(PoolBlocksOfAll().size(), before);
}

TEST(HostPool, TellsNonpagedBlocksFromPagedOnes) {
  const std::size_t before = PoolUsageOfAll().NonPagedBlocks;
  void* const paged = ExAllocatePoolWithTag(PagedPool, 10, kTag);
  void* const nonpaged = ExAllocatePoolWithTag(NonPagedPool, 20, kTag);
  EXPECT_EQ(PoolUsageOfTag(kTag).Blocks, 2U);
  EXPECT_EQ(PoolUsageOfTag(kTag).NonPagedBlocks, 1U);
  EXPECT_EQ(PoolUsageOfAll().NonPagedBlocks, before + 1);
  ExFreePool(paged);
  ExFreePool(nonpaged);
  EXPECT_EQ(PoolUsageOfAll().NonPagedBlocks, before);
}

TEST(HostPool, GivesMemoryThatIsNotZero) {
  auto* const memory = static_cast<UCHAR*>(ExAllocatePoolWithTag(NonPagedPool, 3, kTag));
  ASSERT_NE(memory, nullptr);
  EXPECT_NE(memory[0], 0);
  EXPECT_NE(memory[2], 0);
  ExFreePool(memory);
}

TEST(HostPool, GivesABlockOfItsOwnForNoBytes) {
  void* const memory = ExAllocatePoolWithTag(NonPagedPool, 0, kTag);
  EXPECT_NE(memory, nullptr);
  EXPECT_EQ(PoolUsageOfTag(kTag).Blocks, 1U);
  ExFreePool(memory);
}

TEST(HostPool, ShowsItsObserverEachBlockWithTypeSizeAndTag) {
  std::vector<std::string> lines;
  const PoolObserver observer([&](const PoolEvent& event) { lines.push_back(ToString(event)); });
  ExFreePool(ExAllocatePoolWithTag(PagedPool, 10, kTag));
  FailPoolAllocation(1);
  EXPECT_EQ(ExAllocatePoolWithTag(NonPagedPool, 20, kTag), nullptr);
  EXPECT_EQ(lines, (std::vector<std::string>{"pool allocated 10 'Test' paged",
                                             "pool freed 10 'Test' paged",
                                             "pool failed 20 'Test' nonpaged"}));
}

// Which of six allocations fail.
std::vector<bool> FailuresWithCountdown(std::uint32_t countdown) {
  FailPoolAllocation(countdown);
  std::vector<bool> failures;
  std::vector<void*> blocks;
  for (int i = 0; i < 6; ++i) {
    blocks.push_back(ExAllocatePoolWithTag(NonPagedPool, 8, kTag));
    failures.push_back(blocks.back() == nullptr);
  }
  FailPoolAllocation(0);
  for (void* const block : blocks) {
    if (block != nullptr) ExFreePool(block);
  }
  return failures;
}

TEST(HostPool, FailsTheAllocationThatTheCountdownNamesAndNoOther) {
  for (std::uint32_t countdown = 0; countdown <= 7; ++countdown) {
    std::vector<bool> expected(6, false);
    if (countdown >= 1 && countdown <= 6) expected[countdown - 1] = true;
    EXPECT_EQ(FailuresWithCountdown(countdown), expected) << countdown;
  }
  EXPECT_EQ(PoolUsageOfTag(kTag).Blocks, 0U);
}

TEST(HostPool, ForgetsACountdownThatIsTurnedOff) {
  FailPoolAllocation(1);
  FailPoolAllocation(0);
  void* const memory = ExAllocatePoolWithTag(NonPagedPool, 8, kTag);
  ASSERT_NE(memory, nullptr);
  ExFreePool(memory);
}

TEST(HostPool, ServesThreadsAtOnce) {
  const PoolUsage before = PoolUsageOfAll();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int round = 0; round < 1000; ++round) {
        ExFreePool(ExAllocatePoolWithTag(NonPagedPool, 16, kTag));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(PoolUsageOfAll().Blocks, before.Blocks);
}

TEST(HostPoolDeathTest, StopsTheProcessAtAFreeOfWhatIsNoBlock) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  int local = 0;
  EXPECT_DEATH(ExFreePool(&local), "ExFreePool: .* is not a block of the pool");
  void* const memory = ExAllocatePoolWithTag(NonPagedPool, 8, kTag);
  ExFreePool(memory);
  EXPECT_DEATH(ExFreePool(memory), "is not a block of the pool");
}

}  // namespace
}  // namespace lidcam::host
