// When the transport saves and loads the settings, over a registry in memory.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "driver/core/record/camera_context.h"
#include "platform/host/nt/io/device_object.h"
#include "platform/host/nt/registry/registry.h"
#include "tests/driver/usb/support/bulk_device.h"
#include "tests/driver/usb/support/transport_world.h"

namespace lidcam::test {
namespace {

using testing::ElementsAre;

// A registry with the camera's settings; the first value of each load and the last of each save are
// a line of the log.
class LoggedRegistry {
 public:
  explicit LoggedRegistry(TransportWorld& world) {
    host::FindHostDevice(world.Stack.Device())->DriverKey = host::ImagingDriverKey(0);
    host::OpenRegistry({});
    host::SetRegistryCallHook([](const host::RegistryCall& call) {
      const std::string name = call.Name;
      if (name == "ZwQueryValueKey" && call.Value == u"Exposure") PlatformLog::Add("load settings");
      if (name == "ZwSetValueKey" && call.Value == u"LED") PlatformLog::Add("save settings");
      return STATUS_SUCCESS;
    });
  }
  LoggedRegistry(const LoggedRegistry&) = delete;
  LoggedRegistry& operator=(const LoggedRegistry&) = delete;
  ~LoggedRegistry() {
    host::SetRegistryCallHook(nullptr);
    host::CloseRegistry();
  }
};

// The log without the lines of mutex, handles, timers and memory.
std::vector<std::string> Steps(const TransportWorld& world) {
  std::vector<std::string> steps;
  for (const std::string& line : world.Log.Lines()) {
    const bool isStep = line.starts_with("urb ") || line.ends_with(" settings");
    if (isStep) steps.push_back(line);
  }
  return steps;
}

TEST(StreamSettings, AStartLoadsThemForTheBringUpAndOnceMoreAtItsEnd) {
  InWorld([](TransportWorld& world) {
    const LoggedRegistry registry(world);
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    EXPECT_THAT(Steps(world), ElementsAre("urb get descriptor type=1 length=18",
                                          "urb get descriptor type=2 length=521",
                                          "urb select configuration", "urb vendor requests",
                                          "load settings", "urb vendor requests", "load settings"));
  });
}

TEST(StreamSettings, AReleaseSavesThemBetweenTheStreamsEndAndSetting0) {
  InWorld([](TransportWorld& world) {
    const LoggedRegistry registry(world);
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    world.Record().Camera->Brightness = 77;
    world.Log.Clear();
    EXPECT_EQ(world.Device().ReleaseStream(), STATUS_SUCCESS);
    EXPECT_THAT(Steps(world),
                ElementsAre("urb vendor requests", "save settings", "urb select setting 0"));
  });
}

TEST(StreamSettings, AStopSavesThemBeforeTheCameraGoes) {
  InWorld([](TransportWorld& world) {
    const LoggedRegistry registry(world);
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    world.Record().Camera->Brightness = 77;
    world.Log.Clear();
    EXPECT_EQ(world.Device().StopHardware(), STATUS_SUCCESS);
    EXPECT_THAT(Steps(world), ElementsAre("save settings"));
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    EXPECT_EQ(world.Record().Camera->Brightness, 77);
  });
}

// No requests go to a camera that is gone, and its settings were saved with the stream before.
TEST(StreamSettings, AReleaseOfACameraThatIsGoneSavesNothing) {
  InWorld([](TransportWorld& world) {
    const LoggedRegistry registry(world);
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    world.Record().Connected = 0;
    world.Log.Clear();
    EXPECT_EQ(world.Device().ReleaseStream(), STATUS_SUCCESS);
    EXPECT_TRUE(Steps(world).empty());
  });
}

TEST(StreamSettings, APowerUpLoadsThemBeforeTheCameraIsProgrammed) {
  InWorld([](TransportWorld& world) {
    const LoggedRegistry registry(world);
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    ASSERT_EQ(world.Device().PowerDown(PowerDeviceD3, PowerDeviceD0), STATUS_SUCCESS);
    world.Record().Camera->Brightness = 77;
    world.Log.Clear();
    EXPECT_EQ(world.Device().PowerUp(PowerDeviceD0, PowerDeviceD3, nullptr), STATUS_SUCCESS);
    EXPECT_THAT(Steps(world), ElementsAre("load settings", "urb vendor requests"));
    EXPECT_EQ(world.Record().Camera->Brightness, 20);
  });
}

TEST(StreamSettings, APowerUpRestartsPendingTransfersOnceTheCameraIsProgrammed) {
  InWorld([](TransportWorld& world) {
    const LoggedRegistry registry(world);
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    ASSERT_EQ(world.Device().PowerDown(PowerDeviceD3, PowerDeviceD0), STATUS_SUCCESS);
    OwnTransfer transfer;
    std::uint8_t buffer[8];
    transfer.Device = &world.Record();
    transfer.Stream = &world.Stream();
    transfer.UserBuffer = buffer;
    transfer.Room = 8;
    transfer.ChunkSize = 8;
    InsertTailList(&world.Record().PipeTable[0].PendingList, &transfer.Link);
    world.Log.Clear();
    EXPECT_EQ(world.Device().PowerUp(PowerDeviceD0, PowerDeviceD3, nullptr), STATUS_SUCCESS);
    EXPECT_THAT(Steps(world), ElementsAre("load settings", "urb vendor requests",
                                          "urb function 9"));  // a bulk transfer
    transfer.Free();
  });
}

}  // namespace
}  // namespace lidcam::test
