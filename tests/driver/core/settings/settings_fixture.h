#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string_view>
#include <vector>

#include "driver/core/settings/settings_store.h"
#include "platform/host/nt/io/device_object.h"
#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/objects/handles.h"
#include "platform/host/nt/registry/registry.h"
#include "tests/platform/nt/registry/registry_support.h"

namespace lidcam::test {

/// Reads a field of the record as a number, whichever sign it has.
struct FieldOf {
  Shared<std::int32_t> CameraContext::*Signed = nullptr;
  Shared<std::uint32_t> CameraContext::*Unsigned = nullptr;
  std::uint32_t CameraContext::*Plain = nullptr;

  // NOLINTNEXTLINE(google-explicit-constructor): rows of tables name the member only
  explicit(false) FieldOf(Shared<std::int32_t> CameraContext::*field) : Signed(field) {}
  // NOLINTNEXTLINE(google-explicit-constructor)
  explicit(false) FieldOf(Shared<std::uint32_t> CameraContext::*field) : Unsigned(field) {}
  // NOLINTNEXTLINE(google-explicit-constructor)
  explicit(false) FieldOf(std::uint32_t CameraContext::*field) : Plain(field) {}

  [[nodiscard]] std::uint32_t Get(const CameraContext& context) const {
    if (Plain != nullptr) return context.*Plain;
    if (Unsigned != nullptr) return context.*Unsigned;
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(context.*Signed));
  }
  void Set(CameraContext& context, std::uint32_t value) const {
    if (Plain != nullptr) {
      context.*Plain = value;
    } else if (Unsigned != nullptr) {
      context.*Unsigned = value;
    } else {
      context.*Signed = static_cast<std::int32_t>(value);
    }
  }
};

struct LoadRow {
  std::u16string_view Name;
  FieldOf Field;
  std::uint32_t Default;
};

/// What load reads, in its order.
inline const std::vector<LoadRow> kLoadTable = {
    {u"Exposure", &CameraContext::Exposure, 1},
    {u"Brightness", &CameraContext::Brightness, 20},
    {u"Contrast", &CameraContext::Contrast, 10},
    {u"Saturation", &CameraContext::Saturation, 120},
    {u"Sharpness", &CameraContext::Sharpness, 3},
    {u"WhiteBalance", &CameraContext::WhiteBalance, 1},
    {u"ColorEnable", &CameraContext::ColorEnable, 1},
    {u"BackLight", &CameraContext::BackLight, 0},
    {u"Gamma", &CameraContext::Gamma, 11},
    {u"AutoExposure", &CameraContext::AutoExposure, 1},
    {u"Mirror", &CameraContext::Mirror, 0},
    {u"Vertical", &CameraContext::Vertical, 0},
    {u"Flicker", &CameraContext::Flicker, 1},
    {u"LDMode", &CameraContext::LDMode, 0},
    {u"Effect", &CameraContext::Effect, 0},
    {u"LED", &CameraContext::LED, 4},
};

struct SaveRow {
  std::u16string_view Name;
  FieldOf Field;
};

/// What save writes, in its order.
inline const std::vector<SaveRow> kSaveTable = {
    {u"Brightness", &CameraContext::Brightness},
    {u"Contrast", &CameraContext::Contrast},
    {u"Saturation", &CameraContext::Saturation},
    {u"Sharpness", &CameraContext::Sharpness},
    {u"Gamma", &CameraContext::Gamma},
    {u"WhiteBalance", &CameraContext::WhiteBalance},
    {u"BackLight", &CameraContext::BackLight},
    {u"ColorEnable", &CameraContext::ColorEnable},
    {u"Exposure", &CameraContext::Exposure},
    {u"Flicker", &CameraContext::Flicker},
    {u"Rgain", &CameraContext::Rgain},
    {u"Ggain", &CameraContext::Ggain},
    {u"Bgain", &CameraContext::Bgain},
    {u"AutoExposure", &CameraContext::AutoExposure},
    {u"WhiteBalanceAuto", &CameraContext::WhiteBalanceAuto},
    {u"Mirror", &CameraContext::Mirror},
    {u"Vertical", &CameraContext::Vertical},
    {u"Effect", &CameraContext::Effect},
    {u"LDMode", &CameraContext::LDMode},
    {u"LED", &CameraContext::LED},
};

/// A camera's record over an installed device, with an empty registry in memory. At its end no
/// handle and no memory may be left.
class SettingsWorld : public ::testing::Test {
 protected:
  SettingsWorld() {
    host::OpenRegistry({});
    context_.TransportContext = &transport_;
  }
  ~SettingsWorld() override {
    host::SetRegistryCallHook(nullptr);
    host::FailPoolAllocation(0);
    host::CloseRegistry();
    EXPECT_EQ(host::OpenHandleCount(), 0U);
    EXPECT_EQ(host::PoolUsageOfAll().Blocks, blocksBefore_);
  }

  static constexpr const WCHAR* kSettings = KERNEL_TEXT("Settings");

  /// The device's driver key; the caller closes it.
  HANDLE OpenRoot() { return OpenSettingsRoot(&transport_, nullptr, SettingsRootDevice); }

  /// Stores a value in the settings' key, as another program would.
  void Put(std::u16string_view name, std::uint32_t type, std::vector<std::uint8_t> data) {
    const HANDLE root = OpenRoot();
    HANDLE key = nullptr;
    ASSERT_EQ(CreateKeyChain(root, 0xF003F, kSettings, key), 0);
    CountedString string(name);
    EXPECT_EQ(
        ZwSetValueKey(key, string.Get(), 0, type, data.data(), static_cast<ULONG>(data.size())), 0);
    CloseSettingsKey(key);
    CloseSettingsKey(root);
  }
  void Put(std::u16string_view name, std::uint32_t number) { Put(name, 4, Dword(number).Data); }

  /// Stores 1000, 1001, ... as the values to load, in their order.
  void PutAll() {
    for (std::size_t i = 0; i < kLoadTable.size(); ++i) {
      Put(kLoadTable[i].Name, static_cast<std::uint32_t>(1000 + i));
    }
  }

  /// As PutAll() without one value.
  void PutAllBut(std::u16string_view absent) {
    for (std::size_t i = 0; i < kLoadTable.size(); ++i) {
      if (kLoadTable[i].Name == absent) continue;
      Put(kLoadTable[i].Name, static_cast<std::uint32_t>(1000 + i));
    }
  }

  static void ForgetAll() { host::OpenRegistry({}); }

  host::HostDevice device_{host::ImagingDriverKey(0)};
  TransportRecordHead transport_{{'S', 'Y', 'Q', 'R'}, nullptr, &device_, nullptr};
  CameraContext context_{};

 private:
  std::size_t blocksBefore_ = host::PoolUsageOfAll().Blocks;
};

}  // namespace lidcam::test
