// Uses of freed pool memory. Under a sanitizer such a use ends the process by itself.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "platform/host/nt/memory/pool.h"
#include "tests/driver/support/sanitizers.h"
#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::host {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;

constexpr ULONG kTestTag = 0x74736554;  // "Test"

class FreedPool : public testing::Test {
 protected:
  void SetUp() override {
    if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer owns the memory";
  }
};

UCHAR* Allocate(SIZE_T size) {
  auto* const memory = static_cast<UCHAR*>(ExAllocatePoolWithTag(NonPagedPool, size, kTestTag));
  std::memset(memory, 0x11, size);
  return memory;
}

UCHAR Read(const UCHAR* memory, std::size_t offset) {
  return static_cast<const volatile UCHAR*>(memory)[offset];
}

TEST_F(FreedPool, ReadOfItIsFoundAtTheNextCall) {
  EXPECT_THAT(ViolationOf([] {
                const UCHAR* const memory = Allocate(5000);
                ExFreePool(const_cast<UCHAR*>(memory));
                static_cast<void>(Read(memory, 4711));
                KeGetCurrentIrql();
                ADD_FAILURE() << "the thread continued";
              }),
              MatchesRegex("KeGetCurrentIrql: ahead of it memory 0x.* .5000 bytes, tag 'Test'. was "
                           "used at byte 4711 after it had been freed"));
}

TEST_F(FreedPool, WriteToItIsFoundByAThreadThatSpins) {
  EXPECT_THAT(ViolationOf([] {
                auto* const memory = static_cast<volatile UCHAR*>(Allocate(300));
                ExFreePool(const_cast<UCHAR*>(memory));
                memory[0] = 1;
                YieldProcessor();
              }),
              AllOf(HasSubstr("YieldProcessor: "), HasSubstr("was used at byte 0 after")));
}

// The pages of an ended simulation serve the next one.
TEST_F(FreedPool, OfALaterSimulationIsFreshAndIsWatchedLikeThatOfTheFirst) {
  std::set<const UCHAR*> addresses;
  for (int run = 0; run < 5; ++run) {
    EXPECT_THAT(ViolationOf([&] {
                  auto* const memory =
                      static_cast<UCHAR*>(ExAllocatePoolWithTag(NonPagedPool, 5000, kTestTag));
                  EXPECT_EQ(Read(memory, 0), 0xCD);
                  EXPECT_EQ(Read(memory, 4999), 0xCD);
                  std::memset(memory, 0x11, 5000);
                  addresses.insert(memory);
                  ExFreePool(memory);
                  static_cast<void>(Read(memory, 17));
                  KeGetCurrentIrql();
                }),
                HasSubstr("was used at byte 17 after"));
  }
  EXPECT_EQ(addresses.size(), 1U);
}

std::size_t ResidentBytes() {
  std::size_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages >> pages;
  return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// The pages that it has taken over from the simulation before it, too.
TEST_F(FreedPool, OfASimulationThatLeavesABlockTakesNoMemoryAnyMore) {
  constexpr std::size_t kLarge = 16'000'000;
  std::vector<UCHAR*> left;
  const std::size_t before = ResidentBytes();
  for (int run = 0; run < 20; ++run) {
    Simulate({}, [] { ExFreePool(Allocate(kLarge)); });
    EXPECT_THAT(ViolationOf([&] { left.push_back(Allocate(300)); }), HasSubstr("never freed: "));
  }
  EXPECT_LT(ResidentBytes(), before + 5 * kLarge);
  for (UCHAR* const memory : left) ExFreePool(memory);
}

TEST_F(FreedPool, LastUseOfAThreadIsFoundAtItsEnd) {
  EXPECT_THAT(ViolationOf([] {
                const UCHAR* const memory = Allocate(300);
                ExFreePool(const_cast<UCHAR*>(memory));
                TestThread user([&] { static_cast<void>(Read(memory, 8)); });
              }),
              AllOf(HasSubstr("thread: "), HasSubstr("was used at byte 8 after")));
  EXPECT_THAT(ViolationOf([] {
                const UCHAR* const memory = Allocate(300);
                ExFreePool(const_cast<UCHAR*>(memory));
                static_cast<void>(Read(memory, 8));
              }),
              AllOf(HasSubstr("end of the simulation: "), HasSubstr("was used at byte 8 after")));
}

TEST_F(FreedPool, StillHoldsItsBytesForTheThreadThatUsesIt) {
  UCHAR read = 0;
  EXPECT_NE(ViolationOf([&] {
              const UCHAR* const memory = Allocate(300);
              ExFreePool(const_cast<UCHAR*>(memory));
              read = Read(memory, 8);
            }),
            "");
  EXPECT_EQ(read, 0x11);
}

// Blocks of one page become inaccessible together.
TEST_F(FreedPool, UseOfASmallBlockIsFoundOnceItsNeighboursAreFreedToo) {
  constexpr std::size_t kMoreThanAPage = 200;
  EXPECT_THAT(ViolationOf([] {
                std::vector<UCHAR*> blocks;
                while (blocks.size() < kMoreThanAPage) blocks.push_back(Allocate(24));
                for (UCHAR* const block : blocks) ExFreePool(block);
                static_cast<void>(Read(blocks[3], 23));
              }),
              HasSubstr("(24 bytes, tag 'Test') was used at byte 23 after it had been freed"));
}

TEST_F(FreedPool, AddressIsNeverGivenOutAgain) {
  Simulate({}, [] {
    std::set<const UCHAR*> addresses;
    for (std::size_t size = 1; size <= 2000; ++size) {
      UCHAR* const memory = Allocate(size);
      EXPECT_TRUE(addresses.insert(memory).second) << size;
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory) % 16, 0U);
      ExFreePool(memory);
    }
  });
}

// The pages of a freed one serve the next one of its size, at other addresses.
TEST_F(FreedPool, LargeBlockIsFreshHasANewAddressAndIsWatchedWhenFreed) {
  constexpr std::size_t kSize = 300'000;
  for (int run = 0; run < 3; ++run) {
    std::set<const UCHAR*> addresses;
    EXPECT_THAT(ViolationOf([&] {
                  UCHAR* const kept = Allocate(kSize);
                  for (int i = 0; i < 5; ++i) {
                    auto* const memory =
                        static_cast<UCHAR*>(ExAllocatePoolWithTag(NonPagedPool, kSize, kTestTag));
                    EXPECT_TRUE(addresses.insert(memory).second);
                    EXPECT_EQ(Read(memory, 0), 0xCD);
                    EXPECT_EQ(Read(memory, kSize - 1), 0xCD);
                    std::memset(memory, 0x22, kSize);
                    ExFreePool(memory);
                  }
                  EXPECT_EQ(Read(kept, kSize - 1), 0x11);
                  ExFreePool(kept);
                  static_cast<void>(Read(*addresses.begin(), 12'345));
                }),
                HasSubstr("was used at byte 12345 after it had been freed"));
    EXPECT_EQ(addresses.size(), 5U);
  }
}

// A hundred MiB, of which the world keeps the last 64.
TEST_F(FreedPool, LongFreedMemoryIsStillFoundAndReadsAsZeros) {
  constexpr std::size_t kSize = std::size_t{1} << 20;
  UCHAR read = 0x77;
  EXPECT_THAT(ViolationOf([&] {
                const UCHAR* const first = Allocate(kSize);
                UCHAR* const kept = Allocate(kSize);
                ExFreePool(const_cast<UCHAR*>(first));
                for (int i = 0; i < 100; ++i) ExFreePool(Allocate(kSize));
                EXPECT_EQ(Read(kept, kSize - 1), 0x11);
                ExFreePool(kept);
                read = Read(first, 4096);
              }),
              HasSubstr("was used at byte 4096 after"));
  EXPECT_EQ(read, 0);
}

TEST_F(FreedPool, IsOrdinaryMemoryForAWorldThatLivesLong) {
  EXPECT_EQ(ViolationOf(
                [] {
                  EXPECT_EQ(CurrentWorld().Arena(), nullptr);
                  ExFreePool(Allocate(300));
                },
                {.KeepsFreedPool = false}),
            "");
}

using FreedPoolDeathTest = FreedPool;

TEST_F(FreedPoolDeathTest, AccessThatIsNoUseOfItEndsTheProcessAsEver) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(Simulate({},
                       [] {
                         const auto* volatile nowhere = reinterpret_cast<const UCHAR*>(16);
                         static_cast<void>(Read(nowhere, 0));
                       }),
              testing::KilledBySignal(SIGSEGV), "");
}

}  // namespace
}  // namespace lidcam::host
