// Devices and pins of the streaming class: mutex, object bag and processing.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "platform/host/ks/device/streaming_device.h"
#include "platform/host/ks/pin/requests/streaming_pin.h"
#include "platform/host/nt/io/device_object.h"
#include "platform/host/nt/memory/pool.h"
#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr ULONG kTag = 0x20747354;  // "Tst "

std::vector<PVOID>* g_freed = nullptr;

void NTAPI NoteFreed(PVOID item) {
  g_freed->push_back(item);
}

// A device stack of one physical device object, with a streaming device on it.
struct StreamingWorld {
  StreamingWorld() {
    InitializeDriverObject(Driver);
    IoCreateDevice(&Driver, 0, nullptr, FILE_DEVICE_UNKNOWN, 0, FALSE, &Physical);
    Physical->Flags &= ~DO_DEVICE_INITIALIZING;
    Device.emplace(&Driver, Physical);
    g_freed = &Freed;
  }
  StreamingWorld(const StreamingWorld&) = delete;
  StreamingWorld& operator=(const StreamingWorld&) = delete;
  ~StreamingWorld() noexcept(false) {
    if (std::uncaught_exceptions() != 0) return;
    Device.reset();
    IoDeleteDevice(Physical);
  }

  DRIVER_OBJECT Driver{};
  PDEVICE_OBJECT Physical = nullptr;
  std::vector<PVOID> Freed;
  std::optional<StreamingDevice> Device;
};

TEST(StreamingDevice, StandsOnTopOfItsDeviceStack) {
  UnderManySeeds([] {
    StreamingWorld world;
    const KSDEVICE& device = *world.Device;
    EXPECT_EQ(device.PhysicalDeviceObject, world.Physical);
    EXPECT_EQ(device.NextDeviceObject, world.Physical);
    EXPECT_EQ(world.Physical->AttachedDevice, device.FunctionalDeviceObject);
    EXPECT_EQ(device.FunctionalDeviceObject->StackSize, world.Physical->StackSize + 1);
    EXPECT_NE(device.Bag, nullptr);
  });
}

TEST(StreamingDevice, MutexHoldsOthersBackAndMayBeTakenTwice) {
  UnderManySeeds([] {
    StreamingWorld world;
    LONGLONG takenAt = -1;
    KsAcquireDevice(&*world.Device);
    KsAcquireDevice(&*world.Device);
    TestThread other([&] {
      KsAcquireDevice(&*world.Device);
      takenAt = Now();
      KsReleaseDevice(&*world.Device);
    });
    Sleep(kMillisecond);
    KsReleaseDevice(&*world.Device);
    Sleep(kMillisecond);
    KsReleaseDevice(&*world.Device);
    other.Join();
    EXPECT_EQ(takenAt, 2 * kMillisecond);
  });
}

TEST(StreamingDevice, MutexIsForPassiveLevel) {
  StreamingWorld world;
  const VerifierCapture capture;
  EXPECT_THAT(capture.Of([&world] {
    KIRQL before = 0;
    KeRaiseIrql(DISPATCH_LEVEL, &before);
    KsAcquireDevice(&*world.Device);
  }),
              HasSubstr("KeWaitForSingleObject"));
}

TEST(ObjectBag, FreesItsItemsTheYoungestFirstWhenTheDeviceGoes) {
  UnderManySeeds([] {
    const std::size_t before = PoolUsageOfAll().Blocks;
    std::vector<PVOID> freed;
    int items[3];
    {
      StreamingWorld world;
      g_freed = &freed;
      KsAcquireDevice(&*world.Device);
      for (int& item : items) {
        EXPECT_EQ(KsAddItemToObjectBag(world.Device->Bag, &item, NoteFreed), STATUS_SUCCESS);
      }
      PVOID const memory = ExAllocatePoolWithTag(NonPagedPool, 24, kTag);
      EXPECT_EQ(KsAddItemToObjectBag(world.Device->Bag, memory, nullptr), STATUS_SUCCESS);
      KsReleaseDevice(&*world.Device);
      EXPECT_THAT(freed, IsEmpty());
    }
    EXPECT_THAT(freed, ElementsAre(&items[2], &items[1], &items[0]));
    EXPECT_EQ(PoolUsageOfAll().Blocks, before);
  });
}

TEST(ObjectBag, GivesAnItemBackFreedOrNotAndTellsHowOftenItWasIn) {
  Simulate({}, [] {
    StreamingWorld world;
    int first = 0;
    int second = 0;
    KsAcquireDevice(&*world.Device);
    const KSOBJECT_BAG bag = world.Device->Bag;
    EXPECT_EQ(KsRemoveItemFromObjectBag(bag, &first, TRUE), 0U);
    KsAddItemToObjectBag(bag, &first, NoteFreed);
    KsAddItemToObjectBag(bag, &first, NoteFreed);
    KsAddItemToObjectBag(bag, &second, NoteFreed);
    EXPECT_EQ(KsRemoveItemFromObjectBag(bag, &first, TRUE), 2U);
    EXPECT_THAT(world.Freed, IsEmpty());
    EXPECT_EQ(KsRemoveItemFromObjectBag(bag, &first, TRUE), 1U);
    EXPECT_THAT(world.Freed, ElementsAre(&first));
    EXPECT_EQ(KsRemoveItemFromObjectBag(bag, &second, FALSE), 1U);
    EXPECT_EQ(KsRemoveItemFromObjectBag(bag, &second, FALSE), 0U);
    EXPECT_THAT(world.Freed, ElementsAre(&first));
    KsReleaseDevice(&*world.Device);
  });
}

TEST(ObjectBag, FailsWithoutMemory) {
  Simulate({}, [] {
    StreamingWorld world;
    int item = 0;
    KsAcquireDevice(&*world.Device);
    FailPoolAllocation(1);
    EXPECT_EQ(KsAddItemToObjectBag(world.Device->Bag, &item, NoteFreed),
              STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(KsRemoveItemFromObjectBag(world.Device->Bag, &item, TRUE), 0U);
    KsReleaseDevice(&*world.Device);
  });
}

TEST(ObjectBag, TakesTheDevicesMutexItself) {
  UnderManySeeds([] {
    StreamingWorld world;
    LONGLONG addedAt = -1;
    KsAcquireDevice(&*world.Device);
    TestThread other([&] {
      KsAddItemToObjectBag(world.Device->Bag, &world, NoteFreed);
      addedAt = Now();
    });
    Sleep(kMillisecond);
    KsReleaseDevice(&*world.Device);
    other.Join();
    EXPECT_EQ(addedAt, kMillisecond);
    EXPECT_EQ(KsRemoveItemFromObjectBag(world.Device->Bag, &world, TRUE), 1U);
  });
}

TEST(ObjectBag, FreesItsItemsWithoutTheMutexWhenItsObjectGoes) {
  Simulate({}, [] {
    static PKSDEVICE device = nullptr;
    static bool wasFree = false;
    wasFree = false;
    StreamingWorld world;
    device = &*world.Device;
    KsAddItemToObjectBag(device->Bag, &world, [](PVOID) NTAPI {
      TestThread other([] {
        KsAcquireDevice(device);
        wasFree = true;
        KsReleaseDevice(device);
      });
      other.Join();
    });
    world.Device.reset();
    EXPECT_TRUE(wasFree);
    world.Device.emplace(&world.Driver, world.Physical);
  });
}

TEST(ObjectBag, EditsACopyOfItsOwnThatGrowsWithWhatIsAskedFor) {
  Simulate({}, [] {
    StreamingWorld world;
    const KSOBJECT_BAG bag = world.Device->Bag;
    const UCHAR constant[4] = {1, 2, 3, 4};
    PVOID item = const_cast<UCHAR*>(constant);
    const auto bytes = [&item](std::size_t count) {
      const auto* const at = static_cast<const UCHAR*>(item);
      return std::vector<int>(at, at + count);
    };
    EXPECT_EQ(_KsEdit(bag, &item, 6, 4, kTag), STATUS_SUCCESS);
    PVOID const first = item;
    EXPECT_NE(first, constant);
    EXPECT_THAT(bytes(6), ElementsAre(1, 2, 3, 4, 0, 0));
    EXPECT_EQ(_KsEdit(bag, &item, 6, 6, kTag), STATUS_SUCCESS);
    EXPECT_EQ(_KsEdit(bag, &item, 3, 6, kTag), STATUS_SUCCESS);
    EXPECT_EQ(item, first);
    static_cast<UCHAR*>(item)[5] = 9;
    EXPECT_EQ(_KsEdit(bag, &item, 8, 6, kTag), STATUS_SUCCESS);
    EXPECT_THAT(bytes(8), ElementsAre(1, 2, 3, 4, 0, 9, 0, 0));
    EXPECT_EQ(PoolUsageOfTag(kTag).Blocks, 1U);  // the smaller one is freed
    for (std::uint32_t failing = 1; failing <= 2; ++failing) {
      PVOID const before = item;
      FailPoolAllocation(failing);
      EXPECT_EQ(_KsEdit(bag, &item, 16, 8, kTag), STATUS_INSUFFICIENT_RESOURCES);
      EXPECT_EQ(item, before);
    }
    PVOID other = const_cast<UCHAR*>(constant);
    EXPECT_EQ(_KsEdit(bag, &other, 2, 4, kTag), STATUS_SUCCESS);
    EXPECT_EQ(PoolUsageOfTag(kTag).Bytes, 10U);
  });
}

// The record of a pin's process routine; the pin's Context points to it.
struct ProcessLog {
  LONG Calls = 0;
  LONG Running = 0;
  LONGLONG Duration = 0;
  bool WasAlone = true;
  bool WasPassive = true;
};

NTSTATUS NTAPI Process(PKSPIN pin) {
  auto& log = *static_cast<ProcessLog*>(pin->Context);
  if (InterlockedIncrement(&log.Running) != 1) log.WasAlone = false;
  if (KeGetCurrentIrql() != PASSIVE_LEVEL) log.WasPassive = false;
  ++log.Calls;
  if (log.Duration != 0) Sleep(log.Duration);
  InterlockedDecrement(&log.Running);
  return STATUS_SUCCESS;
}

TEST(StreamingPin, ProcessesOnItsOwnWorkerAtPassiveLevelForAnyCaller) {
  UnderManySeeds([] {
    StreamingWorld world;
    KSDATAFORMAT format{};
    ProcessLog log;
    {
      StreamingPin pin(*world.Device, Process, &format);
      pin.Context = &log;
      EXPECT_EQ(pin.ConnectionFormat, &format);
      for (const BOOLEAN asynchronous : {BOOLEAN{TRUE}, BOOLEAN{FALSE}}) {
        KIRQL before = 0;
        KeRaiseIrql(DISPATCH_LEVEL, &before);
        KsPinAttemptProcessing(&pin, asynchronous);
        KeLowerIrql(before);
        Sleep(kMillisecond);
      }
    }
    EXPECT_EQ(log.Calls, 2);
    EXPECT_TRUE(log.WasAlone);
    EXPECT_TRUE(log.WasPassive);
  });
}

TEST(StreamingPin, RunsOnceMoreForAllAttemptsDuringARunAndNeverTwiceAtOnce) {
  UnderManySeeds([] {
    StreamingWorld world;
    ProcessLog log;
    log.Duration = 10 * kMillisecond;
    {
      StreamingPin pin(*world.Device, Process, nullptr);
      pin.Context = &log;
      KsPinAttemptProcessing(&pin, TRUE);
      Sleep(kMillisecond);
      for (int i = 0; i < 5; ++i) KsPinAttemptProcessing(&pin, TRUE);
      Sleep(kSecond);
    }
    EXPECT_EQ(log.Calls, 2);
    EXPECT_TRUE(log.WasAlone);
  });
}

TEST(StreamingPin, GoesOnlyAfterItsProcessRoutineHasReturnedAndEmptiesItsBag) {
  UnderManySeeds([] {
    StreamingWorld world;
    ProcessLog log;
    log.Duration = 10 * kMillisecond;
    {
      StreamingPin pin(*world.Device, Process, nullptr);
      pin.Context = &log;
      KsAcquireDevice(&*world.Device);
      KsAddItemToObjectBag(pin.Bag, &log, NoteFreed);
      KsReleaseDevice(&*world.Device);
      KsPinAttemptProcessing(&pin, TRUE);
      Sleep(kMillisecond);
    }
    EXPECT_EQ(Now(), 10 * kMillisecond);
    EXPECT_EQ(log.Running, 0);
    EXPECT_THAT(world.Freed, ElementsAre(&log));
  });
}

TEST(StreamingPin, WorksInRealTimeToo) {
  StreamingWorld world;
  ProcessLog log;
  {
    StreamingPin pin(*world.Device, Process, nullptr);
    pin.Context = &log;
    KsPinAttemptProcessing(&pin, TRUE);
    Sleep(50 * kMillisecond);
  }
  EXPECT_EQ(log.Calls, 1);
}

}  // namespace
}  // namespace lidcam::host
