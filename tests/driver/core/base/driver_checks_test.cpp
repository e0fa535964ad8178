// Calls that a driver must not make are reported as violations that name the operation.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <string>

#include "driver/avstream/device/rundown.h"
#include "driver/core/base/camera_memory.h"
#include "driver/core/base/reference_counted_memory.h"
#include "driver/core/control/camera_lifecycle.h"
#include "driver/core/control/control_codes.h"
#include "driver/core/control/stream_modes.h"
#include "driver/core/settings/settings_store.h"
#include "driver/frame/assembly/frame_assembly.h"
#include "driver/sensor/controls/image_controls.h"
#include "driver/sensor/identification/sensor_identification.h"
#include "driver/sensor/modes/mode_programming.h"
#include "driver/sensor/modes/setup_registers.h"
#include "driver/sensor/register_sets/register_set_file.h"
#include "driver/sensor/registers/register_access.h"
#include "driver/usb/transfers/transfer_ownership.h"
#include "platform/host/nt/verifier/verifier.h"
#include "tests/base/pattern.h"

namespace lidcam::test {
namespace {

std::string ViolationOf(const std::function<void()>& action) {
  const host::VerifierCapture capture;
  return capture.Of(action);
}

std::string ViolationAt(KIRQL level, const std::function<void()>& action) {
  return ViolationOf([&] {
    KIRQL before = 0;
    KeRaiseIrql(level, &before);
    action();
    KeLowerIrql(before);
  });
}

struct PassiveRow {
  const char* Name;
  void (*Call)(CameraContext& camera);
};

const PassiveRow kPassiveRows[] = {
    {"DestroyCameraContext", [](CameraContext& camera) { DestroyCameraContext(&camera); }},
    {"EndStream", [](CameraContext& camera) { EndStream(camera); }},
    {"ResumeCamera", [](CameraContext& camera) { ResumeCamera(camera); }},
    {"WaitMilliseconds", [](CameraContext&) { WaitMilliseconds(1); }},
    {"SetControl", [](CameraContext& camera) { SetControl(camera, {}); }},
    {"SelectStreamMode", [](CameraContext& camera) { SelectStreamMode(camera, {}); }},
    {"LoadSettings", [](CameraContext& camera) { LoadSettings(camera, kSettingsSubkey); }},
    {"SaveSettings", [](CameraContext& camera) { SaveSettings(camera, kSettingsSubkey); }},
    {"ApplyImageControl", [](CameraContext& camera) { ApplyImageControl(1, camera); }},
    {"IdentifySensor", [](CameraContext& camera) { IdentifySensor(camera, nullptr); }},
    {"ProgramStreamMode", [](CameraContext& camera) { ProgramStreamMode(camera); }},
    {"ApplySetupRegisters", [](CameraContext& camera) { ApplySetupRegisters(camera); }},
    {"LoadRegisterSets", [](CameraContext& camera) { LoadRegisterSets(camera); }},
    {"WriteBridgeRegister", [](CameraContext& camera) { WriteBridgeRegister(camera, 0xFF0A, 0); }},
};

TEST(DriverChecks, WhatBlocksMayNotBeCalledAtDispatchLevel) {
  CameraContext camera{};
  for (const PassiveRow& row : kPassiveRows) {
    EXPECT_EQ(ViolationAt(DISPATCH_LEVEL, [&] { row.Call(camera); }),
              std::string(row.Name) + ": called at interrupt level 2, above 0");
  }
}

TEST(DriverChecks, MemoryMayNotBeTakenAboveDispatchLevel) {
  EXPECT_EQ(ViolationAt(DISPATCH_LEVEL, [] { FreeCameraMemory(AllocateCameraMemory(8)); }), "");
  EXPECT_EQ(ViolationAt(DISPATCH_LEVEL + 1, [] { FreeCameraMemory(AllocateCameraMemory(8)); }),
            "AllocateCameraMemory: called at interrupt level 3, above 2");
}

TEST(DriverChecks, CountedMemoryMayNotBeLetGoMoreOftenThanItIsHeld) {
  ReferenceCountedMemory memory{};
  EXPECT_EQ(ViolationOf([&] { LetGo(memory); }), "LetGo: does not hold: left >= 0");
}

TEST(DriverChecks, ACompletionMayNotEndWithoutHavingBegun) {
  ReferenceCountedMemory memory{};
  EXPECT_EQ(ViolationOf([&] { EndCompletion(memory); }), "EndCompletion: does not hold: left >= 0");
}

TEST(DriverChecks, ARundownOpensAfterItWasClosedOnly) {
  Rundown rundown;
  EXPECT_EQ(ViolationOf([&] { rundown.Open(); }), "Open: does not hold: (before & kClosed) != 0");
}

TEST(DriverChecks, ARundownIsClosedByOneCallerAtATime) {
  Rundown rundown;
  rundown.Close();
  EXPECT_EQ(ViolationOf([&] { rundown.Close(); }), "Close: does not hold: (before & kClosed) == 0");
}

TEST(DriverChecks, RawBuffersNeedABlock) {
  FrameAssembly assembly{};
  EXPECT_EQ(ViolationOf([&] { PlaceRawBuffers(assembly, nullptr, 64); }),
            "PlaceRawBuffers: does not hold: block != nullptr && size != 0");
}

TEST(DriverChecks, AFrameIsPublishedFromOneOfTwoBuffers) {
  std::uint8_t block[8] = {};
  FrameAssembly assembly{};
  PlaceRawBuffers(assembly, block, 4);
  assembly.Sink.IsProcessing = [](void*) -> std::uint8_t { return 0; };
  assembly.FillBuffer = assembly.ReadyBuffer;
  EXPECT_EQ(ViolationOf([&] { PublishFrame(assembly, nullptr); }),
            "PublishFrame: does not hold: assembly.FillBuffer != assembly.ReadyBuffer");
}

std::string ReadText(const std::filesystem::path& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::ptrdiff_t Count(const std::string& text, const std::string& pattern) {
  return std::ssize(MatchesOf(text, pattern));
}

/// The sources of each folder of the driver as one text.
std::map<std::filesystem::path, std::string> TextsOfFolders() {
  std::map<std::filesystem::path, std::string> texts;
  const std::filesystem::path driver = std::filesystem::path(LIDCAM_SOURCE_ROOT) / "driver";
  for (const auto& entry : std::filesystem::recursive_directory_iterator(driver)) {
    const auto extension = entry.path().extension();
    if (extension == ".h" || extension == ".cpp") {
      texts[entry.path().parent_path()] += ReadText(entry.path());
    }
  }
  return texts;
}

TEST(DriverChecks, EveryAnnotatedLevelIsCheckedWhereTheOperationBegins) {
  std::ptrdiff_t annotations = 0;
  for (const auto& [folder, text] : TextsOfFolders()) {
    for (const std::string level : {"PASSIVE_LEVEL", "DISPATCH_LEVEL"}) {
      const std::ptrdiff_t annotated = Count(text, "_IRQL_requires_max_\\(" + level + "\\)");
      annotations += annotated;
      EXPECT_EQ(Count(text, "\\{\n  (lidcam::)?RequireLevelAtMost\\(" + level + "\\);"), annotated)
          << folder;
    }
  }
  EXPECT_GT(annotations, 100);
}

}  // namespace
}  // namespace lidcam::test
