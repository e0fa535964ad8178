// The camera's seven identities.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>

#include "camera_model/device/camera_identity.h"
#include "tests/compliance/support/compliance_world.h"
#include "tests/compliance/support/frame_rules.h"
#include "tests/compliance/support/property_table.h"

namespace lidcam::compliance {
namespace {

using client::Camera;
using client::Stream;

struct Identity {
  std::uint16_t Vendor;
  std::uint16_t Product;
};

constexpr Identity kIdentities[] = {{0x1AF0, 0x0511}, {0x1AF0, 0x6010}, {0x1AF0, 0x6011},
                                    {0x1B17, 0x6100}, {0x1B17, 0x6101}, {0x1B17, 0x6110},
                                    {0x1B17, 0x6111}};

class CameraOfIdentity : public ::testing::TestWithParam<Identity> {
 protected:
  static void Run(const Scenario& scenario) {
    camera_model::CameraOptions options;
    options.VendorId = GetParam().Vendor;
    options.ProductId = GetParam().Product;
    options.Sensor = camera_model::FindIdentity(options.VendorId, options.ProductId)->Sensors[0];
    RunOn(CameraKind::Simulated, scenario, {.Camera = options});
  }
};

std::string NameOfIdentity(const ::testing::TestParamInfo<Identity>& identity) {
  char name[16];
  std::snprintf(name, sizeof(name), "%04X_%04X", identity.param.Vendor, identity.param.Product);
  return name;
}

INSTANTIATE_TEST_SUITE_P(, CameraOfIdentity, ::testing::ValuesIn(kIdentities), NameOfIdentity);

// The sensor of this identity is assumed without a check, and its raw frame size unknown: no frame
// is ever complete.
bool KnowsItsFrames() {
  return CameraOfIdentity::GetParam().Product != 0x6100;
}

TEST_P(CameraOfIdentity, StreamsThreeSizesIfItsSensorIsKnown) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    ASSERT_EQ(camera.Ranges().size(), 5U);
    for (const auto& [width, height] : {std::pair{640, 480}, {352, 288}, {160, 120}}) {
      SCOPED_TRACE(width);
      Stream stream(camera, camera.FormatOf(width, height));
      stream.UseClock();
      FrameRules rules(static_cast<std::uint32_t>(width * height * 2), 333333, true);
      stream.Run();
      const int count = KnowsItsFrames() ? 3 : 0;
      for (int i = 0; i < count; ++i) {
        const client::NextFrame next = stream.Next(kFrameWait);
        ASSERT_EQ(next.Status, STATUS_SUCCESS);
        rules.Take(*next.Picture);
        ExpectSanePicture(next.Picture->Bytes(), width);
      }
      if (count == 0) {
        EXPECT_EQ(stream.Next(kFrameWait).Status, STATUS_TIMEOUT);
      }
    }
  });
}

TEST_P(CameraOfIdentity, HasTheSamePropertiesAndHoldsThem) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    for (const PropertyRow& row : PropertyRows()) {
      SCOPED_TRACE(row.Name);
      EXPECT_EQ(camera.GetLevel(*row.Set, row.Id).Value, row.First);
      for (const LONG value : {row.Maximum, row.Minimum}) {
        camera.SetLevel(*row.Set, row.Id, {value, 2});
        EXPECT_EQ(camera.GetLevel(*row.Set, row.Id).Value, value);
      }
    }
  });
}

TEST_P(CameraOfIdentity, SurvivesBeingPulledInMidStream) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 2), KnowsItsFrames() ? STATUS_SUCCESS : STATUS_TIMEOUT);
    EXPECT_EQ(host.Installed().SurpriseRemove(), STATUS_SUCCESS);
    EXPECT_EQ(DrainFrames(stream, kSecond), STATUS_CANCELLED);
  });
}

}  // namespace
}  // namespace lidcam::compliance
