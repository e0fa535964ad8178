#include "driver/core/base/reference_counted_memory.h"

#include <gtest/gtest.h>

#include <cstring>

#include "platform/host/nt/memory/pool.h"
#include "tests/driver/core/base/kernel_call_hooks.h"
#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::test {
namespace {

constexpr std::uint32_t kTag = 0x206D6457;

TEST(ReferenceCountedMemory, IsZeroFilledAndFreedWhenItsOnlyHolderLetsGo) {
  const auto before = host::PoolUsageOfTag(kTag).Blocks;
  ReferenceCountedMemory* const memory = AllocateReferenceCountedMemory(101);
  ASSERT_NE(memory, nullptr);
  EXPECT_EQ(memory->Size, 101U);
  const std::vector<std::uint8_t> zeros(101);
  EXPECT_EQ(std::memcmp(memory->Block, zeros.data(), zeros.size()), 0);
  LetGo(*memory);
  EXPECT_EQ(host::PoolUsageOfTag(kTag).Blocks, before);
}

TEST(ReferenceCountedMemory, LivesOnWithItsIrpUntilTheLastHolderLetsGo) {
  host::Simulate({}, [] {
    const auto before = host::PoolUsageOfTag(kTag).Blocks;
    ReferenceCountedMemory* const memory = AllocateReferenceCountedMemory(64);
    memory->Irp = IoAllocateIrp(1, FALSE);
    Hold(*memory);
    GiveUp(*memory);
    EXPECT_EQ(memory->GivenUp, 1);
    EXPECT_EQ(host::PoolUsageOfTag(kTag).Blocks, before + 1);
    LetGo(*memory);
    EXPECT_EQ(host::PoolUsageOfTag(kTag).Blocks, before);
  });
}

TEST(ReferenceCountedMemory, IsGivenUpBeforeItsLastHolderFreesIt) {
  ReferenceCountedMemory* const memory = AllocateReferenceCountedMemory(64);
  int givenUp = -1;
  KernelCallHooks hooks;
  hooks.OnFree = [&](PVOID block) {
    if (block == memory->Block) givenUp = memory->GivenUp;
  };
  GiveUp(*memory);
  EXPECT_EQ(givenUp, 1);
}

TEST(ReferenceCountedMemory, OfNoBytesOrOfNoRoomIsNull) {
  EXPECT_EQ(AllocateReferenceCountedMemory(0), nullptr);
  EXPECT_EQ(AllocateReferenceCountedMemory(SIZE_MAX - 8), nullptr);
  host::FailPoolAllocation(1);
  EXPECT_EQ(AllocateReferenceCountedMemory(8), nullptr);
}

}  // namespace
}  // namespace lidcam::test
