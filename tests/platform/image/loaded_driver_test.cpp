#include "platform/image/loaded_driver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <initializer_list>
#include <set>
#include <string>
#include <string_view>

#include "platform/host/nt/io/device_object.h"
#include "platform/host/nt/memory/pool_arena.h"
#include "platform/host/nt/scheduling/violation.h"
#include "platform/host/nt/simulation/simulated_scheduler.h"
#include "platform/host/nt/verifier/verifier.h"
#include "tests/platform/image/made_image.h"

namespace lidcam::image {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;

// A function whose address the driver gives away, as the host calls it.
template <typename Function>
Function Callback(const LoadedDriver& driver, MadeImage::Function number) {
  Function function = nullptr;
  std::memcpy(&function, driver.Base() + MadeImage::kPointers + 8 * number, sizeof(function));
  return function;
}

void RunAsThread(PKSTART_ROUTINE routine, PVOID context) {
  HANDLE handle = nullptr;
  PVOID thread = nullptr;
  ASSERT_EQ(PsCreateSystemThread(&handle, 0, nullptr, nullptr, nullptr, routine, context),
            STATUS_SUCCESS);
  ASSERT_EQ(ObReferenceObjectByHandle(handle, 0, nullptr, KernelMode, &thread, nullptr),
            STATUS_SUCCESS);
  ZwClose(handle);
  EXPECT_EQ(KeWaitForSingleObject(thread, Executive, KernelMode, FALSE, nullptr), STATUS_SUCCESS);
  ObDereferenceObject(thread);
}

std::string ViolationOf(MadeImage::Function function) {
  const host::VerifierCapture capture;
  const ImageFile file = MadeImage().File();
  const LoadedDriver driver(file);
  try {
    host::Simulate({}, [&] { Callback<PKSTART_ROUTINE>(driver, function)(nullptr); });
  } catch (const host::KernelStopped&) {
  }
  const auto violations = capture.Violations();
  return violations.empty() ? "" : violations.front().Call + ": " + violations.front().What;
}

TEST(LoadedDriver, ItsEntryRunsWithTheThreadsInterruptLevel) {
  const ImageFile file = MadeImage().File();
  LoadedDriver driver(file);
  host::Simulate({}, [&] {
    DRIVER_OBJECT object{};
    EXPECT_EQ(driver.Start(&object, nullptr), PASSIVE_LEVEL);
    KIRQL before = 0;
    KeRaiseIrql(DISPATCH_LEVEL, &before);
    const auto entry = Callback<PDRIVER_INITIALIZE>(driver, MadeImage::kEntry);
    EXPECT_EQ(entry(&object, nullptr), DISPATCH_LEVEL);
    KeLowerIrql(before);
  });
}

TEST(LoadedDriver, AThreadThatTheDriverEndsUnwindsThroughItsFunctions) {
  const ImageFile file = MadeImage().File();
  const LoadedDriver driver(file);
  host::Simulate(
      {}, [&] { RunAsThread(Callback<PKSTART_ROUTINE>(driver, MadeImage::kEndsThread), nullptr); });
}

TEST(LoadedDriver, ItsSpinLoopsLetOtherThreadsRun) {
  const ImageFile file = MadeImage().File();
  const LoadedDriver driver(file);
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    host::Simulate({.Seed = seed}, [&] {
      volatile int number = 0;
      HANDLE handle = nullptr;
      PsCreateSystemThread(
          &handle, 0, nullptr, nullptr, nullptr,
          [](PVOID context) NTAPI {
            KeGetCurrentThread();
            *static_cast<volatile int*>(context) = 1;
          },
          const_cast<int*>(&number));
      ZwClose(handle);
      Callback<PKSTART_ROUTINE>(driver, MadeImage::kSpins)(const_cast<int*>(&number));
      EXPECT_EQ(number, 1);
    });
  }
}

TEST(LoadedDriver, BytesOfAPauseInAnotherInstructionStay) {
  const ImageFile file = MadeImage().File();
  const LoadedDriver driver(file);
  using Number = std::uint32_t(NTAPI*)();
  host::Simulate({},
                 [&] { EXPECT_EQ(Callback<Number>(driver, MadeImage::kNumber)(), 0xFFFE90F3U); });
}

TEST(LoadedDriver, AFaultIsAViolationThatNamesItsPlace) {
  EXPECT_EQ(ViolationOf(MadeImage::kReadsNull),
            "driver: an access to memory that isn't there (0x0) at made.sys+0x1044");
}

TEST(LoadedDriver, AFaultInAFillThatItCallsIsAViolationThatNamesTheCall) {
  MadeImage made;
  made.PutText(MadeImage::OffsetOf(MadeImage::kNames + 0x60), std::string_view("memset", 7));
  const host::VerifierCapture capture;
  const ImageFile file = made.File();
  const LoadedDriver driver(file);
  using Fill = void*(NTAPI*)(void* memory, int value, SIZE_T size);
  try {
    host::Simulate({}, [&] { Callback<Fill>(driver, MadeImage::kEndsThread)(nullptr, 0, 8); });
  } catch (const host::KernelStopped&) {
  }
  ASSERT_EQ(capture.Violations().size(), 1U);
  EXPECT_EQ(capture.Violations().front().What,
            "an access to memory that isn't there (0x0) at made.sys+0x102b");
}

// What the driver's read behind a block of 24 bytes, or of a freed one, is reported as.
std::string ViolationAtGuardPage(bool isFreed) {
  const host::VerifierCapture capture;
  const ImageFile file = MadeImage().File();
  const LoadedDriver driver(file);
  host::SetPoolGuardPages(true);
  try {
    host::Simulate({}, [&] {
      auto* const block =
          static_cast<std::uint8_t*>(ExAllocatePoolWithTag(NonPagedPool, 32, 0x74736554));
      block[31] = 1;
      if (isFreed) ExFreePool(block);
      // Reads the number until it isn't zero.
      Callback<PKSTART_ROUTINE>(driver, MadeImage::kSpins)(isFreed ? block : block + 32);
    });
  } catch (const host::KernelStopped&) {
  }
  host::SetPoolGuardPages(false);
  const auto violations = capture.Violations();
  return violations.empty() ? "" : violations.front().What;
}

TEST(LoadedDriver, AReadBehindABlockStopsItAtTheInstruction) {
  EXPECT_THAT(ViolationAtGuardPage(false),
              ContainsRegex(
                  "memory .*\\(32 bytes, tag 'Test'\\) was used at byte 32 at made.sys\\+0x10a0"));
}

TEST(LoadedDriver, AReadOfAFreedBlockStopsItAtTheInstruction) {
  EXPECT_THAT(ViolationAtGuardPage(true),
              ContainsRegex("was used at byte 0 after it had been freed at made.sys\\+0x10a0"));
}

TEST(LoadedDriver, CodeThatRunsBehindItsUnloadingIsAViolation) {
  const host::VerifierCapture capture;
  const ImageFile file = MadeImage().File();
  LoadedDriver driver(file);
  int number = 0;
  try {
    host::Simulate({}, [&] {
      const auto routine = Callback<PKSTART_ROUTINE>(driver, MadeImage::kSpins);
      number = 1;
      routine(&number);
      driver.Unload();
      routine(&number);
    });
  } catch (const host::KernelStopped&) {
  }
  ASSERT_EQ(capture.Violations().size(), 1U);
  EXPECT_EQ(capture.Violations().front().What,
            "its code runs after it was unloaded, at made.sys+0x10a0");
}

TEST(LoadedDriver, ACallWithAStackThatIsNotAlignedIsAViolation) {
  EXPECT_EQ(ViolationOf(MadeImage::kMisaligned),
            "KeQueryPerformanceCounter: the driver calls with a stack that isn't aligned");
}

TEST(LoadedDriver, ACallWithTheDirectionFlagSetIsAViolation) {
  EXPECT_EQ(ViolationOf(MadeImage::kBackwards),
            "KeQueryPerformanceCounter: the driver calls with the direction flag set");
}

TEST(LoadedDriver, AnImportThatTheHostLacksIsNamed) {
  MadeImage made;
  made.PutText(MadeImage::OffsetOf(MadeImage::kNames + 0x60), "PsTerminateOtherThreads");
  const ImageFile file = made.File();
  try {
    const LoadedDriver driver(file);
    FAIL() << "it is loaded";
  } catch (const ImageError& error) {
    EXPECT_THAT(error.what(),
                HasSubstr("made.sys: imports PsTerminateOtherThreads of ntoskrnl.exe"));
  }
}

TEST(LoadedDriver, UnwindInformationOfAnUnknownKindIsRefused) {
  MadeImage made;
  made.Put16(MadeImage::OffsetOf(MadeImage::kUnwind) + 4, 0x4A04);
  const ImageFile file = made.File();
  EXPECT_THROW(LoadedDriver{file}, ImageError);
}

// A coverage file in which blocks begin at the given functions.
class CoverageFile {
 public:
  CoverageFile(std::size_t size, std::initializer_list<MadeImage::Function> blocks)
      : path_(testing::TempDir() + "blocks") {
    std::string contents(size, '\0');
    for (const MadeImage::Function block : blocks) contents[MadeImage::AddressOf(block)] = 1;
    std::ofstream(path_, std::ios::binary) << contents;
  }
  [[nodiscard]] const std::string& Path() const { return path_; }
  [[nodiscard]] int At(MadeImage::Function block) const {
    std::ifstream file(path_, std::ios::binary);
    file.seekg(MadeImage::AddressOf(block));
    return file.get();
  }

 private:
  std::string path_;
};

TEST(LoadedDriver, ABlockThatRunsIsNotedOnceAndThoseThatDoNotRunAreLeft) {
  const ImageFile file = MadeImage().File();
  const CoverageFile blocks(file.Size(), {MadeImage::kEntry, MadeImage::kReadsNull});
  BlockCoverage coverage(blocks.Path(), file.Size());
  LoadedDriver driver(file, &coverage);
  host::Simulate({}, [&] {
    DRIVER_OBJECT object{};
    EXPECT_EQ(driver.Start(&object, nullptr), PASSIVE_LEVEL);
    const auto entry = Callback<PDRIVER_INITIALIZE>(driver, MadeImage::kEntry);
    EXPECT_EQ(entry(&object, nullptr), PASSIVE_LEVEL);
  });
  EXPECT_EQ(blocks.At(MadeImage::kEntry), 2);
  EXPECT_EQ(blocks.At(MadeImage::kReadsNull), 1);
  EXPECT_EQ(blocks.At(MadeImage::kSpins), 0);
  EXPECT_EQ(driver.Base()[MadeImage::AddressOf(MadeImage::kEntry)], 0x48);
}

TEST(LoadedDriver, TheCoverageOfAnotherImageIsRefused) {
  const CoverageFile blocks(100, {});
  EXPECT_THROW(BlockCoverage(blocks.Path(), 0x6000), ImageError);
}

TEST(LoadedDriver, ItsBaseDiffersFromLoadToLoad) {
  const ImageFile file = MadeImage().File();
  std::set<const void*> bases;
  for (int i = 0; i < 10; ++i) bases.insert(LoadedDriver(file).Base());
  EXPECT_GT(bases.size(), 1U);
}

using LoadedDriverDeathTest = ::testing::Test;

TEST(LoadedDriverDeathTest, ItsImportTableAndConstantsAreReadOnly) {
  const ImageFile file = MadeImage().File();
  const LoadedDriver driver(file);
  EXPECT_DEATH(driver.Base()[MadeImage::kSlots] = 0, "");
  EXPECT_DEATH(driver.Base()[MadeImage::kPointers] = 0, "");
  EXPECT_DEATH(driver.Base()[MadeImage::kText] = 0, "");
}

TEST(LoadedDriverDeathTest, WhatOnlyTheEntryNeedsIsGoneBehindIt) {
  const ImageFile file = MadeImage().File();
  LoadedDriver driver(file);
  DRIVER_OBJECT object{};
  EXPECT_EQ(driver.Base()[MadeImage::kRelocations], 0);
  host::Simulate({}, [&] { driver.Start(&object, nullptr); });
  EXPECT_DEATH(static_cast<void>(
                   static_cast<volatile std::uint8_t*>(driver.Base())[MadeImage::kRelocations]),
               "");
}

}  // namespace
}  // namespace lidcam::image
