// Writes beyond the ends of pool memory, and memory that is never freed.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/host/nt/memory/pool.h"
#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::host {
namespace {

using testing::MatchesRegex;

constexpr ULONG kTag = 0x74736554;    // "Test"
constexpr ULONG kOther = 0x656E6F43;  // "Cone"

// An access as in a driver built without a sanitizer.
__attribute__((no_sanitize("address"), noinline)) void Overwrite(PVOID memory,
                                                                 std::ptrdiff_t offset) {
  static_cast<volatile UCHAR*>(memory)[offset] = 0;
}

std::string ViolationOfOverwrite(SIZE_T size, std::ptrdiff_t offset) {
  return ViolationOf([&] {
    const PVOID memory = ExAllocatePoolWithTag(NonPagedPool, size, kTag);
    Overwrite(memory, offset);
    ExFreePool(memory);
  });
}

TEST(PoolVerifier, FindsAnOverrunWhenTheMemoryIsFreed) {
  EXPECT_EQ(ViolationOfOverwrite(24, 23), "");
  EXPECT_THAT(ViolationOfOverwrite(24, 24),
              MatchesRegex("ExFreePool: memory 0x.* .24 bytes, tag 'Test'. was overrun: byte 0 "
                           "behind its end"));
  EXPECT_THAT(ViolationOfOverwrite(1, 16),
              MatchesRegex("ExFreePool: memory 0x.* .1 bytes, tag 'Test'. was overrun: byte 15 "
                           "behind its end"));
}

TEST(PoolVerifier, FindsAnUnderrunWhenTheMemoryIsFreed) {
  EXPECT_EQ(ViolationOfOverwrite(24, 0), "");
  EXPECT_THAT(ViolationOfOverwrite(24, -1),
              MatchesRegex(".*was overrun: byte 1 ahead of its start"));
  EXPECT_THAT(ViolationOfOverwrite(24, -16),
              MatchesRegex(".*was overrun: byte 16 ahead of its start"));
}

TEST(PoolVerifier, FindsARequestThatWasOverrun) {
  EXPECT_THAT(
      ViolationOf([] {
        const PIRP irp = IoAllocateIrp(1, FALSE);
        Overwrite(irp, IoSizeOfIrp(1));
        IoFreeIrp(irp);
      }),
      MatchesRegex("IoFreeIrp: memory 0x.* tag 'Irp '. was overrun: byte 0 behind its end"));
}

TEST(PoolVerifier, FindsWhatASimulationLeavesByTag) {
  PVOID blocks[3]{};
  EXPECT_EQ(ViolationOf([&] {
              blocks[0] = ExAllocatePoolWithTag(NonPagedPool, 8, kTag);
              blocks[1] = ExAllocatePoolWithTag(PagedPool, 40, kTag);
              blocks[2] = ExAllocatePoolWithTag(NonPagedPool, 5, kOther);
              ExFreePool(ExAllocatePoolWithTag(NonPagedPool, 8, kTag));
            }),
            "end of the simulation: never freed: 1 block(s) of 5 bytes with tag 'Cone', "
            "2 block(s) of 48 bytes with tag 'Test'");
  for (const PVOID block : blocks) ExFreePool(block);
}

TEST(PoolVerifier, TellsApartTheWorldsThatAllocated) {
  const PVOID memory = ExAllocatePoolWithTag(NonPagedPool, 8, kTag);
  EXPECT_EQ(ViolationOf([] {}), "");
  EXPECT_EQ(DescribePoolOfWorld(CurrentWorld()), "1 block(s) of 8 bytes with tag 'Test'");
  EXPECT_EQ(ViolationOf([&] { ExFreePool(memory); }), "");
  EXPECT_EQ(DescribePoolOfWorld(CurrentWorld()), "");
}

TEST(PoolVerifier, FindsADeviceThatWasNotDeleted) {
  DRIVER_OBJECT driver{};
  PDEVICE_OBJECT device = nullptr;
  EXPECT_EQ(ViolationOf([&] { IoCreateDevice(&driver, 24, nullptr, 0x22, 0, FALSE, &device); }),
            "end of the simulation: never freed: 1 block(s) of 24 bytes with tag 'Devi'");
  IoDeleteDevice(device);
}

}  // namespace
}  // namespace lidcam::host
