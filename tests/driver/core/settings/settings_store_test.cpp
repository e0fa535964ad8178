// What load and save do to the record and to the stored values.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iterator>
#include <map>
#include <random>
#include <string>

#include "tests/driver/core/settings/settings_fixture.h"
#include "tests/driver/support/sanitizers.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAreArray;

class Settings : public SettingsWorld {
 protected:
  void ExpectDefaults() {
    for (const LoadRow& row : kLoadTable) {
      EXPECT_EQ(row.Field.Get(context_), row.Default)
          << std::string(row.Name.begin(), row.Name.end());
    }
  }

  // The values of the settings' key, read with the store's own reader.
  std::uint32_t Stored(const WCHAR* name) {
    const HANDLE root = OpenRoot();
    std::uint32_t value = 0xBAD;
    std::uint32_t size = sizeof(value);
    EXPECT_EQ(ReadSettingValue(root, kSettings, name, 2, &value, size), 0);
    EXPECT_EQ(size, 4U);
    CloseSettingsKey(root);
    return value;
  }
};

TEST(SettingDefaults, EveryLoadedSettingTellsItsDefaultAndOthersTell0) {
  static_assert(DefaultOfSetting(&CameraContext::Brightness) == 20);
  for (const LoadRow& row : kLoadTable) {
    const SettingField field = row.Field.Signed != nullptr ? SettingField(row.Field.Signed)
                                                           : SettingField(row.Field.Unsigned);
    EXPECT_EQ(DefaultOfSetting(field), static_cast<std::int32_t>(row.Default))
        << std::string(row.Name.begin(), row.Name.end());
  }
  EXPECT_EQ(DefaultOfSetting(&CameraContext::Rgain), 0);
}

TEST_F(Settings, AFirstStartTakesAllDefaultsAndMakesTheKeyWithTheFirstRead) {
  std::vector<std::string> created;
  host::SetRegistryCallHook([&](const host::RegistryCall& call) {
    if (std::string(call.Name) == "ZwCreateKey") {
      created.emplace_back(call.Path.begin(), call.Path.end());
    }
    return STATUS_SUCCESS;
  });
  EXPECT_EQ(LoadSettings(context_, kSettings), 0);
  ExpectDefaults();
  EXPECT_EQ(created.size(), 16U);
  EXPECT_EQ(created[0],
            "HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Control\\Class\\"
            "{6BDD1FC6-810F-11D0-BEC7-08002BE2092F}\\0000\\Settings");
  host::SetRegistryCallHook(nullptr);
  const HANDLE root = OpenRoot();
  CountedString name(u"Settings");
  OBJECT_ATTRIBUTES attributes;
  InitializeObjectAttributes(&attributes, name.Get(), 0x240, root, nullptr);
  HANDLE key = nullptr;
  ULONG disposition = 0;
  EXPECT_EQ(ZwCreateKey(&key, 0xF003F, &attributes, 0, nullptr, 0, &disposition), 0);
  EXPECT_EQ(disposition, 2U) << "it exists already";
  CloseSettingsKey(key);
  CloseSettingsKey(root);
}

TEST_F(Settings, AllStoredValuesLoad) {
  PutAll();
  EXPECT_EQ(LoadSettings(context_, kSettings), 0);
  for (std::size_t i = 0; i < kLoadTable.size(); ++i) {
    EXPECT_EQ(kLoadTable[i].Field.Get(context_), 1000 + i);
  }
}

TEST_F(Settings, NegativeValuesLoadAndSaveAsTheyAre) {
  Put(u"Exposure", 5);
  Put(u"Brightness", 0xFFFFFFFF);
  LoadSettings(context_, kSettings);
  EXPECT_EQ(context_.Brightness, -1);
  context_.Contrast = -7;
  SaveSettings(context_, kSettings);
  EXPECT_EQ(Stored(KERNEL_TEXT("Contrast")), 0xFFFFFFF9U);
}

TEST_F(Settings, AnAbsentBrightnessCostsContrastAsWell) {
  PutAllBut(u"Brightness");
  LoadSettings(context_, kSettings);
  EXPECT_EQ(context_.Exposure, 1000);
  EXPECT_EQ(context_.Brightness, 20);
  EXPECT_EQ(context_.Contrast, 10);
  EXPECT_EQ(context_.Saturation, 1003);
  EXPECT_EQ(context_.LED, 1015);
}

TEST_F(Settings, AnAbsentLedTakesItsDefaultAndCostsNothingElse) {
  PutAllBut(u"LED");
  LoadSettings(context_, kSettings);
  EXPECT_EQ(context_.Effect, 1014);
  EXPECT_EQ(context_.LED, 4);
}

TEST_F(Settings, FourBytesOfGammaLoadWhateverTheirType) {
  for (const std::uint32_t type : {0U, 1U, 2U, 3U, 4U, 5U, 7U, 11U, 0xFFFFFFFFU}) {
    PutAll();
    Put(u"Gamma", type, Dword(type + 50).Data);
    LoadSettings(context_, kSettings);
    EXPECT_EQ(context_.Gamma, static_cast<std::int32_t>(type + 50));
  }
}

// The room of a query shows the shared size: 24 bytes and the name are added to it.
TEST_F(Settings, AnEightByteSharpnessTakesItsDefaultAndPassesEightOnToWhiteBalance) {
  PutAll();
  Put(u"Sharpness", 3, {1, 2, 3, 4, 5, 6, 7, 8});
  std::map<std::u16string, std::vector<std::uint32_t>> sizes;
  host::SetRegistryCallHook([&](const host::RegistryCall& call) {
    if (std::string(call.Name) == "ZwQueryValueKey") {
      sizes[call.Value].push_back(
          static_cast<std::uint32_t>(call.Length - 24 - 2 * call.Value.size()));
    }
    return STATUS_SUCCESS;
  });
  LoadSettings(context_, kSettings);
  EXPECT_EQ(context_.Saturation, 1003);
  EXPECT_EQ(context_.Sharpness, 3);
  EXPECT_EQ(context_.WhiteBalance, 1005);
  EXPECT_EQ(context_.ColorEnable, 1006);
  EXPECT_EQ(sizes[u"Sharpness"].front(), 4U);
  EXPECT_EQ(sizes[u"WhiteBalance"].front(), 8U);
  EXPECT_EQ(sizes[u"ColorEnable"].front(), 4U);
}

TEST_F(Settings, TwoEightByteValuesInARowGiveTheSecondsLowBytesAndTouchNoOtherField) {
  PutAll();
  Put(u"Sharpness", 3, {1, 2, 3, 4, 5, 6, 7, 8});
  Put(u"WhiteBalance", 3, {0x78, 0x56, 0x34, 0x12, 0xFF, 0xFF, 0xFF, 0xFF});
  LoadSettings(context_, kSettings);
  EXPECT_EQ(context_.Sharpness, 3);
  EXPECT_EQ(context_.WhiteBalance, 0x12345678);
  EXPECT_EQ(context_.BackLight, 1007);
  EXPECT_EQ(context_.ColorEnable, 1006);
}

TEST_F(Settings, AValueOfNoBytesKeepsTheFieldAndCostsTheNext) {
  PutAll();
  Put(u"Contrast", 3, {});
  context_.Contrast = 77;
  LoadSettings(context_, kSettings);
  EXPECT_EQ(context_.Contrast, 77);
  EXPECT_EQ(context_.Saturation, 120);
  EXPECT_EQ(context_.Sharpness, 1004);
}

TEST_F(Settings, AValueOfTwoBytesReplacesTheLowHalfAndCostsTheNext) {
  PutAll();
  Put(u"Contrast", 3, {0x22, 0x11});
  context_.Contrast = 0x55667788;
  LoadSettings(context_, kSettings);
  EXPECT_EQ(context_.Contrast, 0x55661122);
  EXPECT_EQ(context_.Saturation, 120);
  EXPECT_EQ(context_.Sharpness, 1004);
}

// One size word goes through all reads: an absent value leaves 0 in it, a value that doesn't fit
// its own length.
struct SharedSizeModel {
  std::uint32_t Size = 4;

  // What a field holds after its read. `length` is -1 for an absent value.
  std::uint32_t Read(int length, std::uint32_t stored, std::uint32_t before,
                     std::uint32_t standard) {
    if (length < 0) {
      Size = 0;
      return standard;
    }
    const auto bytes = static_cast<std::uint32_t>(length);
    const bool fits = bytes <= Size;
    Size = bytes;
    if (!fits) return standard;
    const std::uint32_t kept = bytes >= 4 ? 0 : 0xFFFFFFFFU << (8 * bytes);
    return (before & kept) | (stored & ~kept);
  }
};

TEST_F(Settings, EveryPatternOfAbsentValuesGivesWhatTheSharedSizeGives) {
  // An odd step lets each value be absent and present in the sample, too.
  const std::uint32_t kStep = kIsSanitized ? 13 : 1;
  for (std::uint32_t pattern = 0; pattern < 0x10000; pattern += kStep) {
    ForgetAll();
    const HANDLE root = OpenRoot();
    HANDLE key = nullptr;
    ASSERT_EQ(CreateKeyChain(root, 0xF003F, kSettings, key), 0);
    for (std::size_t i = 0; i < kLoadTable.size(); ++i) {
      if ((pattern >> i & 1) == 0) continue;
      WriteSettingValue(key, kLoadTable[i].Name.data(), static_cast<std::uint32_t>(5000 + i));
    }
    CloseSettingsKey(key);
    CloseSettingsKey(root);
    LoadSettings(context_, kSettings);
    SharedSizeModel model;
    for (std::size_t i = 0; i < kLoadTable.size(); ++i) {
      const std::uint32_t expected =
          model.Read((pattern >> i & 1) != 0 ? 4 : -1, static_cast<std::uint32_t>(5000 + i), 0,
                     kLoadTable[i].Default);
      ASSERT_EQ(kLoadTable[i].Field.Get(context_), expected)
          << "pattern " << pattern << ", value " << i;
    }
  }
}

TEST_F(Settings, ValuesOfEveryLengthGiveWhatTheSharedSizeGives) {
  constexpr int kLengths[] = {-1, 0, 1, 2, 3, 4, 4, 4, 5, 8, 8, 12, 300};
  for (unsigned seed = 0; seed < 3000; ++seed) {
    std::mt19937 random(seed);
    ForgetAll();
    SharedSizeModel model;
    std::vector<std::uint32_t> expected;
    for (const LoadRow& row : kLoadTable) {
      const int length = kLengths[random() % std::size(kLengths)];
      const auto stored = static_cast<std::uint32_t>(random());
      const auto before = static_cast<std::uint32_t>(random());
      row.Field.Set(context_, before);
      expected.push_back(model.Read(length, stored, before, row.Default));
      if (length < 0) continue;
      std::vector<std::uint8_t> data = Dword(stored).Data;
      data.resize(static_cast<std::size_t>(length), 0xEE);
      Put(row.Name, 3, data);
    }
    LoadSettings(context_, kSettings);
    std::vector<std::uint32_t> loaded;
    for (const LoadRow& row : kLoadTable) loaded.push_back(row.Field.Get(context_));
    ASSERT_THAT(loaded, ElementsAreArray(expected)) << "seed " << seed;
    // The neighbours of fields that load.
    ASSERT_EQ(context_.MaxAlternateSetting, 0U);
    ASSERT_EQ(context_.LightState, 0U);
    ASSERT_EQ(context_.TriggerCopyA, 0U);
    ASSERT_EQ(context_.WhiteBalanceAuto, 0U);
    ASSERT_EQ(context_.LightSwitchKind, 0);
  }
}

TEST_F(Settings, ARootThatCannotBeOpenedLeavesBrightnessZero) {
  host::CloseRegistry();
  EXPECT_EQ(LoadSettings(context_, kSettings), 0);
  for (const LoadRow& row : kLoadTable) EXPECT_EQ(row.Field.Get(context_), 0U);
  host::OpenRegistry({});
  context_.TransportContext = nullptr;
  EXPECT_EQ(LoadSettings(context_, kSettings), 0);
  EXPECT_EQ(context_.Brightness, 0);
  context_.TransportContext = &transport_;
  transport_.PhysicalDeviceObject = nullptr;
  EXPECT_EQ(LoadSettings(context_, kSettings), 0);
  EXPECT_EQ(context_.Brightness, 0);
}

TEST_F(Settings, SaveWritesTheWholeTableInItsOrderAsFourBytesOfTypeFour) {
  for (std::size_t i = 0; i < kSaveTable.size(); ++i) {
    kSaveTable[i].Field.Set(context_, static_cast<std::uint32_t>(2000 + i));
  }
  std::vector<std::u16string> order;
  host::SetRegistryCallHook([&](const host::RegistryCall& call) {
    if (std::string(call.Name) == "ZwSetValueKey") {
      order.push_back(call.Value);
      EXPECT_EQ(call.Type, 4U);
      EXPECT_EQ(call.Length, 4U);
    }
    return STATUS_SUCCESS;
  });
  EXPECT_EQ(SaveSettings(context_, kSettings), 0);
  ASSERT_EQ(order.size(), 20U);
  for (std::size_t i = 0; i < kSaveTable.size(); ++i) EXPECT_EQ(order[i], kSaveTable[i].Name);
  host::SetRegistryCallHook(nullptr);
  for (std::size_t i = 0; i < kSaveTable.size(); ++i) {
    EXPECT_EQ(Stored(kSaveTable[i].Name.data()), 2000 + i);
  }
}

TEST_F(Settings, TheGainsAreSavedAsZeroAndNeverLoaded) {
  SaveSettings(context_, kSettings);
  EXPECT_EQ(Stored(KERNEL_TEXT("Rgain")), 0U);
  EXPECT_EQ(Stored(KERNEL_TEXT("Ggain")), 0U);
  EXPECT_EQ(Stored(KERNEL_TEXT("Bgain")), 0U);
  Put(u"Rgain", 9);
  Put(u"Ggain", 9);
  Put(u"Bgain", 9);
  LoadSettings(context_, kSettings);
  EXPECT_EQ(context_.Rgain, 0U);
  EXPECT_EQ(context_.Ggain, 0U);
  EXPECT_EQ(context_.Bgain, 0U);
  SaveSettings(context_, kSettings);
  EXPECT_EQ(Stored(KERNEL_TEXT("Rgain")), 0U);
}

TEST_F(Settings, AnEditedWhiteBalanceAutoStaysZeroInTheRecord) {
  SaveSettings(context_, kSettings);
  Put(u"WhiteBalanceAuto", 1);
  LoadSettings(context_, kSettings);
  EXPECT_EQ(context_.WhiteBalanceAuto, 0U);
}

TEST_F(Settings, WhatWasSavedLoadsAgainAndWhatWasNotIsLost) {
  PutAll();
  LoadSettings(context_, kSettings);
  context_.Brightness = 31;
  SaveSettings(context_, kSettings);
  context_.Brightness = 32;
  context_.Contrast = 33;
  LoadSettings(context_, kSettings);
  EXPECT_EQ(context_.Brightness, 31);
  EXPECT_EQ(context_.Contrast, 1002);
  EXPECT_EQ(context_.Exposure, 1000);
  EXPECT_EQ(context_.LED, 1015);
}

TEST_F(Settings, ValuesThatLoadDoesNotKnowStayAsTheyAre) {
  Put(u"Vendor", 123);
  Put(u"brightness", 7);
  SaveSettings(context_, kSettings);
  EXPECT_EQ(Stored(KERNEL_TEXT("Vendor")), 123U);
  EXPECT_EQ(Stored(KERNEL_TEXT("BRIGHTNESS")), 0U);
}

TEST_F(Settings, TwoCamerasKeepTheirSettingsApart) {
  context_.Gamma = 5;
  SaveSettings(context_, kSettings);
  host::HostDevice other{host::ImagingDriverKey(1)};
  transport_.PhysicalDeviceObject = &other;
  LoadSettings(context_, kSettings);
  EXPECT_EQ(context_.Gamma, 11);
}

}  // namespace
}  // namespace lidcam::test
