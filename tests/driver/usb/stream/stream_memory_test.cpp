// The pool's blocks of a running stream, each with its size: nothing grows unseen.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "camera_model/bus_adapter/simulated_bus.h"
#include "platform/host/nt/memory/pool.h"
#include "testbed/transport_testbed.h"

namespace lidcam::testbed {
namespace {

constexpr std::uint32_t kCameraTag = 0x206D6457;  // "Wdm "

using Blocks = std::vector<host::PoolBlocks>;

std::size_t BytesOf(const Blocks& all) {
  std::size_t bytes = 0;
  for (const host::PoolBlocks& blocks : all) bytes += blocks.Count * blocks.Size;
  return bytes;
}

/// What a stream has added to the pool of a started camera after its third frame.
Blocks BlocksOfStream(const StreamRequest& request) {
  Blocks added;
  bus::SimulatedBus bus({});
  RunInVirtualTime({.Seed = 1}, [&] {
    WithTransportTestbed(bus, {}, [&](TransportTestbed& camera) {
      ASSERT_EQ(camera.Start(), STATUS_SUCCESS);
      const Blocks before = host::PoolBlocksOfAll();
      ASSERT_EQ(camera.Acquire(request), STATUS_SUCCESS);
      ASSERT_EQ(camera.Run(), STATUS_SUCCESS);
      ASSERT_TRUE(camera.WaitForFrames(3, kSecond));
      added = host::PoolBlocksAdded(host::PoolBlocksOfAll(), before);
    });
  });
  return added;
}

// A transfer is 32 packets of 3072 bytes, an URB of 536 and a record of 48. Behind the two raw buffers of
// 921,666 bytes are 4 of alignment and a record.
TEST(StreamMemory, IsTwoRawBuffersAndSevenTransfersWithTheirRequests) {
  const Blocks added = BlocksOfStream({.Width = 640, .Height = 480});
  EXPECT_THAT(added,
              testing::UnorderedElementsAre(host::PoolBlocks{kCameraTag, 2 * 921666 + 4 + 48, 1},
                                            host::PoolBlocks{kCameraTag, 32 * 3072 + 536 + 48, 7},
                                            host::PoolBlocks{host::kIrpTag, 280, 7}));
  EXPECT_EQ(BytesOf(added) - std::size_t{2} * 921666, 694228U);
}

}  // namespace
}  // namespace lidcam::testbed
