// The class's mutexes: which of the driver's entries are called under them, and what the class
// records of a driver that breaks their rules.

#include "platform/host/ks/device/class_rules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "platform/host/ks/device/device_block.h"
#include "tests/platform/ks/class_world.h"
#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::host {
namespace {

using testing::Pair;
using testing::UnorderedElementsAre;

DeviceBlock& BlockOfDevice(PKSDEVICE device) {
  return *static_cast<DeviceBlock*>(device);
}

FilterBlock& BlockOfFilter(PKSFILTER filter) {
  return *CONTAINING_RECORD(filter, FilterBlock, Filter);
}

bool IsHeldHere(const ClassMutex& mutex) {
  return mutex.Holder == KeGetCurrentThread();
}

TEST(ClassRules, TheDevicesMutexIsHeldForStartPostStartAndPowerAndNotForRemovals) {
  Simulate({}, [] {
    ClassWorld world;
    std::map<std::string, bool> held;
    PKSDEVICE added = nullptr;
    const auto note = [&held, &added](const char* entry) {
      return [&held, &added, entry](PKSDEVICE device) {
        added = device;
        held[entry] = IsHeldHere(BlockOfDevice(device).Device);
        return STATUS_SUCCESS;
      };
    };
    world.Script.Add = note("add");
    world.Script.Start = note("start");
    world.Script.PostStart = note("post-start");
    world.Script.SetPower = note("set-power");
    world.Script.SurpriseRemoval = note("surprise-removal");
    world.Script.Remove = note("remove");
    world.Add();
    world.PlugAndPlay(IRP_MN_START_DEVICE);
    world.SetPower(PowerDeviceD3);
    EXPECT_FALSE(IsHeldHere(BlockOfDevice(added).Device));
    world.PlugAndPlay(IRP_MN_SURPRISE_REMOVAL);
    world.Remove();
    EXPECT_THAT(held, UnorderedElementsAre(Pair("add", false), Pair("start", true),
                                           Pair("post-start", true), Pair("set-power", true),
                                           Pair("surprise-removal", false), Pair("remove", false)));
  });
}

TEST(ClassRules, AFilterIsMadeUnderItsControlMutex) {
  Simulate({}, [] {
    ClassWorld world;
    world.Start();
    bool isHeld = false;
    world.Script.FilterCreate = [&isHeld](PKSFILTER filter, PIRP) {
      isHeld = IsHeldHere(BlockOfFilter(filter).Control);
      return STATUS_SUCCESS;
    };
    TestFile file(world.Top());
    EXPECT_EQ(file.Open(u""), STATUS_SUCCESS);
    EXPECT_TRUE(isHeld);
    file.Close();
    world.Remove();
  });
}

TEST(ClassRules, ARecursionPassesAndIsNotedWithItsCall) {
  Simulate({}, [] {
    ClassWorld world;
    world.Script.SetPower = [](PKSDEVICE device) {
      KsAcquireDevice(device);
      KsAcquireDevice(device);
      KsReleaseDevice(device);
      KsReleaseDevice(device);
    };
    world.Start();
    DeviceBlock& device = BlockOfDevice(world.Device);
    EXPECT_EQ(DeparturesOf(device, ClassRule::DeviceMutexOnce, ClassCall::SetPower), 0U);
    world.SetPower(PowerDeviceD3);
    EXPECT_EQ(DeparturesOf(device, ClassRule::DeviceMutexOnce, ClassCall::SetPower), 2U);
    EXPECT_EQ(DeparturesOf(device, ClassRule::DeviceMutexOnce, ClassCall::Start), 0U);
    EXPECT_EQ(device.Device.Holder, nullptr);
    world.Remove();
  });
}

TEST(ClassRules, OneHoldOfTheDeviceByADriverThatIsCalledWithoutItIsNoDeparture) {
  Simulate({}, [] {
    ClassWorld world;
    world.Start();
    KsAcquireDevice(world.Device);
    KsReleaseDevice(world.Device);
    for (ULONG rule = 0; rule < static_cast<ULONG>(ClassRule::Count); ++rule) {
      for (ULONG call = 0; call < static_cast<ULONG>(ClassCall::Count); ++call) {
        EXPECT_EQ(DeparturesOf(BlockOfDevice(world.Device), static_cast<ClassRule>(rule),
                               static_cast<ClassCall>(call)),
                  0U);
      }
    }
    world.Remove();
  });
}

TEST(ClassRules, TheControlTakenAgainAndTheDeviceTakenUnderItAreNotedWithTheirCall) {
  Simulate({}, [] {
    ClassWorld world;
    world.Start();
    world.Script.FilterCreate = [](PKSFILTER filter, PIRP) {
      KsAcquireControl(filter);
      KsAcquireDevice(KsGetDevice(filter));
      KsReleaseDevice(KsGetDevice(filter));
      KsReleaseControl(filter);
      return STATUS_SUCCESS;
    };
    TestFile file(world.Top());
    EXPECT_EQ(file.Open(u""), STATUS_SUCCESS);
    DeviceBlock& device = BlockOfDevice(world.Device);
    EXPECT_EQ(DeparturesOf(device, ClassRule::ControlMutexOnce, ClassCall::FilterCreate), 1U);
    EXPECT_EQ(DeparturesOf(device, ClassRule::DeviceBeforeControl, ClassCall::FilterCreate), 1U);
    // Another thread, which holds no control mutex, breaks no rule.
    TestThread other([&world] {
      KsAcquireDevice(world.Device);
      KsReleaseDevice(world.Device);
    });
    other.Join();
    EXPECT_EQ(DeparturesOf(device, ClassRule::DeviceBeforeControl, ClassCall::FilterCreate), 1U);
    file.Close();
    world.Remove();
  });
}

// A world may stop at any point of its threads, also while one releases a mutex of the class.
TEST(ClassRules, AWorldThatStopsUnwindsThreadsThatAreInTheClass) {
  for (std::uint64_t seed = 1; seed <= 60; ++seed) {
    const auto stop = [seed] {
      ClassWorld world;
      world.Start();
      TestThread application([&world] {
        for (;;) {
          TestFile file(world.Top());
          file.Open(u"");
          file.Close();
        }
      });
      for (std::uint64_t i = 0; i < 10 * seed; ++i) KeGetCurrentIrql();
      ExFreePool(&world);
    };
    EXPECT_THAT(ViolationOf(stop, {.Seed = seed}), testing::HasSubstr("ExFreePool")) << seed;
  }
}

}  // namespace
}  // namespace lidcam::host
