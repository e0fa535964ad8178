#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include "driver/core/settings/settings_store.h"
#include "fuzz/support/input.h"
#include "fuzz/support/step_limit.h"
#include "platform/host/client/stream.h"
#include "platform/host/nt/files/files.h"
#include "platform/host/nt/io/device_object.h"
#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/registry/registry.h"
#include "platform/host/nt/simulation/simulated_scheduler.h"
#include "platform/host/nt/system/debug_print.h"
#include "scenarios/camera/stamped_camera.h"
#include "testbed/installed_driver.h"
#include "testbed/installed_testbed.h"

namespace lidcam::fuzz {

inline client::Block TakeBlock(Input& input, std::size_t bytes) {
  client::Block block(bytes);
  if (bytes != 0) input.TakeInto(block.Data(), bytes);
  return block;
}

/// An empty folder that "\SystemRoot" maps to during the object's lifetime.
class TemporarySystemRoot {
 public:
  TemporarySystemRoot() {
    std::string name = (std::filesystem::temp_directory_path() / "lidcam-XXXXXX").string();
    Require(::mkdtemp(name.data()) != nullptr);
    root_ = name;
    std::filesystem::create_directories(root_ / "system32" / "drivers");
    host::SetSystemRoot(root_);
  }
  TemporarySystemRoot(const TemporarySystemRoot&) = delete;
  TemporarySystemRoot& operator=(const TemporarySystemRoot&) = delete;
  ~TemporarySystemRoot() {
    host::SetSystemRoot({});
    std::error_code error;
    std::filesystem::remove_all(root_, error);
  }

 private:
  std::filesystem::path root_;
};

/// An installed camera in virtual time that one application has open, with a driver key for its
/// settings and a folder for its files. Inputs share one, which is destroyed and checked for leaks
/// after a number of inputs, and at the process's end.
class InstalledWorld {
 public:
  InstalledWorld() {
    static const bool hasDriver = (testbed::InstallDriverOfEnvironment(), true);
    static_cast<void>(hasDriver);
    host::OpenRegistry({});
    camera_ = std::make_unique<testbed::InstalledTestbed>(
        bus_, testbed::InstalledTestbedOptions{.DriverKey = host::ImagingDriverKey(0)});
    Require(camera_->Start() == STATUS_SUCCESS);
    client_.emplace(client::Camera::Open(camera_->TopDevice()));
  }
  InstalledWorld(const InstalledWorld&) = delete;
  InstalledWorld& operator=(const InstalledWorld&) = delete;

  /// Closes everything, and checks that nothing is left.
  ~InstalledWorld() {
    client_.reset();
    camera_->Close();
    camera_.reset();
    world_.Finish();
    host::CloseRegistry();
  }

  [[nodiscard]] const client::Camera& Camera() const { return *client_; }

  /// Stores one of the camera's settings, as a registry editor does.
  void StoreSetting(std::u16string name, ULONG type, client::Block& value) {
    HANDLE root = nullptr;
    Require(IoOpenDeviceRegistryKey(&installed_, PLUGPLAY_REGKEY_DRIVER, KEY_ALL_ACCESS, &root) ==
            STATUS_SUCCESS);
    std::u16string subkey = u"Settings";
    UNICODE_STRING text = Text(subkey);
    OBJECT_ATTRIBUTES attributes{};
    InitializeObjectAttributes(&attributes, &text, OBJ_CASE_INSENSITIVE, root, nullptr);
    HANDLE key = nullptr;
    Require(ZwCreateKey(&key, KEY_ALL_ACCESS, &attributes, 0, nullptr, 0, nullptr) ==
            STATUS_SUCCESS);
    text = Text(name);
    Require(ZwSetValueKey(key, &text, 0, type, value.Data(), static_cast<ULONG>(value.Size())) ==
            STATUS_SUCCESS);
    ZwClose(key);
    ZwClose(root);
  }

  /// The device is powered down and up, which loads the settings.
  void Wake() const {
    Require(camera_->PowerDown() == STATUS_SUCCESS);
    Require(camera_->PowerUp() == STATUS_SUCCESS);
  }

  /// The head by which the settings store opens the camera's driver key.
  [[nodiscard]] TransportRecordHead Transport() {
    TransportRecordHead head{};
    head.PhysicalDeviceObject = &installed_;
    return head;
  }

  /// Calls `use` with the camera's record.
  template <typename Use>
  void WithRecord(const Use& use) const {
    camera_->WithCamera(use);
  }

  static void Sleep(LONGLONG milliseconds) {
    LARGE_INTEGER time{};
    time.QuadPart = -milliseconds * 10'000;
    KeDelayExecutionThread(KernelMode, FALSE, &time);
  }

  /// The world for the next input.
  static InstalledWorld& Next() {
    constexpr std::uint64_t kInputs = 200;
    static std::uint64_t inputs = 0;
    if (inputs++ % kInputs == 0) {
      if (g_world == nullptr) std::atexit([] { g_world.reset(); });
      g_world.reset();
      host::SetDebugPrintSink(nullptr);
      g_world = std::make_unique<InstalledWorld>();
    }
    g_world->limit_.BeginInput();
    return *g_world;
  }

 private:
  static inline std::unique_ptr<InstalledWorld> g_world;

  static UNICODE_STRING Text(std::u16string& text) {
    const auto bytes = static_cast<USHORT>(text.size() * sizeof(char16_t));
    return {bytes, bytes, text.data()};
  }

  StepLimit limit_;
  TemporarySystemRoot root_;
  host::HostDevice installed_{host::ImagingDriverKey(0)};  // has the driver's key
  // Threads switch rarely with this seed: races are not the purpose here.
  host::SimulatedScheduler world_{limit_.WorldOptions(7)};
  scenarios::StampedCamera bus_{{}};
  std::unique_ptr<testbed::InstalledTestbed> camera_;
  std::optional<client::Camera> client_;
};

}  // namespace lidcam::fuzz
