#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/host/nt/io/device_object.h"
#include "platform/host/nt/objects/handles.h"
#include "platform/host/nt/registry/registry.h"
#include "tests/platform/nt/registry/registry_support.h"

namespace lidcam::test {
namespace {

constexpr ULONG kAttributes = 0x240;

struct Status : ::testing::Test {
  // The documented numbers of the calls' statuses.
  static NTSTATUS Code(std::uint32_t number) { return static_cast<NTSTATUS>(number); }
};

class RegistryCalls : public Status {
 protected:
  RegistryCalls() { host::OpenRegistry({}); }
  ~RegistryCalls() override {
    for (const HANDLE handle : handles_) ZwClose(handle);
    host::SetRegistryCallHook(nullptr);
    host::CloseRegistry();
    EXPECT_EQ(host::OpenHandleCount(), 0U);
  }

  NTSTATUS Create(HANDLE root, std::u16string_view name, HANDLE* key = nullptr,
                  ULONG* disposition = nullptr) {
    CountedString string(name);
    OBJECT_ATTRIBUTES attributes;
    InitializeObjectAttributes(&attributes, string.Get(), kAttributes, root, nullptr);
    HANDLE handle = nullptr;
    const NTSTATUS status = ZwCreateKey(&handle, 0xF003F, &attributes, 0, nullptr, 0, disposition);
    if (status == 0) handles_.push_back(handle);
    if (key != nullptr) *key = handle;
    return status;
  }

  HANDLE OpenDevice() {
    HANDLE root = nullptr;
    EXPECT_EQ(IoOpenDeviceRegistryKey(&device_, 2, 0x1F0000, &root), 0);
    handles_.push_back(root);
    return root;
  }

  static NTSTATUS Set(HANDLE key, std::u16string_view name, ULONG type, std::string_view data) {
    CountedString string(name);
    std::string copy(data);
    return ZwSetValueKey(key, string.Get(), 0, type, copy.data(), static_cast<ULONG>(copy.size()));
  }

  struct Answer {
    NTSTATUS Code;
    ULONG Needed;
    std::vector<std::uint8_t> Bytes;
  };
  static Answer Query(HANDLE key, std::u16string_view name, ULONG length) {
    CountedString string(name);
    Answer answer{0, 0, std::vector<std::uint8_t>(length, 0xEE)};
    answer.Code = ZwQueryValueKey(key, string.Get(), KeyValueFullInformation, answer.Bytes.data(),
                                  length, &answer.Needed);
    return answer;
  }

  host::HostDevice device_{host::ImagingDriverKey(0)};
  std::vector<HANDLE> handles_;
};

TEST_F(RegistryCalls, ARegistryInMemoryBeginsWithWhatItIsGiven) {
  constexpr std::u16string_view kPath = u"HKEY_LOCAL_MACHINE\\Software\\Camera";
  host::RegistryTree content;
  content.SetValue(kPath, u"Gamma", Dword(11));
  host::OpenRegistry({.File = {}, .Message = nullptr, .Steps = {}, .Content = content});
  EXPECT_EQ(host::SnapshotRegistry(), content);
  HANDLE key = nullptr;
  ASSERT_EQ(Create(nullptr, u"\\Registry\\Machine\\Software\\Camera", &key), 0);
  EXPECT_EQ(Set(key, u"Gamma", REG_DWORD, {"\x05\0\0\0", 4}), 0);
  ASSERT_NE(host::SnapshotRegistry().FindValue(kPath, u"Gamma"), nullptr);
  EXPECT_EQ(*host::SnapshotRegistry().FindValue(kPath, u"Gamma"), Dword(5));
  host::CloseRegistry();
  EXPECT_EQ(host::SnapshotRegistry(), host::RegistryTree{});
}

TEST_F(RegistryCalls, ADeviceHasItsKeyInTheClassOfImagingDevices) {
  EXPECT_EQ(host::ImagingDriverKey(42),
            u"\\Registry\\Machine\\System\\CurrentControlSet\\Control\\Class\\"
            u"{6BDD1FC6-810F-11D0-BEC7-08002BE2092F}\\0042");
}

TEST_F(RegistryCalls, WithoutARegistryNoKeyOpens) {
  host::CloseRegistry();
  HANDLE root = nullptr;
  EXPECT_EQ(IoOpenDeviceRegistryKey(&device_, 2, 0x1F0000, &root), Code(0xC0000034));
  EXPECT_EQ(Create(nullptr, u"\\Registry\\Machine\\Software\\A"), Code(0xC0000034));
  EXPECT_EQ(root, nullptr);
  // Without a registry the device is not accessed.
  alignas(DEVICE_OBJECT) std::array<unsigned char, sizeof(DEVICE_OBJECT)> noDevice{};
  EXPECT_EQ(IoOpenDeviceRegistryKey(reinterpret_cast<PDEVICE_OBJECT>(noDevice.data()), 2, 0, &root),
            Code(0xC0000034));
}

TEST_F(RegistryCalls, NoDeviceAndOneThatIsNotInstalledHaveNoKey) {
  HANDLE root = nullptr;
  host::HostDevice bare;
  EXPECT_EQ(IoOpenDeviceRegistryKey(nullptr, 2, 0x1F0000, &root), Code(0xC0000034));
  EXPECT_EQ(IoOpenDeviceRegistryKey(&bare, 2, 0x1F0000, &root), Code(0xC0000034));
  EXPECT_EQ(IoOpenDeviceRegistryKey(&device_, 7, 0x1F0000, &root), Code(0xC000000D));
}

TEST_F(RegistryCalls, CreateOpensOrMakesTheLastKeyOnly) {
  const HANDLE root = OpenDevice();
  ULONG disposition = 0;
  EXPECT_EQ(Create(root, u"A\\B"), Code(0xC0000034));
  EXPECT_EQ(Create(root, u"A", nullptr, &disposition), 0);
  EXPECT_EQ(disposition, 1U);
  EXPECT_EQ(Create(root, u"a", nullptr, &disposition), 0);
  EXPECT_EQ(disposition, 2U);
  EXPECT_EQ(Create(root, u"A\\B", nullptr, &disposition), 0);
  EXPECT_EQ(disposition, 1U);
  EXPECT_EQ(Create(root, u"A\\B\\", nullptr, &disposition), 0);
  EXPECT_EQ(disposition, 2U);
  EXPECT_EQ(Create(root, u"", nullptr, &disposition), 0);
  EXPECT_EQ(disposition, 2U);
}

TEST_F(RegistryCalls, AbsolutePathsBeginAtTheRegistrysRoots) {
  EXPECT_EQ(Create(nullptr, u"\\Registry\\Machine\\Software\\New"), 0);
  EXPECT_EQ(Create(nullptr, u"\\registry\\MACHINE\\software\\new\\Below"), 0);
  EXPECT_EQ(Create(nullptr, u"\\Registry\\User\\Someone"), 0);
  EXPECT_EQ(Create(nullptr, u"\\Registry\\Machine"), 0);
  EXPECT_EQ(Create(nullptr, u"\\Registry\\Machine\\Software\\No\\Way"), Code(0xC0000034));
  EXPECT_EQ(Create(nullptr, u"\\Registry\\Elsewhere"), Code(0xC0000034));
  EXPECT_EQ(Create(nullptr, u"Software"), Code(0xC000003B));
}

TEST_F(RegistryCalls, NamesThatAreNoneAreRefused) {
  const HANDLE root = OpenDevice();
  EXPECT_EQ(Create(root, u"\\A"), Code(0xC000003B));
  EXPECT_EQ(Create(root, u"A\\\\B"), Code(0xC0000033));
  EXPECT_EQ(Create(root, u"line\nend"), Code(0xC0000033));
  EXPECT_EQ(Create(root, std::u16string(255, u'k')), 0);
  EXPECT_EQ(Create(root, std::u16string(256, u'k')), Code(0xC000000D));
  EXPECT_EQ(Set(root, std::u16string(16383, u'v'), 4, "1234"), 0);
  EXPECT_EQ(Set(root, std::u16string(16384, u'v'), 4, "1234"), Code(0xC000000D));
  EXPECT_EQ(Set(root, std::u16string_view(u"a\0b", 3), 4, "1234"), Code(0xC0000033));
  std::array<WCHAR, 2> odd{u'a', u'b'};
  UNICODE_STRING oddLength{3, 4, odd.data()};
  EXPECT_EQ(ZwSetValueKey(root, &oddLength, 0, 4, nullptr, 0), Code(0xC0000033));
  CountedString name(u"a");
  EXPECT_EQ(ZwSetValueKey(root, name.Get(), 0, 4, nullptr, 1), Code(0xC000000D));
}

TEST_F(RegistryCalls, WhatIsNoOpenKeyIsRefused) {
  class Other final : public host::HandleObject {};
  const HANDLE other = host::OpenHandle(std::make_shared<Other>());
  HANDLE closed = nullptr;
  const HANDLE root = OpenDevice();
  ASSERT_EQ(Create(root, u"A", &closed), 0);
  handles_.pop_back();
  EXPECT_EQ(ZwClose(closed), 0);
  for (const HANDLE none : {closed, static_cast<HANDLE>(nullptr)}) {
    EXPECT_EQ(ZwClose(none), Code(0xC0000008));
    EXPECT_EQ(Query(none, u"v", 64).Code, Code(0xC0000008));
    EXPECT_EQ(Set(none, u"v", 4, "1234"), Code(0xC0000008));
  }
  EXPECT_EQ(Create(closed, u"B"), Code(0xC0000008));
  EXPECT_EQ(Create(other, u"B"), Code(0xC0000024));
  EXPECT_EQ(Query(other, u"v", 64).Code, Code(0xC0000024));
  EXPECT_EQ(Set(other, u"v", 4, "1234"), Code(0xC0000024));
  EXPECT_EQ(ZwClose(other), 0);
}

// Five words, the name, then the data aligned to 4.
TEST_F(RegistryCalls, AQueryGivesTypeNameAndDataAtTheirPlaces) {
  const HANDLE root = OpenDevice();
  ASSERT_EQ(Set(root, u"LED", 9, "\x04\x03\x02\x01\x05"), 0);
  const Answer answer = Query(root, u"led", 33);
  EXPECT_EQ(answer.Code, 0);
  EXPECT_EQ(answer.Needed, 33U);
  EXPECT_THAT(answer.Bytes,
              ::testing::ElementsAre(0, 0, 0, 0, 9, 0, 0, 0, 28, 0, 0, 0, 5, 0, 0, 0,  //
                                     6, 0, 0, 0, 'l', 0, 'e', 0, 'd', 0, 0, 0,         //
                                     4, 3, 2, 1, 5));
}

TEST_F(RegistryCalls, AQueryWithoutRoomTellsHowMuchIsNeeded) {
  const HANDLE root = OpenDevice();
  ASSERT_EQ(Set(root, u"Gamma", 4, "1234"), 0);
  EXPECT_EQ(Query(root, u"Absent", 64).Code, Code(0xC0000034));
  for (ULONG length = 0; length <= 40; ++length) {
    const Answer answer = Query(root, u"Gamma", length);
    const NTSTATUS expected = length < 20 ? Code(0xC0000023) : length < 36 ? Code(0x80000005) : 0;
    EXPECT_EQ(answer.Code, expected) << length;
    EXPECT_EQ(answer.Needed, 36U);
  }
  CountedString name(u"Gamma");
  ULONG needed = 0;
  EXPECT_EQ(ZwQueryValueKey(root, name.Get(), KeyValueBasicInformation, nullptr, 0, &needed),
            Code(0xC000000D));
}

TEST_F(RegistryCalls, ValuesHaveAnyTypeAndLengthAndTheDefaultValueHasNoName) {
  const HANDLE root = OpenDevice();
  EXPECT_EQ(Set(root, u"", 1, ""), 0);
  EXPECT_EQ(Query(root, u"", 20).Code, 0);
  EXPECT_EQ(Set(root, u"big", 3, std::string(100000, 'x')), 0);
  EXPECT_EQ(Query(root, u"big", 28 + 100000).Code, 0);
  const std::u16string longName(200, u'n');
  EXPECT_EQ(Set(root, longName, 4, "1234"), 0);
  EXPECT_EQ(Query(root, longName, 20 + 400 + 4).Code, 0);
}

TEST_F(RegistryCalls, AHookSeesEachCallAndCanRefuseIt) {
  std::vector<std::string> calls;
  NTSTATUS refusal = 0;
  host::SetRegistryCallHook([&](const host::RegistryCall& call) {
    calls.emplace_back(call.Name);
    return refusal;
  });
  const HANDLE root = OpenDevice();
  EXPECT_EQ(Set(root, u"v", 4, "1234"), 0);
  refusal = Code(0xC000009A);
  EXPECT_EQ(Set(root, u"v", 4, "5678"), refusal);
  EXPECT_EQ(Query(root, u"v", 64).Code, refusal);
  EXPECT_EQ(Create(root, u"A"), refusal);
  HANDLE other = nullptr;
  EXPECT_EQ(IoOpenDeviceRegistryKey(&device_, 2, 0, &other), refusal);
  EXPECT_EQ(ZwClose(root), refusal);
  handles_.clear();
  EXPECT_THAT(calls, ::testing::ElementsAre("IoOpenDeviceRegistryKey", "ZwSetValueKey",
                                            "ZwSetValueKey", "ZwQueryValueKey", "ZwCreateKey",
                                            "IoOpenDeviceRegistryKey", "ZwClose"));
}

class RegistryFileCalls : public RegistryCalls {
 protected:
  void Reopen(base::FileReplacementSteps steps = {}) {
    host::OpenRegistry({.File = folder_.File(), .Message = nullptr, .Steps = std::move(steps)});
  }
  RegistryFolder folder_;
};

TEST_F(RegistryFileCalls, ValuesBecomeDurableWhenTheirKeyIsClosed) {
  host::SetRegistryFile(folder_.File());
  const HANDLE root = OpenDevice();
  HANDLE key = nullptr;
  ASSERT_EQ(Create(root, u"Settings", &key), 0);
  ASSERT_EQ(Set(key, u"LED", 4, std::string_view("\x04\0\0\0", 4)), 0);
  EXPECT_FALSE(std::filesystem::exists(folder_.File()));
  handles_.pop_back();
  EXPECT_EQ(ZwClose(key), 0);
  const std::string text = ReadBytes(folder_.File());
  std::string ascii;
  for (std::size_t at = 2; at < text.size(); at += 2) ascii.push_back(text[at]);
  EXPECT_EQ(ascii,
            "Windows Registry Editor Version 5.00\r\n\r\n"
            "[HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Control\\Class\\"
            "{6BDD1FC6-810F-11D0-BEC7-08002BE2092F}\\0000\\Settings]\r\n"
            "\"LED\"=dword:00000004\r\n\r\n");
}

TEST_F(RegistryFileCalls, AKeyLeftOpenIsSavedWithTheRegistrysEnd) {
  Reopen();
  ASSERT_EQ(Set(OpenDevice(), u"v", 4, "1234"), 0);
  EXPECT_EQ(host::CloseRegistry(), 0);
  EXPECT_TRUE(std::filesystem::exists(folder_.File()));
}

TEST_F(RegistryFileCalls, AKeyLeftOpenIsSavedAtTheProcesssRegularEnd) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    Reopen();
    Set(OpenDevice(), u"v", 4, "1234");
    std::exit(0);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(std::filesystem::exists(folder_.File()));
}

TEST_F(RegistryFileCalls, AFailedSaveIsTheStatusOfTheClose) {
  const std::vector<std::pair<int, NTSTATUS>> kinds = {
      {EACCES, Code(0xC0000022)}, {ENOSPC, Code(0xC000007F)}, {EIO, Code(0xC000014D)}};
  for (const auto& [error, expected] : kinds) {
    host::OpenRegistry(
        {.File = folder_.File(),
         .Message = [](const std::string&) {},
         .Steps = {.Write = [number = error](int, const char*, std::size_t) -> ssize_t {
                     errno = number;
                     return -1;
                   },
                   .Sync = nullptr,
                   .Rename = nullptr}});
    const HANDLE root = OpenDevice();
    handles_.clear();
    EXPECT_EQ(Set(root, u"v", 4, "1234"), 0);
    EXPECT_EQ(ZwClose(root), expected);
  }
}

TEST_F(RegistryFileCalls, AWriteThatTakesNothingIsAnErrorAndEnds) {
  host::OpenRegistry({.File = folder_.File(),
                      .Message = [](const std::string&) {},
                      .Steps = {.Write = [](int, const char*, std::size_t) -> ssize_t { return 0; },
                                .Sync = nullptr,
                                .Rename = nullptr}});
  const HANDLE root = OpenDevice();
  handles_.clear();
  EXPECT_EQ(Set(root, u"v", 4, "1234"), 0);
  EXPECT_EQ(ZwClose(root), Code(0xC000014D));
}

}  // namespace
}  // namespace lidcam::test
