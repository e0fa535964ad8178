// Paged memory where pages may be absent. Accesses are seen in a simulation only, and not under a sanitizer.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/driver/support/sanitizers.h"
#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::host {
namespace {

using testing::MatchesRegex;

constexpr ULONG kPagedTag = 0x65676150;  // "Page"

volatile UCHAR* AllocatePaged(SIZE_T size = 24) {
  return static_cast<volatile UCHAR*>(ExAllocatePoolWithTag(PagedPool, size, kPagedTag));
}

void FreePaged(volatile UCHAR* memory) {
  ExFreePool(const_cast<UCHAR*>(memory));
}

TEST(PagedPoolUse, AtDispatchLevelIsAViolation) {
  if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer owns the memory";
  EXPECT_THAT(ViolationOf([] {
                volatile UCHAR* const memory = AllocatePaged();
                memory[3] = 1;
                KIRQL before = 0;
                KeRaiseIrql(DISPATCH_LEVEL, &before);
                memory[7] = 1;
                KeLowerIrql(before);
              }),
              MatchesRegex("KeLowerIrql: ahead of it memory 0x.* .24 bytes, tag 'Page'. was used "
                           "at byte 7 at dispatch level, where it may be paged out"));
}

TEST(PagedPoolUse, UnderASpinLockIsAViolation) {
  if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer owns the memory";
  EXPECT_THAT(ViolationOf([] {
                const volatile UCHAR* const memory = AllocatePaged(5000);
                KSPIN_LOCK lock{};
                KeInitializeSpinLock(&lock);
                KIRQL before = 0;
                KeAcquireSpinLock(&lock, &before);
                static_cast<void>(memory[4711]);
                KeReleaseSpinLock(&lock, before);
              }),
              MatchesRegex("KeReleaseSpinLock: .* was used at byte 4711 at dispatch level.*"));
}

TEST(PagedPoolUse, BelowDispatchLevelIsNone) {
  EXPECT_EQ(ViolationOf([] {
              volatile UCHAR* const memory = AllocatePaged();
              KIRQL before = 0;
              KeRaiseIrql(DISPATCH_LEVEL, &before);
              KeLowerIrql(APC_LEVEL);
              memory[7] = 1;
              KeLowerIrql(before);
              memory[8] = memory[7];
              FreePaged(memory);
            }),
            "");
}

// Threads at both levels take turns.
TEST(PagedPoolUse, ByAThreadBelowDispatchLevelIsNoneWhileAnotherOneIsThere) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    EXPECT_EQ(ViolationOf(
                  [] {
                    volatile UCHAR* const memory = AllocatePaged();
                    TestThread raised([] {
                      KIRQL before = 0;
                      KeRaiseIrql(DISPATCH_LEVEL, &before);
                      for (int turn = 0; turn < 10; ++turn) YieldProcessor();
                      KeLowerIrql(before);
                    });
                    for (int turn = 0; turn < 10; ++turn) {
                      memory[turn] = 1;
                      KeGetCurrentIrql();
                    }
                    raised.Join();
                    FreePaged(memory);
                  },
                  {.Seed = seed}),
              "");
  }
}

TEST(PagedPoolUse, ForAnObjectOfTheKernelIsAViolation) {
  EXPECT_THAT(ViolationOf([] {
                auto* const event =
                    static_cast<PKEVENT>(ExAllocatePoolWithTag(PagedPool, sizeof(KEVENT), 1));
                KeInitializeEvent(event, NotificationEvent, FALSE);
              }),
              MatchesRegex("KeInitializeEvent: event 0x.* lies in paged memory 0x.*"));
}

TEST(PagedPoolUse, ByACallAtDispatchLevelIsAViolation) {
  EXPECT_THAT(ViolationOf([] {
                KSPIN_LOCK lock{};
                KeInitializeSpinLock(&lock);
                auto* const list =
                    static_cast<PLIST_ENTRY>(ExAllocatePoolWithTag(PagedPool, 24, kPagedTag));
                InitializeListHead(list);
                KIRQL before = 0;
                KeRaiseIrql(DISPATCH_LEVEL, &before);
                KeSetEvent(reinterpret_cast<PKEVENT>(list), IO_NO_INCREMENT, FALSE);
              }),
              MatchesRegex("KeSetEvent: called at dispatch level for an object in paged memory 0x"
                           ".* .24 bytes, tag 'Page'."));
}

}  // namespace
}  // namespace lidcam::host
