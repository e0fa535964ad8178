// Every property with a value: its range, default and flags, and that it keeps a value that is set.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <tuple>

#include "platform/host/client/client_error.h"
#include "tests/compliance/support/compliance_world.h"
#include "tests/compliance/support/frame_rules.h"
#include "tests/compliance/support/property_table.h"

namespace lidcam::compliance {
namespace {

using client::Camera;
using client::Level;
using client::PropertySupport;
using client::Stream;

constexpr ULONG kManual = 2;

class Property : public ::testing::TestWithParam<std::tuple<CameraKind, PropertyRow>> {
 protected:
  void Run(const std::function<void(Host&, const PropertyRow&)>& scenario) {
    RunOn(std::get<0>(GetParam()), [&](Host& host) { scenario(host, std::get<1>(GetParam())); });
  }
};

INSTANTIATE_TEST_SUITE_P(, Property,
                         ::testing::Combine(::testing::Values(CameraKind::Simulated,
                                                              CameraKind::Recorded,
                                                              CameraKind::Disturbed),
                                            ::testing::ValuesIn(PropertyRows())),
                         [](const auto& test) {
                           return NameOf(std::get<0>(test.param)) + std::get<1>(test.param).Name;
                         });

TEST_P(Property, IsToldWithItsRangeItsDefaultAndBothDirections) {
  Run([](Host& host, const PropertyRow& row) {
    const PropertySupport support = host.Open().Properties().Support(*row.Set, row.Id);
    EXPECT_EQ(support.AccessFlags, 3U);
    ASSERT_TRUE(support.Values && support.Default);
    EXPECT_EQ(*support.Values, (PropertySupport::Range{row.Minimum, row.Maximum, 1}));
    EXPECT_EQ(*support.Default, row.Default);
  });
}

TEST_P(Property, OfANewCameraHasItsFirstValue) {
  Run([](Host& host, const PropertyRow& row) {
    const Level level = host.Open().GetLevel(*row.Set, row.Id);
    EXPECT_EQ(level, (Level{row.First, row.Flags, row.Capabilities}));
  });
}

TEST_P(Property, HoldsItsLeastItsMostAndItsMiddleAndIsRestored) {
  Run([](Host& host, const PropertyRow& row) {
    const Camera camera = host.Open();
    const LONG middle = row.Minimum + (row.Maximum - row.Minimum) / 2;
    for (const LONG value : {row.Minimum, row.Maximum, middle, row.First}) {
      SCOPED_TRACE(value);
      camera.SetLevel(*row.Set, row.Id, {value, kManual});
      EXPECT_EQ(camera.GetLevel(*row.Set, row.Id).Value, value);
    }
  });
}

// Ranges inform clients: the driver does not enforce them.
TEST_P(Property, HoldsAValueOutsideOfItsRangeAsItCame) {
  Run([](Host& host, const PropertyRow& row) {
    const Camera camera = host.Open();
    for (const LONG value : {row.Maximum + 1, row.Minimum - 1, row.First}) {
      SCOPED_TRACE(value);
      camera.SetLevel(*row.Set, row.Id, {value, kManual});
      EXPECT_EQ(camera.GetLevel(*row.Set, row.Id).Value, value);
    }
  });
}

TEST_P(Property, IsTheSameForEveryApplication) {
  Run([](Host& host, const PropertyRow& row) {
    const Camera first = host.Open();
    const Camera second = host.Open();
    first.SetLevel(*row.Set, row.Id, {row.Maximum, kManual});
    EXPECT_EQ(second.GetLevel(*row.Set, row.Id).Value, row.Maximum);
  });
}

TEST_P(Property, HoldsOverARemovalIfItIsASetting) {
  Run([](Host& host, const PropertyRow& row) {
    const LONG value = row.First == row.Maximum ? row.Minimum : row.Maximum;
    host.Open().SetLevel(*row.Set, row.Id, {value, kManual});
    host.Replug();
    EXPECT_EQ(host.Open().GetLevel(*row.Set, row.Id).Value, row.IsKept ? value : row.First);
  });
}

// A value that was saved neither by the end of a stream nor by a removal is overwritten by the
// load.
TEST_P(Property, IsForgottenByAPowerUpUnlessItIsSaved) {
  Run([](Host& host, const PropertyRow& row) {
    const LONG value = row.First == row.Maximum ? row.Minimum : row.Maximum;
    const Camera camera = host.Open();
    camera.SetLevel(*row.Set, row.Id, {value, kManual});
    EXPECT_EQ(host.Installed().PowerDown(), STATUS_SUCCESS);
    EXPECT_EQ(host.Installed().PowerUp(), STATUS_SUCCESS);
    EXPECT_EQ(camera.GetLevel(*row.Set, row.Id).Value, row.IsKept ? row.First : value);
  });
}

class Properties : public EveryCamera {};
LIDCAM_ON_EVERY_CAMERA(Properties);

TEST_P(Properties, AreSetAndReadInMidStream) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.UseClock();
    FrameRules rules(38400, 333333, true);
    stream.Run();
    for (const PropertyRow& row : PropertyRows()) {
      SCOPED_TRACE(row.Name);
      EXPECT_EQ(TakeFrames(stream, 1, rules), STATUS_SUCCESS);
      camera.SetLevel(*row.Set, row.Id, {row.Default, kManual});
      EXPECT_EQ(camera.GetLevel(*row.Set, row.Id).Value, row.Default);
    }
    EXPECT_EQ(TakeFrames(stream, 3, rules), STATUS_SUCCESS);
  });
}

TEST_P(Properties, AreSavedByAStreamsEndForThePowerUpToCome) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    {
      Stream stream(camera, camera.FormatOf(160, 120));
      stream.Run();
      camera.SetLevel(kVideoAmplifier, 0, {-33, kManual});
      EXPECT_EQ(TakeFrames(stream, 1), STATUS_SUCCESS);
      stream.Stop();
    }
    EXPECT_EQ(host.Installed().PowerDown(), STATUS_SUCCESS);
    EXPECT_EQ(host.Installed().PowerUp(), STATUS_SUCCESS);
    EXPECT_EQ(camera.GetLevel(kVideoAmplifier, 0).Value, -33);
  });
}

TEST_P(Properties, OfExposureAreAutomaticForExactlyThatFlagAndStaySo) {
  Run([](Host& host) {
    struct Row {
      ULONG Set;
      ULONG Told;
    };
    for (const auto& [set, told] : {Row{2, 2}, Row{1, 1}, Row{3, 2}, Row{0, 2}}) {
      SCOPED_TRACE(set);
      {
        const Camera camera = host.Open();
        camera.SetLevel(kCameraControl, 4, {50, set});
        EXPECT_EQ(camera.GetLevel(kCameraControl, 4), (Level{50, told, 3}));
      }
      host.Replug();
      EXPECT_EQ(host.Open().GetLevel(kCameraControl, 4), (Level{50, told, 3}));
    }
  });
}

TEST_P(Properties, OfWhiteBalanceTakeASetAndStayManual) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    const PropertySupport support = camera.Properties().Support(kVideoAmplifier, 7);
    ASSERT_TRUE(support.Values && support.Default);
    EXPECT_EQ(*support.Values, (PropertySupport::Range{0, 1, 1}));
    EXPECT_EQ(*support.Default, 1);
    camera.SetLevel(kVideoAmplifier, 7, {1, 1});
    EXPECT_EQ(camera.GetLevel(kVideoAmplifier, 7), (Level{0, 2, 1}));
  });
}

TEST_P(Properties, ThatTheCameraHasNotAreRefused) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    const auto get = [&](const GUID& set, ULONG id) {
      return StatusOf([&] { static_cast<void>(camera.GetLevel(set, id)); });
    };
    const auto set = [&](const GUID& guid, ULONG id) {
      return StatusOf([&] { camera.SetLevel(guid, id, {1, kManual}); });
    };
    for (const ULONG id : {2U, 9U, 99U}) EXPECT_EQ(get(kVideoAmplifier, id), STATUS_NOT_FOUND);
    for (const ULONG id : {0U, 1U, 2U, 3U, 5U, 6U}) {
      EXPECT_EQ(get(kCameraControl, id), STATUS_NOT_FOUND);
      EXPECT_EQ(set(kCameraControl, id), STATUS_NOT_FOUND);
    }
    EXPECT_EQ(get(kPrivate, 12), STATUS_NOT_FOUND);
    EXPECT_EQ(get(kPrivate, 23), STATUS_NOT_FOUND);
    EXPECT_EQ(get(kPrivate, 10), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(set(kPrivate, 10), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(set(kPrivate, 17), STATUS_NOT_SUPPORTED);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(camera.GetLevel(kPrivate, 17).Value, 0);
  });
}

TEST_P(Properties, OfTheStillTellWhetherTheCameraStreams) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    EXPECT_EQ(camera.GetLevel(kPrivate, 19).Value, 0);
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 1), STATUS_SUCCESS);
    EXPECT_EQ(camera.GetLevel(kPrivate, 19).Value, 1);
    stream.Stop();
    EXPECT_EQ(camera.GetLevel(kPrivate, 19).Value, 0);
    camera.SetLevel(kPrivate, 19, {1});
  });
}

/// The block of the private properties, as clients lay it out; a register to be read lies behind it.
struct PrivateBlock {
  KSPROPERTY Property;
  LONG Value;
  ULONG Unused;
  ULONG Register;
  ULONG Led;
  ULONG Rest[3];
};
static_assert(offsetof(PrivateBlock, Register) == 32);

NTSTATUS WriteRaw(const Camera& camera, ULONG address, LONG value) {
  return camera.Properties().SetBlock(
      kPrivate, 16,
      PrivateBlock{
          .Property = {}, .Value = value, .Unused = 0, .Register = address, .Led = 0, .Rest = {}});
}

NTSTATUS ReadRaw(const Camera& camera, ULONG address, LONG& value) {
  client::Block request(52);
  client::Block block(132);
  std::memcpy(block.Data() + 128, &address, sizeof(address));
  ULONG_PTR information = 0;
  const NTSTATUS status =
      camera.Properties().Ask(kPrivate, 16, KSPROPERTY_TYPE_GET, request, block, information);
  std::memcpy(&value, block.Data() + 24, sizeof(value));
  return status;
}

constexpr ULONG kSelect = 0xFFFF;
constexpr LONG kBridge = 1;
constexpr ULONG kIdleRegister = 0xFF68;  // of the bridge: without effect on the picture

TEST_P(Properties, OfARawRegisterWriteAndReadTheChipThatIsSelected) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    EXPECT_EQ(WriteRaw(camera, kSelect, kBridge), STATUS_SUCCESS);
    for (const LONG value : {0x3C, 0xA5}) {
      SCOPED_TRACE(value);
      EXPECT_EQ(WriteRaw(camera, kIdleRegister, value), STATUS_SUCCESS);
      LONG read = 0;
      EXPECT_EQ(ReadRaw(camera, kIdleRegister, read), STATUS_SUCCESS);
      EXPECT_EQ(read, value);
    }
  });
}

TEST(RawRegister, IsNotSupportedByAnUnpluggedCamera) {
  RunOn(CameraKind::Simulated, [](Host& host) {
    const Camera camera = host.Open();
    host.Installed().PullPlug();
    EXPECT_EQ(WriteRaw(camera, kIdleRegister, 0x3C), STATUS_NOT_SUPPORTED);
    LONG read = 0;
    EXPECT_EQ(ReadRaw(camera, kIdleRegister, read), STATUS_NOT_SUPPORTED);
  });
}

}  // namespace
}  // namespace lidcam::compliance
