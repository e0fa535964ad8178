// How the settings store uses the platform: calls, sizes, statuses and failures.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "driver/core/base/camera_memory.h"
#include "tests/driver/core/base/pool_calls.h"
#include "tests/driver/core/settings/settings_fixture.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr std::string_view kDriverKey =
    "HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Control\\Class\\"
    "{6BDD1FC6-810F-11D0-BEC7-08002BE2092F}\\0000";

NTSTATUS Code(std::uint32_t number) {
  return static_cast<NTSTATUS>(number);
}

class SettingsCalls : public SettingsWorld {
 protected:
  SettingsCalls() {
    host::SetRegistryCallHook([this](const host::RegistryCall& call) { return OnCall(call); });
  }

  NTSTATUS OnCall(const host::RegistryCall& call) {
    std::string path(call.Path.begin(), call.Path.end());
    if (path.starts_with(kDriverKey)) path.replace(0, kDriverKey.size(), "*");
    const std::string value(call.Value.begin(), call.Value.end());
    char text[512];
    std::snprintf(text, sizeof(text), "%s %s %s %X %X %u %u", call.Name, path.c_str(),
                  value.c_str(), call.Access, call.Attributes, call.Type, call.Length);
    calls_.emplace_back(text);
    if (failures_ > 0 && calls_.back().find(failing_) != std::string::npos) {
      --failures_;
      return failure_;
    }
    return STATUS_SUCCESS;
  }

  /// Makes the next calls whose line contains `text` return a status.
  void Fail(const std::string& text, NTSTATUS status, int count = 1) {
    failing_ = text;
    failure_ = status;
    failures_ = count;
  }

  /// Runs `test` with the driver key open.
  template <typename Test>
  void WithRoot(Test test) {
    const HANDLE root = OpenRoot();
    calls_.clear();
    test(root);
    CloseSettingsKey(root);
  }

  std::vector<std::string> calls_;
  std::string failing_;
  NTSTATUS failure_ = 0;
  int failures_ = 0;
};

TEST_F(SettingsCalls, LoadOpensTheDriverKeyOnceAndEachValuesKey) {
  PutAll();
  calls_.clear();
  LoadSettings(context_, kSettings);
  ASSERT_EQ(calls_.size(), 2 + 3 * 16U);
  EXPECT_EQ(calls_.front(), "IoOpenDeviceRegistryKey *  1F0000 0 2 0");
  EXPECT_EQ(calls_[1], "ZwCreateKey *\\Settings  F003F 240 0 0");
  EXPECT_EQ(calls_[2], "ZwQueryValueKey *\\Settings Exposure 0 0 0 44");
  EXPECT_EQ(calls_[3], "ZwClose *\\Settings  0 0 0 0");
  EXPECT_EQ(calls_.back(), "ZwClose *  0 0 0 0");
  for (std::size_t i = 0; i < kLoadTable.size(); ++i) {
    EXPECT_THAT(
        calls_[2 + 3 * i],
        HasSubstr(" " + std::string(kLoadTable[i].Name.begin(), kLoadTable[i].Name.end()) + " "));
  }
}

TEST_F(SettingsCalls, SaveMakesTheKeyWritesItAndClosesBoth) {
  EXPECT_EQ(SaveSettings(context_, kSettings), 0);
  ASSERT_EQ(calls_.size(), 24U);
  EXPECT_EQ(calls_[0], "IoOpenDeviceRegistryKey *  1F0000 0 2 0");
  EXPECT_EQ(calls_[1], "ZwCreateKey *\\Settings  F003F 40 0 0");
  EXPECT_EQ(calls_[2], "ZwSetValueKey *\\Settings Brightness 0 0 4 4");
  EXPECT_EQ(calls_[21], "ZwSetValueKey *\\Settings LED 0 0 4 4");
  EXPECT_EQ(calls_[22], "ZwClose *\\Settings  0 0 0 0");
  EXPECT_EQ(calls_[23], "ZwClose *  0 0 0 0");
}

TEST_F(SettingsCalls, SaveKeepsTheStatusOfLedAndDropsAllOthers) {
  Fail("ZwSetValueKey", Code(0xC0000022), 19);
  EXPECT_EQ(SaveSettings(context_, kSettings), 0);
  Fail("LED", Code(0xC000009A));
  EXPECT_EQ(SaveSettings(context_, kSettings), Code(0xC000009A));
  Fail("ZwClose", Code(0xC0000008), 2);
  EXPECT_EQ(SaveSettings(context_, kSettings), 0);
}

TEST_F(SettingsCalls, SaveWithoutItsKeyGivesTheCreatesStatusAndWritesNothing) {
  Fail("ZwCreateKey", Code(0xC0000022));
  EXPECT_EQ(SaveSettings(context_, kSettings), Code(0xC0000022));
  EXPECT_THAT(calls_,
              ElementsAre(HasSubstr("IoOpen"), HasSubstr("ZwCreateKey"), HasSubstr("ZwClose *  ")));
}

TEST_F(SettingsCalls, SaveWithoutARootGivesTheRecordsAddress) {
  const auto address = static_cast<Status>(reinterpret_cast<std::uintptr_t>(&context_));
  Fail("IoOpen", Code(0xC0000034));
  EXPECT_EQ(SaveSettings(context_, kSettings), address);
  context_.TransportContext = nullptr;
  EXPECT_EQ(SaveSettings(context_, kSettings), address);
}

// Each save allocates and frees a block of 256 bytes: exactly one allocation, whose failure has no
// effect.
TEST_F(SettingsCalls, EverySaveAllocatesOnceAndStandsItsFailure) {
  const auto allocate = [] {
    void* const memory = AllocateCameraMemory(1);
    FreeCameraMemory(memory);
    return memory != nullptr;
  };
  for (void* const transport : {static_cast<void*>(&transport_), static_cast<void*>(nullptr)}) {
    context_.TransportContext = transport;
    host::FailPoolAllocation(1);
    const Status status = SaveSettings(context_, kSettings);
    EXPECT_EQ(status == 0, transport != nullptr);
    EXPECT_TRUE(allocate()) << "save used up the failure";
    host::FailPoolAllocation(2);
    SaveSettings(context_, kSettings);
    EXPECT_FALSE(allocate()) << "save made one allocation only";
  }
}

TEST_F(SettingsCalls, TheBlockOfASaveHas256BytesAndComesAfterTheRootIsClosed) {
  for (void* const transport : {static_cast<void*>(&transport_), static_cast<void*>(nullptr)}) {
    context_.TransportContext = transport;
    std::size_t callsBefore = 0;
    const PoolCalls pool([&] { callsBefore = calls_.size(); });
    calls_.clear();
    SaveSettings(context_, kSettings);
    EXPECT_THAT(pool.Allocations(),
                ElementsAre(PoolCalls::Allocation{NonPagedPool, 256, 0x206D6457}));
    EXPECT_EQ(callsBefore, calls_.size());
    EXPECT_EQ(calls_.empty(), transport == nullptr);
  }
}

TEST_F(SettingsCalls, AReadGivesTheDataAndItsLength) {
  Put(u"Wide", 3, {1, 2, 3, 4, 5, 6});
  WithRoot([](HANDLE root) {
    std::uint8_t data[9] = {9, 9, 9, 9, 9, 9, 9, 9, 9};
    for (const std::uint32_t type : {2U, 3U, 99U}) {
      std::uint32_t size = 8;
      EXPECT_EQ(ReadSettingValue(root, kSettings, KERNEL_TEXT("Wide"), type, data, size), 0);
      EXPECT_EQ(size, 6U);
      EXPECT_THAT(data, ElementsAre(1, 2, 3, 4, 5, 6, 9, 9, 9));
    }
  });
}

TEST_F(SettingsCalls, AReadWithoutRoomTellsTheLengthAndCopiesNothing) {
  Put(u"Wide", 3, {1, 2, 3, 4, 5, 6});
  WithRoot([](HANDLE root) {
    std::uint8_t data[6] = {9, 9, 9, 9, 9, 9};
    std::uint32_t size = 5;
    EXPECT_EQ(ReadSettingValue(root, kSettings, KERNEL_TEXT("Wide"), 3, data, size), -1);
    EXPECT_EQ(size, 6U);
    EXPECT_THAT(data, ElementsAre(9, 9, 9, 9, 9, 9));
    size = 100;
    EXPECT_EQ(ReadSettingValue(root, kSettings, KERNEL_TEXT("Wide"), 3, nullptr, size), -1);
    EXPECT_EQ(size, 6U);
  });
}

TEST_F(SettingsCalls, AnAbsentValueGivesLengthZero) {
  WithRoot([](HANDLE root) {
    std::uint32_t value = 7;
    std::uint32_t size = 4;
    EXPECT_EQ(ReadSettingValue(root, kSettings, KERNEL_TEXT("Absent"), 3, &value, size), -1);
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(value, 7U);
  });
}

// After either status for a block that is too small, the query is repeated with the length
// returned.
TEST_F(SettingsCalls, AValueLargerThanTheBlockIsAskedForAgainWithItsLength) {
  Put(u"Big", 3, std::vector<std::uint8_t>(1000, 0x5A));
  WithRoot([this](HANDLE root) {
    std::uint32_t size = 4;
    EXPECT_EQ(ReadSettingValue(root, kSettings, KERNEL_TEXT("Big"), 3, &size, size), -1);
    EXPECT_EQ(size, 1000U);
    EXPECT_THAT(calls_, ElementsAre("ZwCreateKey *\\Settings  F003F 240 0 0",
                                    "ZwQueryValueKey *\\Settings Big 0 0 0 34",
                                    "ZwQueryValueKey *\\Settings Big 0 0 0 1028",
                                    "ZwClose *\\Settings  0 0 0 0"));
  });
}

TEST_F(SettingsCalls, BothStatusesOfASmallBlockRepeatTheQuestionAndOthersDont) {
  Put(u"LED", 6);
  WithRoot([this](HANDLE root) {
    for (const std::uint32_t status : {0x80000005U, 0xC0000023U}) {
      calls_.clear();
      Fail("ZwQueryValueKey", Code(status));
      std::uint32_t value = 0;
      std::uint32_t size = 4;
      // The refused call returned no length, so that the block of the second one is empty.
      EXPECT_EQ(ReadSettingValue(root, kSettings, KERNEL_TEXT("LED"), 3, &value, size), 0);
      EXPECT_EQ(value, 6U);
      EXPECT_EQ(size, 4U);
      EXPECT_THAT(calls_, ElementsAre(HasSubstr("ZwCreateKey"), HasSubstr("LED 0 0 0 34"),
                                      HasSubstr("LED 0 0 0 0"), HasSubstr("LED 0 0 0 32"),
                                      HasSubstr("ZwClose")));
    }
    for (const std::uint32_t status : {0xC0000034U, 0xC0000022U, 0xC000009AU}) {
      Fail("ZwQueryValueKey", Code(status));
      std::uint32_t value = 0;
      std::uint32_t size = 4;
      EXPECT_EQ(ReadSettingValue(root, kSettings, KERNEL_TEXT("LED"), 3, &value, size), -1);
      EXPECT_EQ(size, 0U);
    }
  });
}

TEST_F(SettingsCalls, NoMemoryForEitherBlockOfAReadGivesLengthZero) {
  Put(u"Big", 3, std::vector<std::uint8_t>(1000, 0x5A));
  WithRoot([](HANDLE root) {
    std::vector<std::uint8_t> data(1000);
    for (const std::uint32_t failing : {1U, 2U}) {
      host::FailPoolAllocation(failing);
      std::uint32_t size = 8;
      EXPECT_EQ(ReadSettingValue(root, kSettings, KERNEL_TEXT("Big"), 3, data.data(), size), -1);
      EXPECT_EQ(size, 0U);
    }
    host::FailPoolAllocation(3);
    std::uint32_t size = 1000;
    EXPECT_EQ(ReadSettingValue(root, kSettings, KERNEL_TEXT("Big"), 3, data.data(), size), 0);
    EXPECT_EQ(data, std::vector<std::uint8_t>(1000, 0x5A));
  });
}

// As with an absent value, a value without memory also loses the one after it.
TEST_F(SettingsCalls, NoMemoryAtAnyReadOfALoadCostsThatValueAndTheNext) {
  PutAll();
  for (std::uint32_t failing = 1; failing <= 16; ++failing) {
    host::FailPoolAllocation(failing);
    EXPECT_EQ(LoadSettings(context_, kSettings), 0);
    for (std::uint32_t i = 0; i < 16; ++i) {
      const bool isLost = i == failing - 1 || i == failing;
      EXPECT_EQ(kLoadTable[i].Field.Get(context_), isLost ? kLoadTable[i].Default : 1000 + i);
    }
  }
}

TEST_F(SettingsCalls, AKeyThatCannotBeOpenedGivesLengthZero) {
  WithRoot([this](HANDLE root) {
    Fail("ZwCreateKey", Code(0xC0000022));
    std::uint32_t size = 4;
    EXPECT_EQ(ReadSettingValue(root, kSettings, KERNEL_TEXT("LED"), 3, &size, size), -1);
    EXPECT_EQ(size, 0U);
    EXPECT_THAT(calls_, ElementsAre(HasSubstr("ZwCreateKey")));
  });
}

TEST_F(SettingsCalls, AReadMakesEachKeyAboveItsOwnFirst) {
  WithRoot([this](HANDLE root) {
    std::uint32_t size = 4;
    EXPECT_EQ(ReadSettingValue(root, KERNEL_TEXT("A\\B\\C"), KERNEL_TEXT("v"), 3, &size, size), -1);
    EXPECT_EQ(size, 0U);
    EXPECT_THAT(
        calls_,
        ElementsAre("ZwCreateKey *\\A  F003F 240 0 0", "ZwClose *\\A  0 0 0 0",
                    "ZwCreateKey *\\A\\B  F003F 240 0 0", "ZwClose *\\A\\B  0 0 0 0",
                    "ZwCreateKey *\\A\\B\\C  F003F 240 0 0",
                    "ZwQueryValueKey *\\A\\B\\C v 0 0 0 30", "ZwClose *\\A\\B\\C  0 0 0 0"));
  });
}

TEST_F(SettingsCalls, AFailureAboveTheKeyLeavesTheSizeAlone) {
  WithRoot([this](HANDLE root) {
    Fail("ZwCreateKey *\\A\\B ", Code(0xC0000022));
    std::uint32_t size = 4;
    EXPECT_EQ(ReadSettingValue(root, KERNEL_TEXT("A\\B\\C"), KERNEL_TEXT("v"), 3, &size, size), -1);
    EXPECT_EQ(size, 4U);
    EXPECT_EQ(calls_.size(), 3U);
  });
}

TEST_F(SettingsCalls, AChainIsMadeLevelByLevelAndEndsAtAFailure) {
  WithRoot([this](HANDLE root) {
    HANDLE key = nullptr;
    EXPECT_EQ(CreateKeyChain(root, 0x20019, KERNEL_TEXT("A\\B\\C"), key), 0);
    EXPECT_THAT(calls_, ElementsAre("ZwCreateKey *\\A  20019 40 0 0", "ZwClose *\\A  0 0 0 0",
                                    "ZwCreateKey *\\A\\B  20019 40 0 0", "ZwClose *\\A\\B  0 0 0 0",
                                    "ZwCreateKey *\\A\\B\\C  20019 40 0 0"));
    EXPECT_EQ(WriteSettingValue(key, KERNEL_TEXT("v"), 5), 0);
    EXPECT_EQ(CloseSettingsKey(key), 0);
    calls_.clear();
    key = nullptr;
    Fail("ZwCreateKey *\\A ", Code(0xC000009A));
    EXPECT_EQ(CreateKeyChain(root, 0x20019, KERNEL_TEXT("A\\B\\C"), key), Code(0xC000009A));
    EXPECT_EQ(calls_.size(), 1U);
    EXPECT_EQ(key, nullptr);
  });
}

// A separator in front is no level of its own.
TEST_F(SettingsCalls, AChainBeginsBehindItsFirstCharacter) {
  WithRoot([this](HANDLE root) {
    HANDLE key = nullptr;
    EXPECT_EQ(CreateKeyChain(root, 0xF003F, KERNEL_TEXT("\\A"), key), Code(0xC000003B));
    EXPECT_THAT(calls_, IsEmpty());
    EXPECT_EQ(CreateKeyChain(root, 0xF003F, KERNEL_TEXT("S"), key), 0);
    EXPECT_THAT(calls_, ElementsAre("ZwCreateKey *\\S  F003F 40 0 0"));
    CloseSettingsKey(key);
  });
}

TEST_F(SettingsCalls, AClosedKeyOrAFailedCloseGivesMinusOne) {
  EXPECT_EQ(CloseSettingsKey(nullptr), -1);
  const HANDLE root = OpenRoot();
  EXPECT_EQ(CloseSettingsKey(root), 0);
  EXPECT_EQ(CloseSettingsKey(root), -1);
}

TEST_F(SettingsCalls, LongNamesAreReadAndWritten) {
  const std::u16string subkey(200, u'k');
  const std::u16string name(200, u'n');
  WithRoot([&](HANDLE root) {
    HANDLE key = nullptr;
    ASSERT_EQ(CreateKeyChain(root, 0xF003F, subkey.c_str(), key), 0);
    EXPECT_EQ(WriteSettingValue(key, name.c_str(), 0xCAFE), 0);
    CloseSettingsKey(key);
    calls_.clear();
    std::uint32_t value = 0;
    std::uint32_t size = 4;
    EXPECT_EQ(ReadSettingValue(root, subkey.c_str(), name.c_str(), 3, &value, size), 0);
    EXPECT_EQ(value, 0xCAFEU);
    EXPECT_THAT(calls_[1], ::testing::EndsWith(" 428"));
  });
}

TEST_F(SettingsCalls, OnlyTheTwoKindsOfRootOpen) {
  for (const std::uint32_t kind : {0U, 3U, 0xFFFFFFFFU}) {
    EXPECT_EQ(OpenSettingsRoot(&transport_, KERNEL_TEXT("x"), kind), nullptr);
  }
  EXPECT_THAT(calls_, IsEmpty());
}

class MachineRoot : public SettingsCalls {
 protected:
  // The vendor's key comes with an installation, as the driver makes the last level only.
  void Install() {
    HANDLE key = nullptr;
    ASSERT_EQ(CreateKeyChain(nullptr, 0xF003F, KERNEL_TEXT("\\Registry\\Machine\\Software"), key),
              Code(0xC0000034));
    for (const WCHAR* const path :
         {KERNEL_TEXT("\\Registry\\Machine\\Software\\Morvane Optic"),
          KERNEL_TEXT("\\Registry\\Machine\\Software\\Morvane Optic\\Web Cameras")}) {
      UNICODE_STRING name;
      RtlInitUnicodeString(&name, path);
      OBJECT_ATTRIBUTES attributes;
      InitializeObjectAttributes(&attributes, &name, 0x40, nullptr, nullptr);
      ASSERT_EQ(ZwCreateKey(&key, 0xF003F, &attributes, 0, nullptr, 0, nullptr), 0);
      CloseSettingsKey(key);
    }
    calls_.clear();
  }

  std::string Open(const WCHAR* name) {
    calls_.clear();
    const HANDLE root = OpenSettingsRoot(nullptr, name, SettingsRootMachine);
    if (root == nullptr) return "null";
    const std::string call = calls_.front();
    CloseSettingsKey(root);
    return call;
  }
};

constexpr std::string_view kBase =
    "ZwCreateKey HKEY_LOCAL_MACHINE\\Software\\Morvane Optic\\Web Cameras";

TEST_F(MachineRoot, ANameOfElevenCharactersFitsAndOneOfTwelveIsLeftOut) {
  Install();
  EXPECT_EQ(Open(KERNEL_TEXT("Eleven char")), std::string(kBase) + "\\Eleven char  F003F 240 0 0");
  EXPECT_EQ(Open(KERNEL_TEXT("Twelve chars")), std::string(kBase) + "  F003F 240 0 0");
  EXPECT_EQ(Open(KERNEL_TEXT("")), std::string(kBase) + "  F003F 240 0 0");
  EXPECT_EQ(Open(nullptr), std::string(kBase) + "  F003F 240 0 0");
}

// The path stands in a block of 256 bytes until the key is open.
TEST_F(MachineRoot, KeepsItsPathInABlockUntilTheKeyIsOpen) {
  Install();
  const std::size_t before = host::PoolUsageOfAll().Blocks;
  std::size_t atOpen = 0;
  host::SetRegistryCallHook([&](const host::RegistryCall& call) {
    if (std::string(call.Name) == "ZwCreateKey") atOpen = host::PoolUsageOfAll().Blocks;
    return OnCall(call);
  });
  const PoolCalls pool;
  EXPECT_NE(Open(KERNEL_TEXT("Lid")), "null");
  EXPECT_EQ(atOpen, before + 1);
  EXPECT_EQ(host::PoolUsageOfAll().Blocks, before);
  EXPECT_THAT(pool.Allocations(),
              ElementsAre(PoolCalls::Allocation{NonPagedPool, 256, 0x206D6457}));
}

TEST_F(MachineRoot, IsNullWithoutItsKeyOrWithoutMemory) {
  EXPECT_EQ(Open(KERNEL_TEXT("Lid")), "null");
  Install();
  host::FailPoolAllocation(1);
  EXPECT_EQ(Open(KERNEL_TEXT("Lid")), "null");
  EXPECT_THAT(calls_, IsEmpty());
  EXPECT_NE(Open(KERNEL_TEXT("Lid")), "null");
}

}  // namespace
}  // namespace lidcam::test
