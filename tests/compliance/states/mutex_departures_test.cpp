// The streaming class's mutexes: the driver breaks the manual's rules in known places, and nowhere
// else.

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "platform/host/client/stream.h"
#include "platform/host/nt/io/plug_and_play.h"
#include "platform/host/nt/system/wdm_version.h"
#include "testbed/mutex_departures.h"
#include "tests/compliance/support/compliance_world.h"

namespace lidcam::compliance {
namespace {

using client::Camera;
using client::Stream;
using host::ClassCall;
using host::ClassRule;
using testbed::SeenDeparture;

void LiveThroughEverything(Host& host) {
  const PDEVICE_OBJECT device = host.Installed().TopDevice();
  const Camera camera = host.Open();
  (void)camera.GetLevel(PROPSETID_VIDCAP_VIDEOPROCAMP, KSPROPERTY_VIDEOPROCAMP_BRIGHTNESS);
  {
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.UseClock();
    stream.Run();
    EXPECT_EQ(stream.Next(kFrameWait).Status, STATUS_SUCCESS);
    stream.Pause();
    stream.Run();
    EXPECT_EQ(host.Installed().PowerDown(), STATUS_SUCCESS);
    EXPECT_EQ(host.Installed().PowerUp(), STATUS_SUCCESS);
    stream.Stop();
    EXPECT_EQ(stream.SetFormat(camera.FormatOf(320, 240)), STATUS_SUCCESS);
    stream.Run();
  }  // closed while it runs
  EXPECT_EQ(host::QueryRemoveDevice(device), STATUS_SUCCESS);
  EXPECT_EQ(host::QueryStopDevice(device), STATUS_SUCCESS);
  EXPECT_EQ(host::StopDevice(device), STATUS_SUCCESS);
  EXPECT_EQ(host.Installed().Start(), STATUS_SUCCESS);
}

std::vector<SeenDeparture> SeenOnPlatform(std::uint16_t version) {
  std::vector<SeenDeparture> seen;
  host::SetWdmVersion(version);
  RunOn(CameraKind::Simulated, [&seen](Host& host) {
    LiveThroughEverything(host);
    seen = testbed::DeparturesSeen(host.Installed().TopDevice());
  });
  host::SetWdmVersion(0x0130);
  return seen;
}

bool Has(const std::vector<SeenDeparture>& seen, ClassRule rule, ClassCall call) {
  return std::ranges::find(seen, SeenDeparture{rule, call}) != seen.end();
}

// Typed again: an addition to the list must be added here, too.
TEST(MutexDepartures, OfTheDriverAreTheseSix) {
  const std::vector<SeenDeparture> expected{
      {ClassRule::DeviceMutexOnce, ClassCall::Start},
      {ClassRule::DeviceMutexOnce, ClassCall::PostStart},
      {ClassRule::DeviceMutexOnce, ClassCall::SetPower},
      {ClassRule::ControlMutexOnce, ClassCall::FilterCreate},
      {ClassRule::DeviceBeforeControl, ClassCall::PinClose},
      {ClassRule::DeviceBeforeControl, ClassCall::PinRequest},
  };
  std::vector<SeenDeparture> seen = SeenOnPlatform(0x0130);
  EXPECT_FALSE(Has(seen, ClassRule::DeviceMutexOnce, ClassCall::PostStart));
  const std::vector<SeenDeparture> seenOnOld = SeenOnPlatform(0x0105);
  EXPECT_TRUE(Has(seenOnOld, ClassRule::DeviceMutexOnce, ClassCall::PostStart));
  for (const SeenDeparture& departure : seenOnOld) {
    if (!Has(seen, departure.Rule, departure.Call)) seen.push_back(departure);
  }
  EXPECT_EQ(seen.size(), expected.size());
  for (const SeenDeparture& departure : expected) {
    EXPECT_TRUE(Has(seen, departure.Rule, departure.Call))
        << static_cast<int>(departure.Rule) << " " << static_cast<int>(departure.Call);
    EXPECT_TRUE(testbed::IsRequired(departure));
  }
  EXPECT_EQ(testbed::RequiredDepartures().size(), expected.size());
}

}  // namespace
}  // namespace lidcam::compliance
