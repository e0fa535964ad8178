// Property and event requests of a filter: the driver's tables, and the class's own sets.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include "tests/platform/ks/class_world.h"

namespace lidcam::host {
namespace {

using testing::Each;
using testing::ElementsAre;

constexpr ULONG kGet = 0x1;
constexpr ULONG kSet = 0x2;
constexpr ULONG kSetSupport = 0x100;
constexpr ULONG kBasicSupport = 0x200;

/// Runs `body` with a filter open.
void WithFilter(const std::function<void(ClassWorld&, TestFile&)>& body) {
  Simulate({}, [&] {
    ClassWorld world;
    world.Start();
    TestFile file(world.Top());
    EXPECT_EQ(file.Open(kTestFilterName), STATUS_SUCCESS);
    const std::size_t before = PoolUsageOfAll().Blocks;
    body(world, file);
    EXPECT_EQ(PoolUsageOfAll().Blocks, before);
    file.Close();
  });
}

/// A buffer of exactly this size, so that an access beyond it is detected.
std::vector<UCHAR> Bytes(std::size_t size, UCHAR value = 0xEE) {
  std::vector<UCHAR> bytes(size, value);
  bytes.shrink_to_fit();
  return bytes;
}

TEST(KsProperty, GivesTheHandlerCopiesAndTheApplicationWhatItAnswered) {
  WithFilter([](ClassWorld& world, TestFile& file) {
    auto value = Bytes(8, 0x11);
    world.Script.Property = [&](PIRP irp, PKSIDENTIFIER request, PVOID data) {
      EXPECT_NE(KsGetFilterFromIrp(irp), nullptr);
      EXPECT_EQ(KsGetPinFromIrp(irp), nullptr);
      EXPECT_EQ(request->Id, 1U);
      EXPECT_EQ(request->Flags, kGet);
      EXPECT_NE(data, value.data());
      EXPECT_EQ(std::memcmp(data, value.data(), 8), 0);  // a get may depend on the value
      EXPECT_EQ(irp->IoStatus.Information, 8U);
      std::memset(data, 0x22, 8);
      irp->IoStatus.Information = 4;
      return STATUS_SUCCESS;
    };
    EXPECT_EQ(file.Property(kTestSet, 1, kGet, value.data(), 8), (Reply{STATUS_SUCCESS, 4}));
    EXPECT_THAT(value, ElementsAre(0x22, 0x22, 0x22, 0x22, 0x11, 0x11, 0x11, 0x11));
  });
}

TEST(KsProperty, PresetsTheWholeBufferForAGetAndNothingForASet) {
  WithFilter([](ClassWorld& world, TestFile& file) {
    auto value = Bytes(6);
    world.Script.Property = [](PIRP, PKSIDENTIFIER, PVOID data) {
      std::memset(data, 0x22, 6);
      return STATUS_SUCCESS;
    };
    EXPECT_EQ(file.Property(kTestSet, 1, kGet, value.data(), 6), (Reply{STATUS_SUCCESS, 6}));
    EXPECT_THAT(value, Each(0x22));
    value = Bytes(6);
    EXPECT_EQ(file.Property(kTestSet, 1, kSet, value.data(), 6), (Reply{STATUS_SUCCESS, 0}));
    EXPECT_THAT(value, Each(0xEE));
  });
}

TEST(KsProperty, CopiesNothingOfAFailureButTheSizeThatTheHandlerTold) {
  WithFilter([](ClassWorld& world, TestFile& file) {
    auto value = Bytes(6);
    world.Script.Property = [](PIRP, PKSIDENTIFIER, PVOID data) {
      std::memset(data, 0x22, 6);
      return STATUS_UNSUCCESSFUL;
    };
    EXPECT_EQ(file.Property(kTestSet, 1, kGet, value.data(), 6), (Reply{STATUS_UNSUCCESSFUL, 0}));
    world.Script.Property = [](PIRP irp, PKSIDENTIFIER, PVOID data) {
      std::memset(data, 0x22, 6);
      irp->IoStatus.Information = 64;
      return STATUS_BUFFER_TOO_SMALL;
    };
    EXPECT_EQ(file.Property(kTestSet, 1, kGet, value.data(), 6),
              (Reply{STATUS_BUFFER_TOO_SMALL, 64}));
    EXPECT_THAT(value, Each(0xEE));
  });
}

TEST(KsProperty, NeverCopiesMoreThanTheBufferHolds) {
  WithFilter([](ClassWorld& world, TestFile& file) {
    auto value = Bytes(4);
    world.Script.Property = [](PIRP irp, PKSIDENTIFIER, PVOID) {
      irp->IoStatus.Information = 1000;
      return STATUS_BUFFER_OVERFLOW;
    };
    EXPECT_EQ(file.Property(kTestSet, 1, kGet, value.data(), 4),
              (Reply{STATUS_BUFFER_OVERFLOW, 1000}));
  });
}

TEST(KsProperty, RunsItsHandlerUnderTheFiltersControlMutex) {
  WithFilter([](ClassWorld& world, TestFile& file) {
    LONGLONG takenAt = -1;
    std::optional<TestThread> other;
    world.Script.Property = [&](PIRP irp, PKSIDENTIFIER, PVOID) {
      const PKSFILTER filter = KsGetFilterFromIrp(irp);
      other.emplace([&takenAt, filter] {
        KsAcquireControl(filter);
        takenAt = Now();
        KsReleaseControl(filter);
      });
      Sleep(kMillisecond);
      KsAcquireControl(filter);  // its owner may acquire it again
      KsReleaseControl(filter);
      Sleep(kMillisecond);
      EXPECT_EQ(takenAt, -1);
      return STATUS_SUCCESS;
    };
    EXPECT_EQ(file.Property(kTestSet, 4, kGet, nullptr, 0).Status, STATUS_SUCCESS);
    other->Join();
    EXPECT_EQ(takenAt, 2 * kMillisecond);
  });
}

struct LengthCase {
  ULONG Id;
  ULONG Flags;
  ULONG MinProperty;
  ULONG MinData;
};

TEST(KsProperty, ChecksEveryLengthOfEveryRequest) {
  constexpr LengthCase kCases[] = {
      {1, kGet, 24, 4}, {1, kSet, 24, 4}, {2, kGet, 40, 8}, {3, kSet, 24, 4}, {4, kGet, 24, 0}};
  WithFilter([&](ClassWorld&, TestFile& file) {
    for (const LengthCase& test : kCases) {
      for (ULONG request = 0; request <= test.MinProperty + 1; ++request) {
        for (ULONG length = 0; length <= test.MinData + 1; ++length) {
          SCOPED_TRACE(testing::Message() << test.Id << " flags " << test.Flags << " request "
                                          << request << " value " << length);
          const bool isGet = test.Flags == kGet;
          Reply expected{STATUS_SUCCESS, isGet ? length : 0};
          if (request < test.MinProperty) {
            expected = {STATUS_INVALID_BUFFER_SIZE, 0};
          } else if (length == 0 && test.MinData != 0 && isGet) {
            expected = {STATUS_BUFFER_OVERFLOW, test.MinData};
          } else if (length < test.MinData) {
            expected = {STATUS_BUFFER_TOO_SMALL, 0};
          }
          auto value = Bytes(length);
          EXPECT_EQ(file.Property(kTestSet, test.Id, test.Flags, value.data(), length, request),
                    expected);
        }
      }
    }
  });
}

TEST(KsProperty, AnswersWhatIsntThereByWhatIsMissing) {
  WithFilter([](ClassWorld&, TestFile& file) {
    auto value = Bytes(64);
    const auto ask = [&](const GUID& set, ULONG id, ULONG flags) {
      return file.Property(set, id, flags, value.data(), 64, 64);
    };
    EXPECT_EQ(ask(GUID_NULL, 1, kGet), (Reply{STATUS_PROPSET_NOT_FOUND, 0}));
    EXPECT_EQ(ask(GUID_NULL, 1, kSetSupport), (Reply{STATUS_PROPSET_NOT_FOUND, 0}));
    EXPECT_EQ(ask(kTestSet, 99, kSetSupport), (Reply{STATUS_SUCCESS, 0}));
    EXPECT_EQ(ask(kTestSet, 99, kGet), (Reply{STATUS_NOT_FOUND, 0}));
    EXPECT_EQ(ask(kTestSet, 99, kBasicSupport), (Reply{STATUS_NOT_FOUND, 0}));
    EXPECT_EQ(ask(kTestSet, 3, kGet), (Reply{STATUS_INVALID_DEVICE_REQUEST, 0}));
    EXPECT_EQ(ask(kTestSet, 2, kSet), (Reply{STATUS_INVALID_DEVICE_REQUEST, 0}));
  });
}

TEST(KsProperty, TakesOneKnownRequestAtATime) {
  WithFilter([](ClassWorld&, TestFile& file) {
    auto value = Bytes(64);
    const auto ask = [&](ULONG flags) {
      return file.Property(kTestSet, 1, flags, value.data(), 64).Status;
    };
    for (const ULONG flags : {0U, 3U, 4U, 0x101U, 0x300U, 0x201U, 0x80000000U, 0x401U}) {
      EXPECT_EQ(ask(flags), STATUS_INVALID_PARAMETER) << std::hex << flags;
    }
    for (const ULONG flags : {0x400U, 0x800U, 0x1000U, 0x2000U, 0x4000U, 0x8000U, 0x10000U,
                              0x10000000U, 0x10000001U, 0x10000200U}) {
      EXPECT_EQ(ask(flags), STATUS_NOT_SUPPORTED) << std::hex << flags;
    }
  });
}

TEST(KsProperty, RefusesMissingAndOverlongBuffers) {
  WithFilter([](ClassWorld&, TestFile& file) {
    auto value = Bytes(0x10001);
    KSPROPERTY request{kTestSet, 4, kGet};
    const auto ask = [&](PVOID in, ULONG inLength, PVOID out, ULONG outLength) {
      return file.Control(IOCTL_KS_PROPERTY, in, inLength, out, outLength);
    };
    EXPECT_EQ(ask(nullptr, 24, value.data(), 4), (Reply{STATUS_INVALID_PARAMETER, 0}));
    EXPECT_EQ(ask(&request, 24, nullptr, 4), (Reply{STATUS_INVALID_PARAMETER, 0}));
    EXPECT_EQ(ask(&request, 24, value.data(), 0x10000), (Reply{STATUS_SUCCESS, 0x10000}));
    EXPECT_EQ(ask(&request, 24, value.data(), 0x10001), (Reply{STATUS_INVALID_BUFFER_SIZE, 0}));
    EXPECT_EQ(ask(&request, 24, nullptr, 0xFFFFFFFF), (Reply{STATUS_INVALID_BUFFER_SIZE, 0}));
    EXPECT_EQ(ask(value.data(), 0x10001, nullptr, 0), (Reply{STATUS_INVALID_BUFFER_SIZE, 0}));
    EXPECT_EQ(ask(nullptr, 0, nullptr, 0), (Reply{STATUS_INVALID_BUFFER_SIZE, 0}));
    EXPECT_EQ(ask(value.data(), 0x10000, nullptr, 0), (Reply{STATUS_INVALID_PARAMETER, 0}));
  });
}

// The test's table: a range of 16 bytes and a default of 4, each after a header of 16.
constexpr ULONG kDescriptionSize = 40;
constexpr ULONG kWholeSize = 40 + 16 + 16 + 16 + 4;

TEST(KsBasicSupport, TellsAsMuchAsTheBufferHolds) {
  WithFilter([](ClassWorld&, TestFile& file) {
    for (ULONG length = 0; length <= kWholeSize + 1; ++length) {
      SCOPED_TRACE(length);
      auto value = Bytes(length);
      Reply expected{STATUS_SUCCESS, kWholeSize};
      if (length == 0) expected = {STATUS_BUFFER_OVERFLOW, kWholeSize};
      if (length > 0 && length < 4) expected = {STATUS_BUFFER_TOO_SMALL, 0};
      if (length >= 4 && length < kDescriptionSize) expected = {STATUS_SUCCESS, 4};
      if (length >= kDescriptionSize && length < kWholeSize) {
        expected = {STATUS_SUCCESS, kDescriptionSize};
      }
      EXPECT_EQ(file.Property(kTestSet, 1, kBasicSupport, value.data(), length), expected);
      if (length < 4) continue;
      ULONG access = 0;
      std::memcpy(&access, value.data(), 4);
      EXPECT_EQ(access, kGet | kSet);
      if (length < kDescriptionSize) continue;
      KSPROPERTY_DESCRIPTION description{};
      std::memcpy(&description, value.data(), sizeof(description));
      EXPECT_EQ(description.DescriptionSize, kWholeSize);
      EXPECT_EQ(description.MembersListCount, 2U);
      EXPECT_EQ(description.PropTypeSet.Id, 3U);  // a signed 32-bit integer
      EXPECT_EQ(description.PropTypeSet.Set.Data1, 0x97E99BA0U);
      EXPECT_EQ(description.Reserved, 0U);
    }
  });
}

TEST(KsBasicSupport, TellsRangeAndDefault) {
  WithFilter([](ClassWorld&, TestFile& file) {
    auto value = Bytes(kWholeSize);
    EXPECT_EQ(file.Property(kTestSet, 1, kBasicSupport, value.data(), kWholeSize),
              (Reply{STATUS_SUCCESS, kWholeSize}));
    std::array<ULONG, 13> words{};
    std::memcpy(words.data(), value.data() + kDescriptionSize, sizeof(words));
    EXPECT_THAT(words, ElementsAre(2, 16, 1, 0, 1, 0, static_cast<ULONG>(-100), 100,  // the range
                                   3, 4, 1, 1, 17));                                  // the default
  });
}

TEST(KsBasicSupport, TellsTheDirectionsOfAPropertyWithoutValues) {
  WithFilter([](ClassWorld&, TestFile& file) {
    KSPROPERTY_DESCRIPTION description{};
    for (const auto& [id, access] : {std::pair{2U, kGet}, {3U, kSet}, {4U, kGet}}) {
      EXPECT_EQ(file.Property(kTestSet, id, kBasicSupport, &description, sizeof(description)),
                (Reply{STATUS_SUCCESS, kDescriptionSize}));
      EXPECT_EQ(description.AccessFlags, access);
      EXPECT_EQ(description.DescriptionSize, kDescriptionSize);
      EXPECT_EQ(description.MembersListCount, 0U);
    }
  });
}

TEST(KsBasicSupport, IsTheDriversWhereItHasAHandlerForIt) {
  WithFilter([](ClassWorld& world, TestFile& file) {
    world.Script.Property = [](PIRP irp, PKSIDENTIFIER request, PVOID data) {
      EXPECT_EQ(request->Flags, kBasicSupport);
      std::memset(data, 0x33, 4);
      irp->IoStatus.Information = 4;
      return STATUS_SUCCESS;
    };
    auto value = Bytes(5);
    EXPECT_EQ(file.Property(kTestSet, 5, kBasicSupport, value.data(), 5),
              (Reply{STATUS_SUCCESS, 4}));
    EXPECT_THAT(value, ElementsAre(0x33, 0x33, 0x33, 0x33, 0xEE));
  });
}

TEST(KsProperty, FailsWithoutMemoryWhicheverCopyItIsFor) {
  WithFilter([](ClassWorld&, TestFile& file) {
    for (const ULONG flags : {kGet, kSet, kBasicSupport}) {
      for (std::uint32_t copy = 1; copy <= 2; ++copy) {
        auto value = Bytes(4);
        FailPoolAllocation(copy + 1);  // the first is the request
        EXPECT_EQ(file.Property(kTestSet, 1, flags, value.data(), 4),
                  (Reply{STATUS_INSUFFICIENT_RESOURCES, 0}));
        EXPECT_FALSE(IsPoolFailureToCome());
        EXPECT_THAT(value, Each(0xEE));
      }
    }
  });
}

TEST(KsProperty, SurvivesAnyBytes) {
  WithFilter([](ClassWorld&, TestFile& file) {
    std::uint32_t state = 1;
    const auto next = [&state] { return state = state * 1664525 + 1013904223; };
    for (int i = 0; i < 2000; ++i) {
      auto request = Bytes(next() % 64);
      auto value = Bytes(next() % 128);
      for (UCHAR& byte : request) byte = static_cast<UCHAR>(next() >> 24);
      const GUID sets[] = {kTestSet, KSPROPSETID_Topology, KSPROPSETID_General, KSPROPSETID_Pin};
      if (request.size() >= sizeof(KSPROPERTY)) {
        const KSPROPERTY property{sets[(next() >> 16) % 4], (next() >> 16) % 8,
                                  1U << ((next() >> 16) % 12)};
        std::memcpy(request.data(), &property, sizeof(property));
      }
      const ULONG code = (next() >> 16) % 4 == 0 ? IOCTL_KS_ENABLE_EVENT : IOCTL_KS_PROPERTY;
      const Reply reply = file.Control(code, request.data(), static_cast<ULONG>(request.size()),
                                       value.data(), static_cast<ULONG>(value.size()));
      EXPECT_NE(reply.Status, STATUS_PENDING);
    }
  });
}

TEST(KsEvent, IsAddedByItsHandlerWithACopyOfTheData) {
  WithFilter([](ClassWorld& world, TestFile& file) {
    world.Script.AddEvent = [](PIRP irp, PVOID data) {
      EXPECT_NE(KsGetFilterFromIrp(irp), nullptr);
      EXPECT_EQ(static_cast<UCHAR*>(data)[15], 0xEE);
      return STATUS_NOT_SUPPORTED;
    };
    for (ULONG length = 0; length <= 17; ++length) {
      auto value = Bytes(length);
      KSEVENT event{kTestEventSet, 7, KSEVENT_TYPE_ENABLE};
      EXPECT_EQ(file.Control(IOCTL_KS_ENABLE_EVENT, &event, sizeof(event), value.data(), length),
                (Reply{length < 16 ? STATUS_BUFFER_TOO_SMALL : STATUS_NOT_SUPPORTED, 0}))
          << length;
    }
  });
}

struct EventCase {
  GUID Set;
  ULONG Id;
  ULONG Flags;
  NTSTATUS Status;
};

TEST(KsEvent, AnswersWhatIsntThereByWhatIsMissing) {
  const EventCase cases[] = {
      {GUID_NULL, 7, KSEVENT_TYPE_ENABLE, STATUS_PROPSET_NOT_FOUND},
      {kTestSet, 1, KSEVENT_TYPE_ENABLE, STATUS_PROPSET_NOT_FOUND},
      {kTestEventSet, 9, KSEVENT_TYPE_ENABLE, STATUS_NOT_FOUND},
      {kTestEventSet, 8, KSEVENT_TYPE_ENABLE, STATUS_INVALID_DEVICE_REQUEST},
      {kTestEventSet, 7, KSEVENT_TYPE_ENABLE, STATUS_NOT_IMPLEMENTED},
      {kTestEventSet, 7, KSEVENT_TYPE_ONESHOT, STATUS_NOT_IMPLEMENTED},
      {kTestEventSet, 7, KSEVENT_TYPE_BASICSUPPORT, STATUS_SUCCESS},
      {kTestEventSet, 9, KSEVENT_TYPE_SETSUPPORT, STATUS_SUCCESS},
      {kTestEventSet, 7, 0, STATUS_INVALID_PARAMETER},
      {kTestEventSet, 7, KSEVENT_TYPE_QUERYBUFFER, STATUS_INVALID_PARAMETER},
      {kTestEventSet, 7, KSEVENT_TYPE_ENABLEBUFFERED, STATUS_INVALID_PARAMETER},
  };
  WithFilter([&](ClassWorld&, TestFile& file) {
    for (const EventCase& test : cases) {
      KSEVENT event{test.Set, test.Id, test.Flags};
      auto value = Bytes(16);
      EXPECT_EQ(file.Control(IOCTL_KS_ENABLE_EVENT, &event, sizeof(event), value.data(), 16).Status,
                test.Status)
          << test.Id << " " << test.Flags;
      EXPECT_EQ(file.Control(IOCTL_KS_ENABLE_EVENT, &event, 23, value.data(), 16).Status,
                STATUS_INVALID_BUFFER_SIZE);
    }
  });
}

// ---- Properties that every filter answers by itself.

struct TopologyCase {
  ULONG Id;
  ULONG Size;
  ULONG Count;
};

TEST(KsTopology, HasTheDescriptorsCategoriesAndNoNodesOrConnections) {
  constexpr TopologyCase kCases[] = {{0, 40, 2}, {1, 8, 0}, {2, 8, 0}};
  WithFilter([&](ClassWorld&, TestFile& file) {
    for (const TopologyCase& test : kCases) {
      for (ULONG length = 0; length <= test.Size + 1; ++length) {
        SCOPED_TRACE(testing::Message() << test.Id << " length " << length);
        auto value = Bytes(length);
        Reply expected{STATUS_SUCCESS, test.Size};
        if (length < test.Size) expected.Status = STATUS_BUFFER_TOO_SMALL;
        if (length == 0) expected.Status = STATUS_BUFFER_OVERFLOW;
        EXPECT_EQ(file.Property(KSPROPSETID_Topology, test.Id, kGet, value.data(), length),
                  expected);
        if (length < test.Size) continue;
        std::array<ULONG, 2> header{};
        std::memcpy(header.data(), value.data(), 8);
        EXPECT_THAT(header, ElementsAre(test.Size, test.Count));
      }
    }
    struct {
      KSMULTIPLE_ITEM Header;
      GUID Categories[2];
    } categories{};
    file.Property(KSPROPSETID_Topology, 0, kGet, &categories, sizeof(categories));
    EXPECT_EQ(categories.Categories[0].Data1, 0x6994AD05U);
    EXPECT_EQ(categories.Categories[1].Data1, 0x65E8773DU);
    EXPECT_EQ(file.Property(KSPROPSETID_Topology, 3, kGet, &categories, 40).Status,
              STATUS_NOT_FOUND);
    EXPECT_EQ(file.Property(KSPROPSETID_Topology, 0, kSet, &categories, 40).Status,
              STATUS_INVALID_DEVICE_REQUEST);
  });
}

TEST(KsGeneral, HasNoComponentIdUnlessTheDescriptorHas) {
  static constexpr KSCOMPONENTID kId = {
      {1, 0, 0, {}}, {2, 0, 0, {}}, {3, 0, 0, {}}, {4, 0, 0, {}}, 5, 6};
  WithFilter([](ClassWorld& world, TestFile& file) {
    KSCOMPONENTID id{};
    EXPECT_EQ(file.Property(KSPROPSETID_General, 0, kGet, &id, sizeof(id)),
              (Reply{STATUS_NOT_SUPPORTED, 0}));
    EXPECT_EQ(file.Property(KSPROPSETID_General, 0, kGet, nullptr, 0),
              (Reply{STATUS_BUFFER_OVERFLOW, 72}));
    static KSFILTER_DESCRIPTOR named{};
    named = kTestFilter;
    named.ComponentId = &kId;
    KsCreateFilterFactory(world.Device->FunctionalDeviceObject, &named, const_cast<PWSTR>(u"NAMED"),
                          nullptr, KSCREATE_ITEM_FREEONSTOP, nullptr, nullptr, nullptr);
    TestFile other(world.Top());
    EXPECT_EQ(other.Open(u"\\NAMED"), STATUS_SUCCESS);
    EXPECT_EQ(other.Property(KSPROPSETID_General, 0, kGet, &id, sizeof(id)),
              (Reply{STATUS_SUCCESS, 72}));
    EXPECT_EQ(id.Revision, 6U);
    other.Close();
    world.PlugAndPlay(IRP_MN_STOP_DEVICE);
  });
}

TEST(KsFilter, AnswersForItsPinsToo) {
  WithFilter([](ClassWorld&, TestFile& file) {
    EXPECT_EQ(file.Property(KSPROPSETID_Pin, 0, kSetSupport, nullptr, 0),
              (Reply{STATUS_SUCCESS, 0}));
    ULONG types = 77;
    EXPECT_EQ(file.Property(KSPROPSETID_Pin, KSPROPERTY_PIN_CTYPES, kGet, &types, 4),
              (Reply{STATUS_SUCCESS, 4}));
    EXPECT_EQ(types, 0U);
  });
}

}  // namespace
}  // namespace lidcam::host
