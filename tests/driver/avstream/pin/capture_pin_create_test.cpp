#include "platform/host/nt/memory/pool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include "tests/driver/avstream/support/surface_world.h"
#include "tests/driver/support/statuses.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;

constexpr auto kInvalidState = static_cast<NTSTATUS>(0xC0000184);
constexpr auto kNotSupported = static_cast<NTSTATUS>(0xC00000BB);

const KS_VIDEOINFOHEADER& VideoOf(const CapturePin& pin) {
  return *static_cast<PKS_VIDEOINFOHEADER>(pin.VideoInfo);
}

TEST(PinCreate, ANewPinHasItsFieldsAndItsOwnFraming) {
  InSurface([](SurfaceWorld& world) {
    CameraContext camera{};
    world.Device.Camera = &camera;
    WorldPin pin(world);
    EXPECT_EQ(pin.Create(), STATUS_SUCCESS);
    const CapturePin& object = pin.Object();
    ExpectOneObject(sizeof(CapturePin));
    EXPECT_EQ(object.Pin, &pin.Pin);
    EXPECT_EQ(object.Device, &world.Device);
    EXPECT_EQ(object.Camera, &camera);
    EXPECT_EQ(object.Clock, nullptr);
    EXPECT_EQ(object.HasClock, 0);
    EXPECT_EQ(object.Acquired, 0);
    EXPECT_EQ(static_cast<KSSTATE>(object.StreamState), KSSTATE_STOP);
    EXPECT_EQ(object.PublishedFrameSize, 0U);
    EXPECT_EQ(object.ProcessingCount, 0);
    EXPECT_EQ(*object.FrameCounter, 0);
    EXPECT_EQ(object.LastPresentationTime, 0);
    EXPECT_EQ(object.ExpectedFrameTime, 0);
    EXPECT_EQ(object.LastClockTime, 0);
    EXPECT_EQ(object.FrameInfo.PictureNumber, 0);
    EXPECT_EQ(VideoOf(object).bmiHeader.biWidth, 640);
    EXPECT_EQ(pin.Pin.StreamHeaderSize, 128U) << "56 of the header and 72 of the frame's own";
    world.Device.Camera = nullptr;
  });
}

TEST(PinCreate, TheFramingAsksForFiveBuffersOfOnePictureEach) {
  InSurface([](SurfaceWorld& world) {
    WorldPin pin(world, MakeFormat(352, 288));
    ASSERT_EQ(pin.Create(), STATUS_SUCCESS);
    EXPECT_NE(pin.Pin.Descriptor, &pin.Descriptor);
    EXPECT_EQ(pin.Descriptor.AllocatorFraming, &kPinFraming) << "the original is unchanged";
    const KS_FRAMING_ITEM& item = pin.Pin.Descriptor->AllocatorFraming->FramingItem[0];
    EXPECT_EQ(item.Frames, 5U);
    EXPECT_EQ(item.PhysicalRange.MinFrameSize, 202752U);
    EXPECT_EQ(item.PhysicalRange.MaxFrameSize, 202752U);
    EXPECT_EQ(item.PhysicalRange.Stepping, 0U);
    EXPECT_EQ(item.FramingRange.Range.MinFrameSize, 202752U);
    EXPECT_EQ(item.FramingRange.Range.MaxFrameSize, 202752U);
    EXPECT_EQ(item.FramingRange.Range.Stepping, 0U);
    EXPECT_EQ(kPinFraming.FramingItem[0].Frames, 2U);
  });
}

TEST(PinCreate, TheOrderOfTheSteps) {
  InSurface([](SurfaceWorld& world) {
    WorldPin pin(world);
    world.Ks.Calls.clear();
    ASSERT_EQ(pin.Create(), STATUS_SUCCESS);
    const std::string descriptor = std::to_string(sizeof(KSPIN_DESCRIPTOR_EX));
    const std::string framing = std::to_string(sizeof(KSALLOCATOR_FRAMING_EX));
    EXPECT_THAT(world.Ks.Calls,
                ElementsAre("bag", "bag", "bag", "edit " + descriptor + " " + descriptor + " QrAV",
                            "edit " + framing + " " + framing + " QrAV"));
    EXPECT_EQ(pin.Bag.Count(), 5U);
    EXPECT_TRUE(pin.Bag.Has(&pin.Object()));
    EXPECT_TRUE(pin.Bag.Has(static_cast<PKS_VIDEOINFOHEADER>(pin.Object().VideoInfo)));
    EXPECT_TRUE(pin.Bag.Has(pin.Object().FrameCounter));
  });
}

// Object, header copy, frame counter, then the two copies that _KsEdit makes.
TEST(PinCreate, AnyAllocationThatFailsFailsTheCreationAndLeavesNothing) {
  for (std::uint32_t n = 1; n <= 5; ++n) {
    SCOPED_TRACE(n);
    InSurface([n](SurfaceWorld& world) {
      WorldPin pin(world);
      host::FailPoolAllocation(n);
      EXPECT_EQ(pin.Create(), kNoMemory);
      EXPECT_FALSE(host::IsPoolFailureToCome());
    });
  }
}

TEST(PinCreate, AnyBagThatRefusesFailsTheCreationAndLeavesNothing) {
  for (int n = 1; n <= 3; ++n) {
    SCOPED_TRACE(n);
    InSurface([n](SurfaceWorld& world) {
      WorldPin pin(world);
      world.Ks.FailBagAt = n;
      // A header that the bag refuses is a failed copy.
      EXPECT_EQ(pin.Create(), n == 2 ? kNoMemory : world.Ks.Failure);
      EXPECT_EQ(world.Ks.FailBagAt, 0);
    });
  }
}

TEST(PinCreate, AnEditThatFailsFailsTheCreation) {
  for (int n = 1; n <= 2; ++n) {
    InSurface([n](SurfaceWorld& world) {
      WorldPin pin(world);
      world.Ks.FailEditAt = n;
      EXPECT_EQ(pin.Create(), world.Ks.Failure) << n;
    });
  }
}

// A header shorter than the published one is copied as far as it goes; the rest of the copy is 0.
TEST(PinCreate, TheCopyOfAShortHeaderIsZeroBehindIt) {
  for (ULONG biSize = 4; biSize < 40; ++biSize) {
    SCOPED_TRACE(biSize);
    InSurface([biSize](SurfaceWorld& world) {
      ExactBlock format = MakeFormat(640, 480, biSize);
      std::memset(format.Data() + 64 + 48 + 4, 0xFF, 36);
      WorldPin pin(world, std::move(format));
      ASSERT_EQ(pin.Create(), STATUS_SUCCESS);
      const auto* const bitmap =
          reinterpret_cast<const std::uint8_t*>(&VideoOf(pin.Object()).bmiHeader);
      for (ULONG i = 4; i < 40; ++i) EXPECT_EQ(bitmap[i], i < biSize ? 0xFF : 0) << i;
      if (biSize <= 20) {
        EXPECT_EQ(pin.Pin.Descriptor->AllocatorFraming->FramingItem[0].PhysicalRange.MaxFrameSize,
                  0U);
      }
    });
  }
}

TEST(PinCreate, ALongHeaderIsCopiedWhole) {
  InSurface([](SurfaceWorld& world) {
    ExactBlock format = MakeFormat(640, 480, 1040, 1152);
    format.Put(1148, 0x13579BDF);
    WorldPin pin(world, std::move(format));
    ASSERT_EQ(pin.Create(), STATUS_SUCCESS);
    ULONG last = 0;
    std::memcpy(&last, reinterpret_cast<const std::uint8_t*>(&VideoOf(pin.Object())) + 1084, 4);
    EXPECT_EQ(last, 0x13579BDFU);
  });
}

// ---- The set-format entry.

NTSTATUS SetFormat(WorldPin& pin, PKSDATAFORMAT oldFormat, const KSDATARANGE* range) {
  return kPinEntries.Dispatch->SetDataFormat(&pin.Pin, oldFormat, nullptr, range, nullptr);
}

TEST(PinSetDataFormat, AFormatForANewPinIsOnlyChecked) {
  InSurface([](SurfaceWorld& world) {
    WorldPin pin(world);
    pin.Pin.DeviceState = KSSTATE_RUN;
    EXPECT_EQ(SetFormat(pin, nullptr, CameraFormatList[0][0]), STATUS_SUCCESS);
    EXPECT_EQ(SetFormat(pin, nullptr, CameraFormatList[0][1]), kNoMatch);
    EXPECT_EQ(pin.Bag.Count(), 0U);
  });
}

TEST(PinSetDataFormat, AChangeMakesANewCopyAndKeepsTheOldOneInTheBag) {
  InSurface([](SurfaceWorld& world) {
    WorldPin pin(world);
    ASSERT_EQ(pin.Create(), STATUS_SUCCESS);
    const PKS_VIDEOINFOHEADER before = pin.Object().VideoInfo;
    ExactBlock old = std::move(pin.Format);
    pin.Format = MakeFormat(320, 240);
    pin.Pin.ConnectionFormat = &pin.Format.As<KSDATAFORMAT>();
    EXPECT_EQ(SetFormat(pin, &old.As<KSDATAFORMAT>(), CameraFormatList[0][2]), STATUS_SUCCESS);
    EXPECT_EQ(VideoOf(pin.Object()).bmiHeader.biWidth, 320);
    EXPECT_TRUE(pin.Bag.Has(before));
    EXPECT_EQ(before->bmiHeader.biWidth, 640);
  });
}

TEST(PinSetDataFormat, AChangeOutsideOfStopIsRefusedBehindTheChecks) {
  InSurface([](SurfaceWorld& world) {
    WorldPin pin(world);
    ASSERT_EQ(pin.Create(), STATUS_SUCCESS);
    const PKS_VIDEOINFOHEADER before = pin.Object().VideoInfo;
    for (const KSSTATE state : {KSSTATE_ACQUIRE, KSSTATE_PAUSE, KSSTATE_RUN}) {
      pin.Pin.DeviceState = state;
      EXPECT_EQ(SetFormat(pin, pin.Pin.ConnectionFormat, CameraFormatList[0][0]), kInvalidState);
      EXPECT_EQ(SetFormat(pin, pin.Pin.ConnectionFormat, CameraFormatList[0][1]), kNoMatch);
      pin.Format.Put(64 + 48, 41);
      EXPECT_EQ(SetFormat(pin, pin.Pin.ConnectionFormat, CameraFormatList[0][0]), kInvalid);
      pin.Format.Put(64 + 48, 40);
    }
    EXPECT_EQ(static_cast<PKS_VIDEOINFOHEADER>(pin.Object().VideoInfo), before);
  });
}

TEST(PinSetDataFormat, ACopyThatFailsKeepsTheOldOne) {
  InSurface([](SurfaceWorld& world) {
    WorldPin pin(world);
    ASSERT_EQ(pin.Create(), STATUS_SUCCESS);
    const PKS_VIDEOINFOHEADER before = pin.Object().VideoInfo;
    host::FailPoolAllocation(1);
    EXPECT_EQ(SetFormat(pin, pin.Pin.ConnectionFormat, CameraFormatList[0][0]), kNoMemory);
    EXPECT_EQ(static_cast<PKS_VIDEOINFOHEADER>(pin.Object().VideoInfo), before);
    world.Ks.FailBagAt = 1;
    EXPECT_EQ(SetFormat(pin, pin.Pin.ConnectionFormat, CameraFormatList[0][0]), kNoMemory);
    EXPECT_EQ(static_cast<PKS_VIDEOINFOHEADER>(pin.Object().VideoInfo), before);
  });
}

// A stream that is restarted with another format does this: the connection's format is both old
// format and range, and as the pin runs, it is checked and refused.
TEST(PinSetDataFormat, ApplyingTheConnectionsOwnFormatIsRefusedWhileThePinRuns) {
  InSurface([](SurfaceWorld& world) {
    WorldPin pin(world, MakeFormat(480, 640));
    ASSERT_EQ(pin.Create(), STATUS_SUCCESS);
    pin.Pin.DeviceState = KSSTATE_RUN;
    EXPECT_EQ(kPinOperations.ApplyFormat(&pin.Pin), kInvalidState);
    pin.Pin.DeviceState = KSSTATE_STOP;
    pin.Format.Put(64 + 48 + 4, 777);
    EXPECT_EQ(kPinOperations.ApplyFormat(&pin.Pin), STATUS_SUCCESS);
    EXPECT_EQ(VideoOf(pin.Object()).bmiHeader.biWidth, 777);
  });
}

// ---- Property, event, and what nothing calls.

NTSTATUS AskDropped(const GUID& set, ULONG id, ExactBlock& data) {
  KSIDENTIFIER request{};
  request.Set = set;
  request.Id = id;
  const KSPROPERTY_ITEM& item = kPinEntries.AutomationTable->PropertySets[0].PropertyItem[0];
  return item.GetPropertyHandler(nullptr, &request, data.Data());
}

TEST(PinDroppedFrames, APinThatNeverRanGivesZerosAndTheFormatsImageSize) {
  InSurface([](SurfaceWorld& world) {
    WorldPin pin(world);
    ASSERT_EQ(pin.Create(), STATUS_SUCCESS);
    ExactBlock data(48, 0xEE);
    EXPECT_EQ(AskDropped(kClientDroppedFrames, 0, data), STATUS_SUCCESS);
    const auto& reply = data.As<KSPROPERTY_DROPPEDFRAMES_CURRENT_S>();
    EXPECT_EQ(reply.PictureNumber, 0);
    EXPECT_EQ(reply.DropCount, 0);
    EXPECT_EQ(reply.AverageFrameSize, 614400U);
    EXPECT_EQ(data.Bytes()[0], 0xEE) << "the property's head is the client's";
  });
}

TEST(PinDroppedFrames, TheCountsAreThoseOfTheFrameInfo) {
  InSurface([](SurfaceWorld& world) {
    WorldPin pin(world);
    ASSERT_EQ(pin.Create(), STATUS_SUCCESS);
    pin.Object().FrameInfo.PictureNumber = 0x100000002;
    pin.Object().FrameInfo.DropCount = 0x300000004;
    ExactBlock data(48);
    EXPECT_EQ(AskDropped(kClientDroppedFrames, 0, data), STATUS_SUCCESS);
    EXPECT_EQ(data.As<KSPROPERTY_DROPPEDFRAMES_CURRENT_S>().PictureNumber, 0x100000002);
    EXPECT_EQ(data.As<KSPROPERTY_DROPPEDFRAMES_CURRENT_S>().DropCount, 0x300000004);
  });
}

TEST(PinDroppedFrames, AnyOtherPropertyIsNotSupportedAndNoPinIsNone) {
  InSurface([](SurfaceWorld& world) {
    WorldPin pin(world);
    ASSERT_EQ(pin.Create(), STATUS_SUCCESS);
    ExactBlock data(48, 0xEE);
    const std::vector<std::uint8_t> fresh = data.Bytes();
    EXPECT_EQ(AskDropped(kClientDroppedFrames, 1, data), kNotSupported);
    GUID other = kClientDroppedFrames;
    other.Data4[7] ^= 1;
    EXPECT_EQ(AskDropped(other, 0, data), kNotSupported);
    world.Ks.RequestPin = nullptr;
    EXPECT_EQ(AskDropped(kClientDroppedFrames, 0, data), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(data.Bytes(), fresh);
  });
}

TEST(PinEvent, TheEventCanNeverBeEnabled) {
  InSurface([](SurfaceWorld& world) {
    WorldPin pin(world);
    ASSERT_EQ(pin.Create(), STATUS_SUCCESS);
    const KSEVENT_ITEM& item = kPinEntries.AutomationTable->EventSets[0].EventItem[0];
    EXPECT_EQ(item.AddHandler(nullptr, nullptr, nullptr), kNotSupported);
    world.Ks.RequestPin = nullptr;
    EXPECT_EQ(item.AddHandler(nullptr, nullptr, nullptr), STATUS_UNSUCCESSFUL);
  });
}

TEST(PinOperationsOfNoEntry, CloseSucceedsAndSetPropertyIsNotSupported) {
  InSurface([](SurfaceWorld& world) {
    WorldPin pin(world);
    ASSERT_EQ(pin.Create(), STATUS_SUCCESS);
    EXPECT_EQ(pin.Object().Close(&pin.Pin, nullptr), STATUS_SUCCESS);
    pin.Object().Reset(&pin.Pin);
    EXPECT_EQ(pin.Object().SetProperty(nullptr, nullptr, nullptr), kNotSupported);
    EXPECT_EQ(kPinEntries.Dispatch->Close, nullptr);
    EXPECT_EQ(kPinEntries.Dispatch->Reset, nullptr);
  });
}

TEST(PinIsProcessing, TellsTheLowEightBitsOfTheCount) {
  InSurface([](SurfaceWorld& world) {
    WorldPin pin(world);
    ASSERT_EQ(pin.Create(), STATUS_SUCCESS);
    for (const LONG count : {0, 1, 255, 256, 257, -1}) {
      pin.Object().ProcessingCount = count;
      EXPECT_EQ(kPinOperations.IsProcessing(&pin.Pin), static_cast<std::uint8_t>(count & 0xFF));
    }
  });
}

}  // namespace
}  // namespace lidcam::test
