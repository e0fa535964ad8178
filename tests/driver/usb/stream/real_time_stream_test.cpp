// Streams on the machine's own threads and clock, for ThreadSanitizer.

#include <gtest/gtest.h>

#include <atomic>

#include "driver/core/base/camera_memory.h"
#include "platform/host/nt/memory/pool.h"
#include "tests/driver/usb/support/transport_world.h"

namespace lidcam::test {
namespace {

constexpr std::uint32_t kTag = 0x206D6457;  // "Wdm "

// A bus that completes a transfer every half millisecond, with an error now and then.
class Bus {
 public:
  Bus(ScriptedStack& stack, unsigned errorEvery)
      : thread_([this, &stack, errorEvery] {
          for (unsigned n = 1; !isOver_; ++n) {
            const bool fails = errorEvery != 0 && n % errorEvery == 0;
            stack.CompleteIso(fails ? USBD_STATUS_XACT_ERROR : USBD_STATUS_SUCCESS);
            if (fails) host::Sleep(300 * host::kMillisecond);
            host::Sleep(host::kMillisecond / 2);
          }
        }) {}
  ~Bus() { isOver_ = true; }

 private:
  std::atomic<bool> isOver_ = false;
  const host::TestThread thread_;
};

void Stream(TransportWorld& world, unsigned rounds, unsigned errorEvery) {
  ASSERT_EQ(world.Start(), STATUS_SUCCESS);
  const Bus bus(world.Stack, errorEvery);
  for (unsigned round = 0; round < rounds; ++round) {
    ASSERT_EQ(world.Acquire(), STATUS_SUCCESS);
    EXPECT_EQ(world.Device().RunStream(), STATUS_SUCCESS);
    host::Sleep(100 * host::kMillisecond);
    EXPECT_EQ(world.Device().PauseStream(), STATUS_SUCCESS);
    EXPECT_EQ(world.Device().ResumeStream(), STATUS_SUCCESS);
    host::Sleep((errorEvery != 0 ? 700 : 50) * host::kMillisecond);
    EXPECT_EQ(world.Device().PauseStream(), STATUS_SUCCESS);
    EXPECT_EQ(world.Device().ReleaseStream(), STATUS_SUCCESS);
  }
}

TEST(RealTimeStream, StartsAndStopsWhileTransfersCircle) {
  const auto before = host::PoolUsageOfTag(kTag).Blocks;
  {
    TransportWorld world;
    Stream(world, 3, 0);
  }
  EXPECT_EQ(host::PoolUsageOfTag(kTag).Blocks, before);
}

TEST(RealTimeStream, RecoversWhileTransfersCircle) {
  const auto before = host::PoolUsageOfTag(kTag).Blocks;
  {
    TransportWorld world;
    Stream(world, 2, 40);
  }
  EXPECT_EQ(host::PoolUsageOfTag(kTag).Blocks, before);
}

}  // namespace
}  // namespace lidcam::test
