// Property requests as they come from a client: from the filter's tables through the device's slots to
// the camera, and back into the request.

#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "tests/driver/avstream/properties/camera_properties_requests.h"
#include "tests/driver/avstream/support/surface_world.h"

namespace lidcam::test {
namespace {

constexpr auto kUnsuccessful = static_cast<NTSTATUS>(0xC0000001);

/// A request as the streaming class hands it on.
class Request {
 public:
  Request(const GUID& set, ULONG id, Block block, LONG width) : block_(std::move(block)) {
    request_.Property.Set = set;
    request_.Property.Id = id;
    request_.StreamIndex = 7;
    request_.RangeIndex = 9;
    request_.Dimensions = {width, 1};
    location_.Parameters.DeviceIoControl.OutputBufferLength = block_.Size();
    irp_.Tail.Overlay.CurrentStackLocation = &location_;
    irp_.IoStatus.Information = kUntouched;
  }
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;

  Reply Ask(PFNKSHANDLER handler) {
    void* const data = block_.Size() != 0 ? block_.Data() : nullptr;
    const NTSTATUS status = handler(&irp_, &request_.Property, data);
    return {status, irp_.IoStatus.Information, std::move(block_)};
  }

 private:
  KSPROPERTY_VIDEOCONTROL_FRAME_RATES_S request_{};
  IO_STACK_LOCATION location_{};
  IRP irp_{};
  Block block_;
};

/// Any item of the tables: all of them have the same two handlers.
const KSPROPERTY_ITEM& AnyItem() {
  return kFilterEntries.AutomationTable->PropertySets[0].PropertyItem[0];
}

PFNKSHANDLER GetHandler() {
  return AnyItem().GetPropertyHandler;
}

PFNKSHANDLER SetHandler() {
  return AnyItem().SetPropertyHandler;
}

/// A started camera behind an opened filter.
class StartedCamera {
 public:
  explicit StartedCamera(SurfaceWorld& world) : world_(world) {
    world.Device.Camera = &Camera.Context();
    world.Device.HardwareStarted = 1;
    world.Ks.RequestFilter = &filter_;
  }
  ~StartedCamera() { world_.Device.Camera = nullptr; }
  StartedCamera(const StartedCamera&) = delete;
  StartedCamera& operator=(const StartedCamera&) = delete;

  PropertyCamera Camera;

 private:
  SurfaceWorld& world_;
  KSFILTER filter_{};
};

Block ClientBlock(std::size_t bytes) {
  Block block(bytes);
  if (bytes >= 28) block.Put(24, 1);
  if (bytes >= 36) block.Put(32, 0xFF0B);
  if (bytes >= 40) block.Put(36, 2);
  if (bytes >= 132) block.Put(128, 0xFF0B);
  return block;
}

TEST(FilterProperties, EveryItemOfEverySetLeadsToTheSameTwoHandlers) {
  int sets = 0;
  for (ULONG s = 0; s < 4; ++s) {
    const KSPROPERTY_SET& set = kFilterEntries.AutomationTable->PropertySets[s];
    for (ULONG i = 0; i < set.PropertiesCount; ++i) {
      const KSPROPERTY_ITEM& item = set.PropertyItem[i];
      EXPECT_EQ(item.GetPropertyHandler, GetHandler());
      if (item.SetPropertyHandler == nullptr) continue;
      ++sets;
      EXPECT_EQ(item.SetPropertyHandler, SetHandler());
    }
  }
  EXPECT_EQ(sets, 8 + 1 + 1 + 13);
}

Reply DirectGet(PropertyCamera& camera, const GUID& set, ULONG id, Block block, LONG width) {
  return camera.Get(set, id, std::move(block), width);
}

Reply DirectSet(PropertyCamera& camera, const GUID& set, ULONG id, Block block, LONG) {
  return camera.Set(set, id, std::move(block));
}

using Ask = Reply (*)(PropertyCamera& camera, const GUID& set, ULONG id, Block block, LONG width);

// The translation's own results are tested with the translation: here a request gives the same,
// information and block and traffic included.
void ExpectSameAsDirect(SurfaceWorld& world, PFNKSHANDLER handler, Ask direct, const GUID& set,
                        ULONG id, std::size_t length, LONG width) {
  SCOPED_TRACE(::testing::Message() << "set " << set.Data1 << " id " << id << " length " << length);
  PropertyCamera reference;
  const Reply expected = direct(reference, set, id, ClientBlock(length), width);
  StartedCamera camera(world);
  Request request(set, id, ClientBlock(length), width);
  const Reply reply = request.Ask(handler);
  EXPECT_EQ(reply.Status, expected.Status);
  EXPECT_EQ(reply.Information, expected.Information);
  EXPECT_EQ(reply.Data, expected.Data);
  EXPECT_EQ(camera.Camera.Accesses(), reference.Accesses());
}

void ExpectSameForAllIds(SurfaceWorld& world, PFNKSHANDLER handler, Ask direct) {
  for (const GUID& set :
       {kClientVideoProcAmp, kClientCameraControl, kClientVideoControl, kClientPrivate}) {
    for (ULONG id = 0; id < 24; ++id) {
      for (std::size_t length = 0; length <= 133; ++length) {
        ExpectSameAsDirect(world, handler, direct, set, id, length, length % 2 == 0 ? 639 : 640);
      }
    }
    for (const ULONG id : {24U, 47U, 48U, 0x80000000U, 0xFFFFFFFFU}) {
      ExpectSameAsDirect(world, handler, direct, set, id, 133, 640);
    }
  }
}

TEST(FilterProperties, EveryGetOfEveryLengthAnswersAsTheTranslationDoes) {
  InSurface([](SurfaceWorld& world) { ExpectSameForAllIds(world, GetHandler(), DirectGet); });
}

TEST(FilterProperties, EverySetOfEveryLengthAnswersAsTheTranslationDoes) {
  InSurface([](SurfaceWorld& world) { ExpectSameForAllIds(world, SetHandler(), DirectSet); });
}

TEST(FilterProperties, BeforeTheHardwareHasStartedAGetOfBrightnessIsUnsuccessful) {
  InSurface([](SurfaceWorld& world) {
    StartedCamera camera(world);
    world.Device.HardwareStarted = 0;
    Request get(kClientVideoProcAmp, 0, ClientBlock(40), 0);
    const Reply reply = get.Ask(GetHandler());
    EXPECT_EQ(reply.Status, kUnsuccessful);
    EXPECT_EQ(reply.Data, ClientBlock(40)) << "no default";
    Request set(kClientVideoProcAmp, 0, ClientBlock(40), 0);
    EXPECT_EQ(set.Ask(SetHandler()).Status, kUnsuccessful);
    Request unknown(kForeignSet, 99, ClientBlock(0), 0);
    EXPECT_EQ(unknown.Ask(GetHandler()).Status, kUnsuccessful) << "for any property";
  });
}

TEST(FilterProperties, AStartedDeviceWithoutACameraIsUnsuccessful) {
  InSurface([](SurfaceWorld& world) {
    StartedCamera camera(world);
    world.Device.TakeCamera();
    Request get(kClientVideoProcAmp, 0, ClientBlock(40), 0);
    EXPECT_EQ(get.Ask(GetHandler()).Status, kUnsuccessful);
  });
}

TEST(FilterProperties, ARequestOfNoFilterOrNoDeviceIsUnsuccessful) {
  InSurface([](SurfaceWorld& world) {
    StartedCamera camera(world);
    PKSFILTER const filter = world.Ks.RequestFilter;
    for (const bool hasFilter : {false, true}) {
      world.Ks.RequestFilter = hasFilter ? filter : nullptr;
      world.Ks.HasDevice = false;
      for (const PFNKSHANDLER handler : {GetHandler(), SetHandler()}) {
        Request request(kClientVideoProcAmp, 0, ClientBlock(40), 0);
        EXPECT_EQ(request.Ask(handler).Status, kUnsuccessful);
      }
    }
    world.Ks.HasDevice = true;
    world.Ks.RequestFilter = nullptr;
    Request request(kClientVideoProcAmp, 0, ClientBlock(40), 0);
    EXPECT_EQ(request.Ask(GetHandler()).Status, kUnsuccessful);
  });
}

TEST(FilterProperties, ADeviceWithoutAnObjectIsUnsuccessful) {
  InSurface([](SurfaceWorld& world) {
    StartedCamera camera(world);
    world.Ks.Device.Context = nullptr;
    Request request(kClientVideoProcAmp, 0, ClientBlock(40), 0);
    EXPECT_EQ(request.Ask(GetHandler()).Status, kUnsuccessful);
    world.Ks.Device.Context = &world.Device;
  });
}

// The camera's record stays for as long as a request works on it: a removal waits, and later
// requests are refused.
TEST(FilterProperties, ARemovalWaitsForTheRequestUnderWayAndRefusesTheNext) {
  InSurface([](SurfaceWorld& world) {
    StartedCamera camera(world);
    bool isTaken = false;
    std::unique_ptr<host::TestThread> remover;
    int requests = 0;
    camera.Camera.OnRequest = [&](const WirePacket&) {
      if (++requests != 1) return;
      remover = std::make_unique<host::TestThread>([&] {
        world.Device.HardwareStarted = 0;
        world.Device.TakeCamera();
        isTaken = true;
      });
      host::Sleep(20 * host::kMillisecond);
      EXPECT_FALSE(isTaken);
      Request second(kClientVideoProcAmp, 0, ClientBlock(40), 0);
      EXPECT_EQ(second.Ask(GetHandler()).Status, kUnsuccessful);
    };
    Request first(kClientPrivate, 16, ClientBlock(132), 0);
    EXPECT_EQ(first.Ask(GetHandler()).Status, kSuccess);
    ASSERT_GT(requests, 0);
    remover->Join();
    EXPECT_TRUE(isTaken);
  });
}

}  // namespace
}  // namespace lidcam::test
