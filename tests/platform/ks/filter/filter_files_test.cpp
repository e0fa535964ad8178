// Filters as files of applications: opening, closing, and their state after a removal.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <optional>

#include "platform/host/nt/io/device_file.h"
#include "platform/host/nt/io/plug_and_play.h"
#include "tests/platform/ks/class_world.h"

namespace lidcam::host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

NTSTATUS MakeFactory(const ClassWorld& world, const char16_t* name, ULONG flags = 0,
                     PKSFILTERFACTORY* factory = nullptr) {
  return KsCreateFilterFactory(world.Device->FunctionalDeviceObject, &kTestFilter,
                               const_cast<PWSTR>(name), nullptr, flags, nullptr, nullptr, factory);
}

TEST(KsFilterFactory, IsNamedByTheDescriptorsGuidUnlessToldOtherwiseAndOnlyOnce) {
  Simulate({}, [] {
    ClassWorld world;
    world.Add();
    PKSFILTERFACTORY factory = nullptr;
    EXPECT_EQ(MakeFactory(world, nullptr, 0, &factory), STATUS_SUCCESS);
    EXPECT_EQ(factory->FilterDescriptor, &kTestFilter);
    EXPECT_EQ(KsGetDevice(factory), world.Device);
    PVOID const item = ExAllocatePoolWithTag(NonPagedPool, 8, kTestTag);
    EXPECT_EQ(KsAddItemToObjectBag(factory->Bag, item, nullptr), STATUS_SUCCESS);
    EXPECT_EQ(MakeFactory(world, kTestFilterName + 1), STATUS_OBJECT_NAME_COLLISION);
    EXPECT_EQ(MakeFactory(world, u"OTHER"), STATUS_SUCCESS);
    EXPECT_EQ(MakeFactory(world, u""), STATUS_OBJECT_NAME_INVALID);
  });
}

TEST(KsFilterFactory, NeedsAStringOrAGuid) {
  Simulate({}, [] {
    ClassWorld world;
    world.Add();
    KSFILTER_DESCRIPTOR nameless = kTestFilter;
    nameless.ReferenceGuid = nullptr;
    const auto make = [&](const char16_t* name) {
      return KsCreateFilterFactory(world.Device->FunctionalDeviceObject, &nameless,
                                   const_cast<PWSTR>(name), nullptr, 0, nullptr, nullptr, nullptr);
    };
    EXPECT_EQ(make(nullptr), STATUS_OBJECT_NAME_INVALID);
    EXPECT_EQ(make(u"OWN"), STATUS_SUCCESS);
  });
}

TEST(KsFilterFactory, TakesNoDescriptorThatTheClassCantServe) {
  Simulate({}, [] {
    ClassWorld world;
    world.Add();
    const auto make = [&](const KSFILTER_DESCRIPTOR* descriptor,
                          PFNKSFILTERFACTORYPOWER sleep = nullptr) {
      return KsCreateFilterFactory(world.Device->FunctionalDeviceObject, descriptor, nullptr,
                                   nullptr, 0, sleep, nullptr, nullptr);
    };
    EXPECT_EQ(make(nullptr), STATUS_INVALID_PARAMETER);
    KSFILTER_DESCRIPTOR pins = kTestFilter;
    pins.PinDescriptorsCount = 1;
    EXPECT_EQ(make(&pins), STATUS_NOT_SUPPORTED);
    KSFILTER_DESCRIPTOR nodes = kTestFilter;
    nodes.NodeDescriptorsCount = 1;
    EXPECT_EQ(make(&nodes), STATUS_NOT_SUPPORTED);
    KSFILTER_DESCRIPTOR connections = kTestFilter;
    connections.ConnectionsCount = 1;
    EXPECT_EQ(make(&connections), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(make(&kTestFilter, [](PKSFILTERFACTORY, DEVICE_POWER_STATE) NTAPI {}),
              STATUS_NOT_SUPPORTED);
  });
}

TEST(KsFilterFactory, LeavesNothingWhicheverAllocationFails) {
  Simulate({}, [] {
    ClassWorld world;
    world.Add();
    std::uint32_t failed = 0;
    while (true) {
      const std::size_t before = PoolUsageOfAll().Blocks;
      FailPoolAllocation(failed + 1);
      const NTSTATUS status = MakeFactory(world, nullptr);
      if (IsPoolFailureToCome()) break;
      EXPECT_EQ(status, STATUS_INSUFFICIENT_RESOURCES);
      EXPECT_EQ(PoolUsageOfAll().Blocks, before);
      ++failed;
    }
    FailPoolAllocation(0);
    EXPECT_EQ(failed, 2U);
  });
}

struct NameCase {
  std::u16string Name;
  NTSTATUS Status;
};

TEST(KsFilter, OpensByTheReferenceStringInAnyCaseOrByNone) {
  const NameCase cases[] = {
      {u"", STATUS_SUCCESS},
      {u"\\{33333333-0002-ABCD-0405-060708090A0B}", STATUS_SUCCESS},
      {u"\\{33333333-0002-abcd-0405-060708090a0b}", STATUS_SUCCESS},
      {u"\\", STATUS_OBJECT_NAME_NOT_FOUND},
      {u"\\GLOBAL", STATUS_OBJECT_NAME_NOT_FOUND},
      {u"{33333333-0002-ABCD-0405-060708090A0B}", STATUS_OBJECT_NAME_NOT_FOUND},
      {u"\\33333333-0002-ABCD-0405-060708090A0B", STATUS_OBJECT_NAME_NOT_FOUND},
      {u"\\{33333333-0002-ABCD-0405-060708090A0B", STATUS_OBJECT_NAME_NOT_FOUND},
      {u"\\{33333333-0002-ABCD-0405-060708090A0B}\\", STATUS_OBJECT_NAME_NOT_FOUND},
      {u"\\{33333333-0002-ABCD-0405-060708090A0C}", STATUS_OBJECT_NAME_NOT_FOUND},
  };
  Simulate({}, [&] {
    ClassWorld world;
    world.Start();
    for (const NameCase& test : cases) {
      SCOPED_TRACE(testing::PrintToString(test.Name));
      TestFile file(world.Top());
      EXPECT_EQ(file.Open(test.Name), test.Status);
      if (test.Status == STATUS_SUCCESS) file.Close();
      EXPECT_EQ(file.Object.FsContext, nullptr);
    }
  });
}

TEST(KsFilter, IsThereForItsDriverFromCreateToCloseWithABag) {
  Simulate({}, [] {
    ClassWorld world;
    world.Start();
    PKSFILTER filter = nullptr;
    world.Script.FilterCreate = [&](PKSFILTER made, PIRP irp) {
      filter = made;
      EXPECT_EQ(made->Descriptor, &kTestFilter);
      EXPECT_EQ(KsGetDevice(made), world.Device);
      EXPECT_EQ(KsGetFilterFromIrp(irp), made);
      EXPECT_EQ(KsGetPinFromIrp(irp), nullptr);
      KsAcquireControl(made);
      KsAcquireControl(made);
      KsReleaseControl(made);
      KsReleaseControl(made);
      return KsAddItemToObjectBag(made->Bag, ExAllocatePoolWithTag(NonPagedPool, 8, kTestTag),
                                  nullptr);
    };
    TestFile file(world.Top());
    EXPECT_EQ(file.Open(kTestFilterName), STATUS_SUCCESS);
    EXPECT_EQ(PoolUsageOfTag(kTestTag).Blocks, 1U);
    file.Close();
    EXPECT_EQ(PoolUsageOfTag(kTestTag).Blocks, 0U);
    EXPECT_THAT(world.TakeLog(), ElementsAre("filter create", "filter close"));
  });
}

TEST(KsFilter, IsUndoneWithoutACloseWhenItsDriverFailsToCreateIt) {
  Simulate({}, [] {
    ClassWorld world;
    world.Start();
    const std::size_t before = PoolUsageOfAll().Blocks;
    world.Script.FilterCreate = [&](PKSFILTER filter, PIRP) {
      KsAddItemToObjectBag(filter->Bag, ExAllocatePoolWithTag(NonPagedPool, 8, kTestTag), nullptr);
      return STATUS_ACCESS_DENIED;
    };
    TestFile file(world.Top());
    EXPECT_EQ(file.Open(u""), STATUS_ACCESS_DENIED);
    EXPECT_EQ(file.Object.FsContext, nullptr);
    EXPECT_THAT(world.TakeLog(), ElementsAre("filter create"));
    EXPECT_EQ(PoolUsageOfAll().Blocks, before);
  });
}

KSPIN_DESCRIPTOR_EX EmptyPin() {
  KSPIN_DESCRIPTOR_EX pin{};
  pin.InstancesPossible = 1;
  return pin;
}

TEST(KsFilter, IsUndoneWhicheverAllocationOfItsOpeningFails) {
  Simulate({}, [] {
    ClassWorld world;
    world.Start();
    world.Script.FilterCreate = [](PKSFILTER filter, PIRP) {
      const KSPIN_DESCRIPTOR_EX pin = EmptyPin();
      KsAcquireControl(filter);
      ULONG id = 77;
      NTSTATUS status = KsFilterCreatePinFactory(filter, &pin, &id);
      if (NT_SUCCESS(status)) {
        EXPECT_EQ(id, 0U);
        status = KsFilterCreatePinFactory(filter, &pin, &id);
        if (NT_SUCCESS(status)) {
          EXPECT_EQ(id, 1U);
        }
      }
      KsReleaseControl(filter);
      return status;
    };
    std::uint32_t failed = 0;
    while (true) {
      const std::size_t before = PoolUsageOfAll().Blocks;
      TestFile file(world.Top());
      // The request itself makes the first allocation.
      FailPoolAllocation(failed + 2);
      const NTSTATUS status = file.Open(u"");
      if (IsPoolFailureToCome()) {
        FailPoolAllocation(0);
        file.Close();
        break;
      }
      EXPECT_EQ(status, STATUS_INSUFFICIENT_RESOURCES);
      EXPECT_EQ(PoolUsageOfAll().Blocks, before);
      ++failed;
    }
    EXPECT_EQ(failed, 4U);  // the filter, its bag, two pin factories
  });
}

TEST(KsFilter, OpensManyTimesAtOnce) {
  UnderManySeeds([] {
    ClassWorld world;
    world.Start();
    const auto use = [&world] {
      TestFile file(world.Top());
      EXPECT_EQ(file.Open(u""), STATUS_SUCCESS);
      Sleep(kMillisecond);
      file.Close();
    };
    TestThread first(use);
    TestThread second(use);
    TestThread third(use);
  });
}

TEST(KsFilter, WorksAfterTheFactoryHasGoneWithAStop) {
  Simulate({}, [] {
    ClassWorld world;
    world.Start();
    TestFile file(world.Top());
    EXPECT_EQ(file.Open(u""), STATUS_SUCCESS);
    world.PlugAndPlay(IRP_MN_STOP_DEVICE);
    EXPECT_EQ(file.Property(kTestSet, 4, KSPROPERTY_TYPE_GET, nullptr, 0).Status, STATUS_SUCCESS);
    file.Close();
  });
}

TEST(KsFilter, AnswersUntilRemovalAndClosesAfterIt) {
  UnderManySeeds([] {
    ClassWorld world;
    world.Start();
    PVOID const item = ExAllocatePoolWithTag(NonPagedPool, 8, kTestTag);
    KsAddItemToObjectBag(world.Device->Bag, item, nullptr);
    PDEVICE_OBJECT const device = world.Top();
    TestFile file(device);
    TestFile late(device);
    EXPECT_EQ(file.Open(u""), STATUS_SUCCESS);
    world.TakeLog();
    EXPECT_EQ(world.PlugAndPlay(IRP_MN_SURPRISE_REMOVAL).Status, STATUS_SUCCESS);
    EXPECT_THAT(world.TakeLog(), ElementsAre("surprise-removal", "below 27.23"));
    EXPECT_EQ(late.Open(u""), STATUS_DELETE_PENDING);
    EXPECT_EQ(late.Open(PinName(), &file), STATUS_DELETE_PENDING);
    bool wasAsked = false;
    world.Script.Property = [&](PIRP, PKSIDENTIFIER, PVOID) {
      wasAsked = true;
      return STATUS_UNSUCCESSFUL;
    };
    EXPECT_EQ(file.Property(kTestSet, 4, KSPROPERTY_TYPE_GET, nullptr, 0).Status,
              STATUS_UNSUCCESSFUL);
    EXPECT_TRUE(wasAsked);
    EXPECT_EQ(world.Remove().Status, STATUS_SUCCESS);
    EXPECT_THAT(world.TakeLog(), ElementsAre("remove", "below 27.2"));
    EXPECT_EQ(world.Physical->AttachedDevice, nullptr);
    EXPECT_EQ(world.Driver.DeviceObject, device);
    EXPECT_EQ(PoolUsageOfTag(kTestTag).Blocks, 1U);
    EXPECT_EQ(file.Property(kTestSet, 4, KSPROPERTY_TYPE_GET, nullptr, 0).Status,
              STATUS_DELETE_PENDING);
    file.Close();
    EXPECT_EQ(world.Driver.DeviceObject, nullptr);
    EXPECT_EQ(PoolUsageOfTag(kTestTag).Blocks, 0U);
  });
}

TEST(KsFilter, IsClosedByItsHandleAfterTheDeviceHasGone) {
  UnderManySeeds([] {
    ClassWorld world;
    world.Start();
    std::unique_ptr<DeviceFile> file;
    // The device's name belongs to the device that the bus made.
    EXPECT_EQ(DeviceFile::Open(world.Physical, kTestFilterName, nullptr, file), STATUS_SUCCESS);
    EXPECT_EQ(SurpriseRemoveDevice(world.Physical), STATUS_SUCCESS);
    EXPECT_EQ(RemoveDevice(world.Physical), STATUS_SUCCESS);
    KSPROPERTY request{kTestSet, 4, KSPROPERTY_TYPE_GET};
    ULONG_PTR information = 0;
    EXPECT_EQ(
        file->Control(IOCTL_KS_PROPERTY, {&request, sizeof(request), nullptr, 0}, information),
        STATUS_DELETE_PENDING);
    EXPECT_NE(world.Driver.DeviceObject, nullptr);
    file.reset();
    EXPECT_EQ(world.Driver.DeviceObject, nullptr);
  });
}

TEST(KsDevice, IsRemovedOnlyWhenRequestsUnderWayHaveEnded) {
  UnderManySeeds([] {
    ClassWorld world;
    world.Start();
    std::optional<TestFile> file;
    file.emplace(world.Top());
    EXPECT_EQ(file->Open(u""), STATUS_SUCCESS);
    LONGLONG answeredAt = -1;
    world.Script.Property = [&](PIRP, PKSIDENTIFIER, PVOID) {
      Sleep(5 * kMillisecond);
      answeredAt = Now();
      return STATUS_SUCCESS;
    };
    TestThread user([&] {
      EXPECT_EQ(file->Property(kTestSet, 4, KSPROPERTY_TYPE_GET, nullptr, 0).Status,
                STATUS_SUCCESS);
      file->Close();
    });
    Sleep(kMillisecond);
    EXPECT_EQ(world.Remove().Status, STATUS_SUCCESS);
    EXPECT_EQ(answeredAt, 5 * kMillisecond);
    EXPECT_GE(Now(), answeredAt);
    user.Join();
  });
}

TEST(KsDevice, SurvivesARemovalThatMeetsItsUsers) {
  UnderManySeeds(
      [] {
        ClassWorld world;
        world.Start();
        PDEVICE_OBJECT const device = world.Top();
        std::optional<TestFile> held;
        held.emplace(device);  // as an application's handle references the device object
        EXPECT_EQ(held->Open(u""), STATUS_SUCCESS);
        const auto use = [device] {
          for (int i = 0; i < 3; ++i) {
            TestFile file(device);
            if (!NT_SUCCESS(file.Open(u""))) return;
            file.Property(kTestSet, 4, KSPROPERTY_TYPE_GET, nullptr, 0);
            file.Close();
          }
        };
        TestThread first(use);
        TestThread second(use);
        world.Remove();
        first.Join();
        second.Join();
        EXPECT_EQ(world.Driver.DeviceObject, device);
        held->Close();
      },
      200);
}

TEST(KsFilter, KnowsWhatIsOpenedOnIt) {
  Simulate({}, [] {
    ClassWorld world;
    world.Start();
    TestFile file(world.Top());
    TestFile pin(world.Top());
    EXPECT_EQ(file.Open(u""), STATUS_SUCCESS);
    const std::size_t before = PoolUsageOfAll().Blocks;
    EXPECT_EQ(pin.Open(u"", &file), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(pin.Open(kTestFilterName, &file), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(pin.Open(u"{53172480-4791-11D0-A5D6-28DB04C10000}\\", &file),
              STATUS_OBJECT_NAME_NOT_FOUND);
    const std::size_t needed = sizeof(KSPIN_CONNECT) + sizeof(KSDATAFORMAT);
    for (std::size_t length = 0; length <= needed; length += 2) {
      SCOPED_TRACE(length);
      std::vector<UCHAR> connect(length);
      // No pin with any id exists.
      EXPECT_EQ(pin.OpenBytes(PinName(), connect, file),
                length < needed ? STATUS_INVALID_BUFFER_SIZE : STATUS_INVALID_PARAMETER);
    }
    EXPECT_EQ(pin.Open(u"{146F1A80-4791-11D0-A5D6-28DB04C10000}", &file),
              STATUS_INVALID_BUFFER_SIZE);
    EXPECT_EQ(pin.Open(u"{146F1A80-4791-11D0-A5D6-28DB04C10000}x", &file),
              STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(pin.Open(u"{146F1A80-4791-11D0-A5D6-28DB04C1000", &file),
              STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(pin.Open(u"{146f1a80-4791-11d0-a5d6-28db04c10000}\\", &file),
              STATUS_INVALID_BUFFER_SIZE);
    // A file of no object of the class.
    TestFile nothing(world.Top());
    EXPECT_EQ(pin.Open(PinName(), &nothing), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(PoolUsageOfAll().Blocks, before);
    file.Close();
  });
}

TEST(KsFilter, LivesAsLongAsItsPin) {
  static constexpr KSIDENTIFIER kAny = {{1, 2, 3, {4}}, 0, 0};
  static KSDATARANGE range{};
  static constexpr PKSDATARANGE kRanges[] = {&range};
  Simulate({}, [] {
    range = {};
    range.FormatSize = sizeof(KSDATARANGE);
    range.MajorFormat = {5, 6, 7, {8}};
    ClassWorld world;
    world.Start();
    world.Script.FilterCreate = [](PKSFILTER filter, PIRP) {
      KSPIN_DESCRIPTOR_EX pin = EmptyPin();
      pin.PinDescriptor.InterfacesCount = pin.PinDescriptor.MediumsCount = 1;
      pin.PinDescriptor.Interfaces = pin.PinDescriptor.Mediums = &kAny;
      pin.PinDescriptor.DataRangesCount = 1;
      pin.PinDescriptor.DataRanges = kRanges;
      pin.PinDescriptor.DataFlow = KSPIN_DATAFLOW_OUT;
      pin.PinDescriptor.Communication = KSPIN_COMMUNICATION_BOTH;
      KsAcquireControl(filter);
      const NTSTATUS status = KsFilterCreatePinFactory(filter, &pin, nullptr);
      KsReleaseControl(filter);
      return status;
    };
    TestFile file(world.Top());
    TestFile pin(world.Top());
    EXPECT_EQ(file.Open(u""), STATUS_SUCCESS);
    KSPIN_CONNECT connect{};
    connect.Interface = connect.Medium = kAny;
    std::vector<UCHAR> behind(sizeof(connect) + sizeof(range));
    std::memcpy(behind.data(), &connect, sizeof(connect));
    std::memcpy(behind.data() + sizeof(connect), &range, sizeof(range));
    ASSERT_EQ(pin.OpenBytes(PinName(), behind, file), STATUS_SUCCESS);
    auto* const head = static_cast<UCHAR*>(pin.Object.FsContext);
    auto* const published = reinterpret_cast<PKSPIN>(head + 16);
    EXPECT_EQ(KsGetDevice(published), world.Device);
    KsAcquireControl(published);
    KsReleaseControl(published);
    file.Close();
    // The filter still answers for it.
    KSSTATE state = KSSTATE_RUN;
    EXPECT_EQ(pin.Property(KSPROPSETID_Connection, KSPROPERTY_CONNECTION_STATE, KSPROPERTY_TYPE_GET,
                           &state, sizeof(state))
                  .Status,
              STATUS_SUCCESS);
    EXPECT_EQ(state, KSSTATE_STOP);
    world.Remove();
    EXPECT_NE(world.Driver.DeviceObject, nullptr);
    pin.Close();
    EXPECT_EQ(world.Driver.DeviceObject, nullptr);
  });
}

TEST(KsFilter, RefusesOtherControlCodesAndAFileOfNoObject) {
  Simulate({}, [] {
    ClassWorld world;
    world.Start();
    TestFile file(world.Top());
    TestFile nothing(world.Top());
    EXPECT_EQ(file.Open(u""), STATUS_SUCCESS);
    KSPROPERTY request{};
    for (const ULONG code : {IOCTL_KS_METHOD, IOCTL_KS_DISABLE_EVENT, IOCTL_KS_READ_STREAM,
                             IOCTL_KS_WRITE_STREAM, IOCTL_KS_RESET_STATE, 0U}) {
      EXPECT_EQ(file.Control(code, &request, sizeof(request), nullptr, 0),
                (Reply{STATUS_INVALID_DEVICE_REQUEST, 0}));
    }
    EXPECT_EQ(nothing.Control(IOCTL_KS_PROPERTY, &request, sizeof(request), nullptr, 0),
              (Reply{STATUS_INVALID_DEVICE_REQUEST, 0}));
    nothing.Close();
    file.Close();
  });
}

}  // namespace
}  // namespace lidcam::host
