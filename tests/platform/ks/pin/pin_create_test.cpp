// Opening a pin: the checks, the calls of the driver, and the state after a refusal.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/platform/ks/pin/pin_support.h"

namespace lidcam::host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

TEST(PinCreation, FillsThePinAndTellsTheDriverTheFirstRangeThatFits) {
  WithFilter([](PinWorld& world) {
    KSPIN seen{};
    world.Driver.OnCreate = [&seen](PKSPIN pin) {
      seen = *pin;
      return STATUS_SUCCESS;
    };
    ASSERT_EQ(world.Create(), STATUS_SUCCESS);
    EXPECT_EQ(seen.Descriptor->Dispatch, &kFakeDispatch);
    EXPECT_NE(seen.Bag, nullptr);
    EXPECT_EQ(seen.Id, 0U);
    EXPECT_EQ(seen.Communication, KSPIN_COMMUNICATION_SINK);
    EXPECT_EQ(seen.ConnectionPriority.PriorityClass, 3U);
    EXPECT_EQ(seen.ConnectionPriority.PrioritySubClass, 4U);
    EXPECT_EQ(seen.DataFlow, KSPIN_DATAFLOW_OUT);
    EXPECT_EQ(seen.DeviceState, KSSTATE_STOP);
    EXPECT_EQ(seen.ClientState, KSSTATE_STOP);
    EXPECT_EQ(seen.ResetState, KSRESET_END);
    EXPECT_EQ(std::memcmp(seen.ConnectionFormat, &world.Format, sizeof(KSDATAFORMAT)), 0);
    EXPECT_NE(seen.ConnectionFormat, &world.Format);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(seen.ConnectionFormat) % 8, 0U);
    EXPECT_THAT(world.Driver.Formats, ElementsAre(Pair(&world.Ranges[0], nullptr)));
    EXPECT_EQ(world.Pin().Range, &world.Ranges[0]);
    EXPECT_EQ(&FilterOfPin(world.Head()), &world.Filter);
    EXPECT_EQ(&HeadOf(static_cast<PKSPIN>(&world.Pin())), &world.Head());
    EXPECT_EQ(KsGetDevice(static_cast<PKSPIN>(&world.Pin())), world.Device.get());
  });
}

struct Refusal {
  const char* Name;
  void (*Break)(PinWorld& world);
  ULONG Bytes;
  NTSTATUS Status;
};

constexpr ULONG kBytes = 72 + 64;

constexpr Refusal kRefusals[] = {
    {"UnknownPin", [](PinWorld& world) { world.Connect.PinId = 1; }, kBytes,
     STATUS_INVALID_PARAMETER},
    {"OtherInterface", [](PinWorld& world) { world.Connect.Interface.Set.Data1 ^= 1; }, kBytes,
     STATUS_NO_MATCH},
    {"OtherInterfaceId", [](PinWorld& world) { world.Connect.Interface.Id = 1; }, kBytes,
     STATUS_NO_MATCH},
    {"OtherMedium", [](PinWorld& world) { world.Connect.Medium.Set.Data4[7] ^= 1; }, kBytes,
     STATUS_NO_MATCH},
    {"OtherMediumId", [](PinWorld& world) { world.Connect.Medium.Id = 1; }, kBytes,
     STATUS_NO_MATCH},
    {"AnotherPinToConnectTo", [](PinWorld& world) { world.Connect.PinToHandle = &world; }, kBytes,
     STATUS_CONNECTION_REFUSED},
    {"FormatSizeTooSmall", [](PinWorld& world) { world.Format.FormatSize = 63; }, kBytes,
     STATUS_INVALID_BUFFER_SIZE},
    {"FormatSizeBeyondTheRequest", [](PinWorld& world) { world.Format.FormatSize = 65; }, kBytes,
     STATUS_INVALID_BUFFER_SIZE},
    {"FormatCutOff", [](PinWorld&) {}, kBytes - 1, STATUS_INVALID_BUFFER_SIZE},
    {"NoFormat", [](PinWorld&) {}, 72, STATUS_INVALID_BUFFER_SIZE},
    {"ConnectCutOff", [](PinWorld&) {}, 71, STATUS_INVALID_BUFFER_SIZE},
    {"OtherMajorFormat", [](PinWorld& world) { world.Format.MajorFormat.Data1 = 0; }, kBytes,
     STATUS_NO_MATCH},
    {"OtherSpecifier", [](PinWorld& world) { world.Format.Specifier.Data1 = 0; }, kBytes,
     STATUS_NO_MATCH},
};

class PinRefusal : public testing::TestWithParam<Refusal> {};

TEST_P(PinRefusal, LeavesNothing) {
  WithFilter([](PinWorld& world) {
    GetParam().Break(world);
    EXPECT_EQ(world.Create(GetParam().Bytes), GetParam().Status);
    EXPECT_EQ(world.PinFile.FsContext, nullptr);
    EXPECT_THAT(world.Driver.Formats, IsEmpty());
    EXPECT_EQ(FindPinFactory(world.Filter, 0)->CurrentPins, 0U);
  });
}

INSTANTIATE_TEST_SUITE_P(Each, PinRefusal, testing::ValuesIn(kRefusals),
                         [](const auto& each) { return std::string(each.param.Name); });

TEST(PinCreation, OnePinMoreThanPossibleIsRefusedUntilTheFirstIsClosed) {
  WithPin([](PinWorld& world) {
    EXPECT_EQ(FindPinFactory(world.Filter, 0)->CurrentPins, 1U);
    PVOID const first = world.PinFile.FsContext;
    EXPECT_EQ(world.Create(), STATUS_CONNECTION_REFUSED);
    EXPECT_EQ(world.PinFile.FsContext, first);
    world.Close();
    EXPECT_EQ(world.PinFile.FsContext, nullptr);
    EXPECT_EQ(world.Create(), STATUS_SUCCESS);
  });
}

TEST(PinCreation, AsksRangeAfterRangeUntilTheDriverAgrees) {
  WithFilter([](PinWorld& world) {
    world.Driver.OnFormat = [&world](PKSPIN, const KSDATARANGE* range) {
      return range == &world.Ranges[1] ? STATUS_SUCCESS : STATUS_NO_MATCH;
    };
    ASSERT_EQ(world.Create(), STATUS_SUCCESS);
    EXPECT_THAT(world.Driver.Formats,
                ElementsAre(Pair(&world.Ranges[0], nullptr), Pair(&world.Ranges[1], nullptr)));
    EXPECT_EQ(world.Pin().Range, &world.Ranges[1]);
  });
}

TEST(PinCreation, TellsWhatTheDriverSaidOfTheLastRange) {
  WithFilter([](PinWorld& world) {
    world.Driver.OnFormat = [&world](PKSPIN, const KSDATARANGE* range) {
      return range == &world.Ranges[1] ? STATUS_INVALID_PARAMETER : STATUS_NO_MATCH;
    };
    EXPECT_EQ(world.Create(), STATUS_INVALID_PARAMETER);
  });
}

TEST(PinCreation, WildcardRangeTakesASubformatThatNoOtherHas) {
  WithFilter([](PinWorld& world) {
    world.Format.SubFormat.Data1 = 77;
    ASSERT_EQ(world.Create(), STATUS_SUCCESS);
    EXPECT_THAT(world.Driver.Formats, ElementsAre(Pair(&world.Ranges[1], nullptr)));
  });
}

TEST(PinCreation, DriversRefusalEmptiesTheBag) {
  WithFilter([](PinWorld& world) {
    static int freed;
    freed = 0;
    world.Driver.OnCreate = [](PKSPIN pin) {
      KsAddItemToObjectBag(pin->Bag, &freed, [](PVOID) NTAPI { ++freed; });
      return STATUS_SHARING_VIOLATION;
    };
    EXPECT_EQ(world.Create(), STATUS_SHARING_VIOLATION);
    EXPECT_EQ(freed, 1);
    EXPECT_EQ(world.PinFile.FsContext, nullptr);
  });
}

TEST(PinCreation, FailsCleanlyAtEveryAllocation) {
  for (std::uint32_t failing = 1; failing <= 3; ++failing) {
    WithFilter([failing](PinWorld& world) {
      world.FailingAllocation = failing;
      EXPECT_EQ(world.Create(), STATUS_INSUFFICIENT_RESOURCES);
      EXPECT_FALSE(IsPoolFailureToCome());
    });
  }
}

TEST(PinCreation, FailsCleanlyWithoutAWorkerThread) {
  for (const char* const call : {"PsCreateSystemThread", "ObReferenceObjectByHandle"}) {
    WithFilter([call](PinWorld& world) {
      FailKernelCall(call, 1, STATUS_NO_SUCH_DEVICE);
      EXPECT_EQ(world.Create(), STATUS_NO_SUCH_DEVICE);
    });
  }
}

TEST(PinClosing, StopsTheStreamTellsTheDriverAndEmptiesTheBag) {
  WithPin([](PinWorld& world) {
    static int freed;
    freed = 0;
    KsAddItemToObjectBag(world.Pin().Bag, &freed, [](PVOID) NTAPI { ++freed; });
    ASSERT_EQ(world.SetState(KSSTATE_PAUSE), STATUS_SUCCESS);
    world.Driver.Steps.clear();
    world.Close();
    EXPECT_THAT(world.Driver.Steps, ElementsAre(Pair(KSSTATE_ACQUIRE, KSSTATE_PAUSE),
                                                Pair(KSSTATE_STOP, KSSTATE_ACQUIRE)));
    EXPECT_EQ(world.Driver.Closes, 1);
    EXPECT_EQ(freed, 1);
  });
}

}  // namespace
}  // namespace lidcam::host
