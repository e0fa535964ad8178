// KSPROPSETID_Pin of a filter, and the ranges in its requests.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "tests/platform/ks/pin/pin_support.h"

namespace lidcam::host {
namespace {

using testing::ElementsAre;

NTSTATUS AskOfKind(PinWorld& world, PinRequest& request, ULONG id, ULONG outputLength,
                   ULONG pinId = 0, ULONG inputLength = sizeof(KSP_PIN)) {
  std::memcpy(request.Input.data() + offsetof(KSP_PIN, PinId), &pinId, sizeof(pinId));
  return world.Property(request, world.FilterFile, KSPROPSETID_Pin, id, KSPROPERTY_TYPE_GET,
                        outputLength, inputLength);
}

struct Number {
  ULONG Id;
  ULONG Value;
};

TEST(PinKinds, NumbersOfAKind) {
  WithPin([](PinWorld& world) {
    for (const Number number : {Number{KSPROPERTY_PIN_CTYPES, 1},
                                {KSPROPERTY_PIN_DATAFLOW, 2},
                                {KSPROPERTY_PIN_COMMUNICATION, 3},
                                {KSPROPERTY_PIN_NECESSARYINSTANCES, 1}}) {
      PinRequest request;
      EXPECT_EQ(AskOfKind(world, request, number.Id, 4), STATUS_SUCCESS) << number.Id;
      EXPECT_EQ(request.Information(), 4U);
      EXPECT_EQ(ValueOf<ULONG>(request), number.Value) << number.Id;
    }
    PinRequest instances;
    EXPECT_EQ(AskOfKind(world, instances, KSPROPERTY_PIN_CINSTANCES, 8), STATUS_SUCCESS);
    EXPECT_EQ(ValueOf<KSPIN_CINSTANCES>(instances).PossibleCount, 1U);
    EXPECT_EQ(ValueOf<KSPIN_CINSTANCES>(instances).CurrentCount, 1U);
    PinRequest category;
    EXPECT_EQ(AskOfKind(world, category, KSPROPERTY_PIN_CATEGORY, 16), STATUS_SUCCESS);
    EXPECT_TRUE(IsSameGuid(ValueOf<GUID>(category), PINNAME_VIDEO_CAPTURE));
    PinRequest name;
    EXPECT_EQ(AskOfKind(world, name, KSPROPERTY_PIN_NAME, 100), STATUS_NOT_SUPPORTED);
  });
}

TEST(PinKinds, UnknownPinIsRefusedByEachThatNamesOne) {
  WithFilter([](PinWorld& world) {
    for (const ULONG id :
         {KSPROPERTY_PIN_CINSTANCES, KSPROPERTY_PIN_DATAFLOW, KSPROPERTY_PIN_DATARANGES,
          KSPROPERTY_PIN_INTERFACES, KSPROPERTY_PIN_MEDIUMS, KSPROPERTY_PIN_COMMUNICATION,
          KSPROPERTY_PIN_NECESSARYINSTANCES, KSPROPERTY_PIN_CATEGORY, KSPROPERTY_PIN_NAME,
          KSPROPERTY_PIN_CONSTRAINEDDATARANGES}) {
      PinRequest request;
      EXPECT_EQ(AskOfKind(world, request, id, 64, 1), STATUS_INVALID_PARAMETER) << id;
    }
  });
}

TEST(PinKinds, RangesComeAlignedWithoutTheEmptyEntry) {
  for (const ULONG id : {KSPROPERTY_PIN_DATARANGES, KSPROPERTY_PIN_CONSTRAINEDDATARANGES}) {
    for (const Room room : {Room{0, STATUS_BUFFER_OVERFLOW, 144},
                            {8, STATUS_SUCCESS, 8},
                            {143, STATUS_BUFFER_TOO_SMALL, 0},
                            {7, STATUS_BUFFER_TOO_SMALL, 0},
                            {144, STATUS_SUCCESS, 144},
                            {200, STATUS_SUCCESS, 144}}) {
      WithFilter([id, room](PinWorld& world) {
        struct {
          KSDATARANGE Range;
          ULONG Tail;
        } odd{FormatOf(kSubFormat, 66), 0xAABBCCDD};
        world.RangeList[0] = &odd.Range;
        FindPinFactory(world.Filter, 0)->Descriptor.PinDescriptor.DataRangesCount = 2;
        PKSDATARANGE both[2] = {&odd.Range, &world.Ranges[1]};
        if (id == KSPROPERTY_PIN_DATARANGES) world.RangeList[1] = &world.Ranges[1];
        auto& descriptor = FindPinFactory(world.Filter, 0)->Descriptor.PinDescriptor;
        if (id == KSPROPERTY_PIN_CONSTRAINEDDATARANGES) {
          descriptor.ConstrainedDataRangesCount = 2;
          descriptor.ConstrainedDataRanges = both;
        }
        PinRequest request;
        EXPECT_EQ(AskOfKind(world, request, id, room.Length), room.Status) << room.Length;
        EXPECT_EQ(request.Information(), room.Information);
        if (room.Status != STATUS_SUCCESS) return;
        EXPECT_EQ(ValueOf<KSMULTIPLE_ITEM>(request).Size, 144U);
        EXPECT_EQ(ValueOf<KSMULTIPLE_ITEM>(request).Count, 2U);
        if (room.Length == 8) return;
        EXPECT_EQ(std::memcmp(request.Output.data() + 8, &odd, 66), 0);
        EXPECT_EQ(ValueOf<USHORT>(request, 8 + 66), 0U);
        EXPECT_EQ(std::memcmp(request.Output.data() + 8 + 72, &world.Ranges[1], 64), 0);
      });
    }
  }
}

TEST(PinKinds, InterfacesAndMediumsAreLists) {
  WithFilter([](PinWorld& world) {
    for (const ULONG id : {KSPROPERTY_PIN_INTERFACES, KSPROPERTY_PIN_MEDIUMS}) {
      PinRequest request;
      EXPECT_EQ(AskOfKind(world, request, id, 64), STATUS_SUCCESS);
      EXPECT_EQ(request.Information(), 32U);
      EXPECT_EQ(ValueOf<KSMULTIPLE_ITEM>(request).Size, 32U);
      EXPECT_EQ(ValueOf<KSMULTIPLE_ITEM>(request).Count, 1U);
      const GUID& set =
          id == KSPROPERTY_PIN_INTERFACES ? KSINTERFACESETID_Standard : KSMEDIUMSETID_Standard;
      EXPECT_TRUE(IsSameGuid(ValueOf<KSIDENTIFIER>(request, 8).Set, set));
      PinRequest size;
      EXPECT_EQ(AskOfKind(world, size, id, 0), STATUS_BUFFER_OVERFLOW);
      EXPECT_EQ(size.Information(), 32U);
    }
  });
}

// ---- Intersections.

struct Asked {
  PVOID Context;
  ULONG CallerSubFormat;
  const KSDATARANGE* Range;
  ULONG Length;
};

std::vector<Asked> g_asked;
std::function<NTSTATUS(std::size_t call, PVOID data, PULONG size)> g_intersect;

NTSTATUS NTAPI NoteIntersection(PVOID context, PIRP, PKSP_PIN pin, PKSDATARANGE callerRange,
                                PKSDATARANGE range, ULONG length, PVOID data, PULONG size) {
  EXPECT_EQ(pin->PinId, 0U);
  std::vector<UCHAR> whole(callerRange->FormatSize);
  std::memcpy(whole.data(), callerRange, whole.size());  // checks that all of it is readable
  g_asked.push_back({context, callerRange->SubFormat.Data1, range, length});
  return g_intersect(g_asked.size(), data, size);
}

struct RangeRequest {
  ULONG Size = 8;
  ULONG Count = 0;

  void Add(PinRequest& request, const KSDATARANGE& range) {
    std::memcpy(request.Input.data() + 32 + Size, &range, sizeof(range));
    Size += (range.FormatSize + 7) / 8 * 8;
    ++Count;
  }

  NTSTATUS Send(PinWorld& world, PinRequest& request, ULONG outputLength) const {
    std::memcpy(request.Input.data() + 32, &Size, 4);
    std::memcpy(request.Input.data() + 36, &Count, 4);
    return AskOfKind(world, request, KSPROPERTY_PIN_DATAINTERSECTION, outputLength, 0, 32 + Size);
  }
};

void WithIntersection(const std::function<void(PinWorld&)>& test) {
  WithFilter([&test](PinWorld& world) {
    FindPinFactory(world.Filter, 0)->Descriptor.IntersectHandler = NoteIntersection;
    g_asked.clear();
    g_intersect = [](std::size_t, PVOID, PULONG) { return STATUS_NO_MATCH; };
    test(world);
  });
}

TEST(Intersection, GoesThroughCallersRangesAndPinsRangesInOrder) {
  WithIntersection([](PinWorld& world) {
    PinRequest request;
    RangeRequest ranges;
    GUID other = kSubFormat;
    other.Data1 = 2;
    ranges.Add(request, FormatOf(other, 68));
    ranges.Add(request, FormatOf(GUID_NULL));
    KSDATARANGE foreign = FormatOf(kSubFormat);
    foreign.MajorFormat.Data1 = 1;
    ranges.Add(request, foreign);
    EXPECT_EQ(ranges.Send(world, request, 100), STATUS_NO_MATCH);
    ASSERT_EQ(g_asked.size(), 3U);
    EXPECT_EQ(g_asked[0].CallerSubFormat, 2U);
    EXPECT_EQ(g_asked[0].Range, &world.Ranges[1]);
    EXPECT_EQ(g_asked[1].CallerSubFormat, 0U);
    EXPECT_EQ(g_asked[1].Range, &world.Ranges[0]);
    EXPECT_EQ(g_asked[2].Range, &world.Ranges[1]);
    EXPECT_EQ(g_asked[0].Context, &world.Filter.Filter);
    EXPECT_EQ(g_asked[0].Length, 100U);
  });
}

TEST(Intersection, FirstAnswerThatIsNotNoMatchEndsIt) {
  struct Answer {
    NTSTATUS Status;
    ULONG Information;
  };
  for (const Answer answer : {Answer{STATUS_SUCCESS, 40},
                              {STATUS_BUFFER_OVERFLOW, 40},
                              {STATUS_BUFFER_TOO_SMALL, 0},
                              {STATUS_INVALID_PARAMETER, 0}}) {
    WithIntersection([answer](PinWorld& world) {
      g_intersect = [answer](std::size_t call, PVOID data, PULONG size) {
        if (call == 1) return STATUS_NO_MATCH;
        if (answer.Status == STATUS_SUCCESS) std::memset(data, 0x5A, 40);
        if (answer.Information != 0) *size = 40;
        return answer.Status;
      };
      PinRequest request;
      RangeRequest ranges;
      ranges.Add(request, FormatOf(kSubFormat));
      ranges.Add(request, FormatOf(kSubFormat));
      const ULONG length = answer.Status == STATUS_BUFFER_OVERFLOW ? 0 : 40;
      EXPECT_EQ(ranges.Send(world, request, length), answer.Status);
      EXPECT_EQ(request.Information(), answer.Information);
      EXPECT_EQ(g_asked.size(), 2U);
      EXPECT_EQ(request.Output[39], answer.Status == STATUS_SUCCESS ? 0x5A : 0);
    });
  }
}

TEST(Intersection, RangesThatAreNotWholeAreRefused) {
  struct Damage {
    const char* Name;
    void (*Do)(RangeRequest& ranges, PinRequest& request);
  };
  const auto sizeOfFirst = [](PinRequest& request, ULONG size) {
    std::memcpy(request.Input.data() + 40, &size, 4);
  };
  static auto setSize = sizeOfFirst;
  constexpr Damage kDamages[] = {
      {"short format", [](RangeRequest&, PinRequest& r) { setSize(r, 63); }},
      {"format beyond the list", [](RangeRequest&, PinRequest& r) { setSize(r, 65); }},
      {"huge format", [](RangeRequest&, PinRequest& r) { setSize(r, 0xFFFFFFFF); }},
      {"list cut off", [](RangeRequest& l, PinRequest&) { l.Size -= 1; }},
      {"more ranges than there are", [](RangeRequest& l, PinRequest&) { l.Count = 2; }},
      {"list of no size", [](RangeRequest& l, PinRequest&) { l.Size = 7; }},
  };
  for (const Damage& damage : kDamages) {
    SCOPED_TRACE(damage.Name);
    WithIntersection([&damage](PinWorld& world) {
      PinRequest request;
      RangeRequest ranges;
      ranges.Add(request, FormatOf(kSubFormat));
      damage.Do(ranges, request);
      EXPECT_EQ(ranges.Send(world, request, 100), STATUS_INVALID_BUFFER_SIZE);
    });
  }
}

TEST(Intersection, ListLongerThanItsRequestIsRefused) {
  WithIntersection([](PinWorld& world) {
    PinRequest request;
    RangeRequest ranges;
    ranges.Add(request, FormatOf(kSubFormat));
    const ULONG list[] = {73, 1};
    std::memcpy(request.Input.data() + 32, list, sizeof(list));
    EXPECT_EQ(AskOfKind(world, request, KSPROPERTY_PIN_DATAINTERSECTION, 100, 0, 32 + 72),
              STATUS_INVALID_BUFFER_SIZE);
    EXPECT_TRUE(g_asked.empty());
  });
}

TEST(Intersection, WithoutRangesOrHandlerThereIsNone) {
  WithIntersection([](PinWorld& world) {
    PinRequest request;
    const RangeRequest none;
    EXPECT_EQ(none.Send(world, request, 100), STATUS_NO_MATCH);
    FindPinFactory(world.Filter, 0)->Descriptor.IntersectHandler = nullptr;
    PinRequest other;
    EXPECT_EQ(none.Send(world, other, 100), STATUS_NOT_IMPLEMENTED);
  });
}

TEST(Intersection, AnyBytesAreSafe) {
  WithIntersection([](PinWorld& world) {
    std::mt19937 random(1);
    for (int round = 0; round < 3000; ++round) {
      PinRequest request;
      for (UCHAR& byte : request.Input) byte = static_cast<UCHAR>(random() % 4 == 0 ? random() : 0);
      const ULONG list[] = {static_cast<ULONG>(random() % 300), static_cast<ULONG>(random() % 5)};
      std::memcpy(request.Input.data() + 32, list, sizeof(list));
      const ULONG size = 56 + static_cast<ULONG>(random() % 80);
      for (ULONG at = 40; at < 400; at += 64) {
        std::memcpy(request.Input.data() + at, &size, sizeof(size));
      }
      AskOfKind(world, request, KSPROPERTY_PIN_DATAINTERSECTION, 100, 0,
                40 + static_cast<ULONG>(random() % 300));
    }
  });
}

// ---- Formats and ranges.

TEST(DataFormat, FitsARangeWhereThatNamesSomething) {
  const KSDATAFORMAT format = FormatOf(kSubFormat);
  for (GUID KSDATAFORMAT::*const part :
       {&KSDATAFORMAT::MajorFormat, &KSDATAFORMAT::SubFormat, &KSDATAFORMAT::Specifier}) {
    KSDATARANGE range = format;
    EXPECT_TRUE(FitsRange(format, range));
    (range.*part).Data4[7] ^= 1;
    EXPECT_FALSE(FitsRange(format, range));
    EXPECT_FALSE(DoRangesMeet(format, range));
    range.*part = GUID_NULL;
    EXPECT_TRUE(FitsRange(format, range));
    EXPECT_FALSE(FitsRange(range, format));  // a format has no wildcards
    EXPECT_TRUE(DoRangesMeet(format, range));
    EXPECT_TRUE(DoRangesMeet(range, format));
  }
}

TEST(DataFormat, RangeAtAnOddAddressIsRefused) {
  alignas(8) std::array<UCHAR, 200> bytes{};
  auto* const list = reinterpret_cast<PKSMULTIPLE_ITEM>(bytes.data() + 4);
  *list = {8 + 64, 1};
  PKSDATARANGE range = nullptr;
  RangeReader odd(list, 72);
  EXPECT_EQ(odd.Next(&range), STATUS_INVALID_BUFFER_SIZE);
  EXPECT_EQ(odd.Next(&range), STATUS_INVALID_BUFFER_SIZE);
  EXPECT_EQ(range, nullptr);
}

}  // namespace
}  // namespace lidcam::host
