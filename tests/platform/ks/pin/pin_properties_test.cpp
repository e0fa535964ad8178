// Properties of a pin that the class itself answers: state, priority, format, framing, master
// clock.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/platform/ks/pin/pin_support.h"

namespace lidcam::host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr ULONG kGet = KSPROPERTY_TYPE_GET;
constexpr ULONG kSet = KSPROPERTY_TYPE_SET;

NTSTATUS OfConnection(PinWorld& world, PinRequest& request, ULONG id, ULONG flags, ULONG length) {
  return world.Property(request, world.PinFile, KSPROPSETID_Connection, id, flags, length);
}

TEST(PinProperties, StateIsTheLastOneReached) {
  WithPin([](PinWorld& world) {
    world.SetState(KSSTATE_PAUSE);
    PinRequest request;
    EXPECT_EQ(OfConnection(world, request, KSPROPERTY_CONNECTION_STATE, kGet, 4), STATUS_SUCCESS);
    EXPECT_EQ(request.Information(), 4U);
    EXPECT_EQ(ValueOf<ULONG>(request), 2U);
  });
}

TEST(PinProperties, PriorityIsThatOfTheConnection) {
  WithPin([](PinWorld& world) {
    PinRequest request;
    EXPECT_EQ(OfConnection(world, request, KSPROPERTY_CONNECTION_PRIORITY, kGet, 8),
              STATUS_SUCCESS);
    EXPECT_EQ(ValueOf<KSPRIORITY>(request).PriorityClass, 3U);
    EXPECT_EQ(ValueOf<KSPRIORITY>(request).PrioritySubClass, 4U);
    PinRequest other;
    EXPECT_EQ(OfConnection(world, other, KSPROPERTY_CONNECTION_PRIORITY, kSet, 8),
              STATUS_INVALID_DEVICE_REQUEST);
  });
}

TEST(PinProperties, FormatTellsItsSizeFirst) {
  for (const Room room : {Room{0, STATUS_BUFFER_OVERFLOW, 64},
                          {63, STATUS_BUFFER_TOO_SMALL, 0},
                          {64, STATUS_SUCCESS, 64},
                          {100, STATUS_SUCCESS, 64}}) {
    WithPin([room](PinWorld& world) {
      PinRequest request;
      EXPECT_EQ(OfConnection(world, request, KSPROPERTY_CONNECTION_DATAFORMAT, kGet, room.Length),
                room.Status);
      EXPECT_EQ(request.Information(), room.Information);
      if (room.Status != STATUS_SUCCESS) return;
      EXPECT_EQ(std::memcmp(request.Output.data(), &world.Format, 64), 0);
    });
  }
}

TEST(PinProperties, FramingIsTheWholeOfThePinsDescriptor) {
  for (const Room room : {Room{0, STATUS_BUFFER_OVERFLOW, 112},
                          {111, STATUS_BUFFER_TOO_SMALL, 0},
                          {112, STATUS_SUCCESS, 112}}) {
    WithPin([room](PinWorld& world) {
      PinRequest request;
      EXPECT_EQ(OfConnection(world, request, KSPROPERTY_CONNECTION_ALLOCATORFRAMING_EX, kGet,
                             room.Length),
                room.Status);
      EXPECT_EQ(request.Information(), room.Information);
      if (room.Status != STATUS_SUCCESS) return;
      EXPECT_EQ(std::memcmp(request.Output.data(), &world.Framing, 112), 0);
    });
  }
}

NTSTATUS SetFormat(PinWorld& world, const KSDATAFORMAT& format, ULONG length) {
  PinRequest request;
  std::memcpy(request.Output.data(), &format, sizeof(format));
  return OfConnection(world, request, KSPROPERTY_CONNECTION_DATAFORMAT, kSet, length);
}

TEST(PinProperties, NewFormatIsInPlaceWhenTheDriverIsAskedWithTheOldOne) {
  WithPin([](PinWorld& world) {
    const KSDATAFORMAT* const old = world.Pin().ConnectionFormat;
    KSDATAFORMAT format = FormatOf(kSubFormat, 80);
    format.SampleSize = 5;
    world.Driver.Formats.clear();
    world.Driver.OnFormat = [](PKSPIN pin, const KSDATARANGE*) {
      EXPECT_EQ(pin->ConnectionFormat->SampleSize, 5U);
      return STATUS_SUCCESS;
    };
    EXPECT_EQ(SetFormat(world, format, 80), STATUS_SUCCESS);
    EXPECT_THAT(world.Driver.Formats, ElementsAre(Pair(&world.Ranges[0], old)));
    EXPECT_EQ(world.Pin().ConnectionFormat->FormatSize, 80U);
  });
}

TEST(PinProperties, RefusedFormatLeavesTheOldOne) {
  WithPin([](PinWorld& world) {
    const KSDATAFORMAT* const old = world.Pin().ConnectionFormat;
    world.Driver.OnFormat = [](PKSPIN, const KSDATARANGE*) { return STATUS_INVALID_DEVICE_STATE; };
    EXPECT_EQ(SetFormat(world, world.Format, 64), STATUS_INVALID_DEVICE_STATE);
    EXPECT_EQ(world.Pin().ConnectionFormat, old);
    KSDATAFORMAT other = world.Format;
    other.MajorFormat.Data1 = 1;
    EXPECT_EQ(SetFormat(world, other, 64), STATUS_NO_MATCH);
    EXPECT_EQ(world.Pin().ConnectionFormat, old);
  });
}

TEST(PinProperties, FormatThatIsNotWholeIsRefused) {
  WithPin([](PinWorld& world) {
    world.Driver.Formats.clear();
    EXPECT_EQ(SetFormat(world, world.Format, 0), STATUS_INVALID_BUFFER_SIZE);
    EXPECT_EQ(SetFormat(world, world.Format, 63), STATUS_INVALID_BUFFER_SIZE);
    EXPECT_EQ(SetFormat(world, FormatOf(kSubFormat, 65), 64), STATUS_INVALID_BUFFER_SIZE);
    EXPECT_EQ(SetFormat(world, FormatOf(kSubFormat, 63), 64), STATUS_INVALID_BUFFER_SIZE);
    EXPECT_THAT(world.Driver.Formats, IsEmpty());
  });
}

TEST(PinProperties, WithoutAMasterClockThereIsNoReferenceClock) {
  WithPin([](PinWorld& world) {
    PIKSREFERENCECLOCK clock = nullptr;
    EXPECT_EQ(KsPinGetReferenceClockInterface(&world.Pin(), &clock), STATUS_UNSUCCESSFUL);
    PinRequest request;
    EXPECT_EQ(world.Property(request, world.PinFile, KSPROPSETID_Stream,
                             KSPROPERTY_STREAM_MASTERCLOCK, kGet, sizeof(HANDLE)),
              STATUS_SUCCESS);
    EXPECT_EQ(ValueOf<HANDLE>(request), nullptr);
  });
}

NTSTATUS SetMasterClock(PinWorld& world, HANDLE handle) {
  PinRequest request;
  std::memcpy(request.Output.data(), &handle, sizeof(handle));
  return world.Property(request, world.PinFile, KSPROPSETID_Stream, KSPROPERTY_STREAM_MASTERCLOCK,
                        kSet, sizeof(handle));
}

TEST(PinProperties, MasterClockIsAssignedAtAStopOnly) {
  WithPin([](PinWorld& world) {
    EXPECT_EQ(SetMasterClock(world, nullptr), STATUS_SUCCESS);
    EXPECT_EQ(SetMasterClock(world, reinterpret_cast<HANDLE>(0x9996)), STATUS_INVALID_HANDLE);
    world.SetState(KSSTATE_ACQUIRE);
    EXPECT_EQ(SetMasterClock(world, nullptr), STATUS_INVALID_DEVICE_STATE);
  });
}

TEST(PinProperties, UnknownIdsAndSetsAreToldApart) {
  WithPin([](PinWorld& world) {
    PinRequest first;
    EXPECT_EQ(OfConnection(world, first, KSPROPERTY_CONNECTION_STARTAT, kGet, 8), STATUS_NOT_FOUND);
    PinRequest second;
    EXPECT_EQ(world.Property(second, world.PinFile, KSPROPSETID_Clock, 0, kGet, 8),
              STATUS_PROPSET_NOT_FOUND);
  });
}

}  // namespace
}  // namespace lidcam::host
