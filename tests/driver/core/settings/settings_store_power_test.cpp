// Settings that outlive the process: power cuts, two processes, damaged files.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "tests/driver/core/settings/settings_fixture.h"
#include "tests/driver/support/sanitizers.h"

namespace lidcam::test {
namespace {

class SettingsFile : public SettingsWorld {
 protected:
  void Reopen(base::FileReplacementSteps steps = {}) {
    host::OpenRegistry({.File = folder_.File(),
                        .Message = [this](const std::string& text) { messages_.push_back(text); },
                        .Steps = std::move(steps)});
  }

  void SetAll(std::uint32_t base) {
    for (std::size_t i = 0; i < kLoadTable.size(); ++i) {
      kLoadTable[i].Field.Set(context_, base + static_cast<std::uint32_t>(i));
    }
  }

  // Loads as a newly started process would.
  void ExpectAll(std::uint32_t base, const std::string& when) {
    Reopen();
    LoadSettings(context_, kSettings);
    for (std::size_t i = 0; i < kLoadTable.size(); ++i) {
      ASSERT_EQ(kLoadTable[i].Field.Get(context_), base + i) << when;
    }
  }

  // Runs `work` in a process of its own that must end with status 0.
  template <typename Work>
  void InOtherProcess(Work work) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
      work();
      _exit(0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
  }

  RegistryFolder folder_;
  std::vector<std::string> messages_;
};

TEST_F(SettingsFile, SavedSettingsOutliveTheProcess) {
  InOtherProcess([this] {
    Reopen();
    SetAll(3000);
    SaveSettings(context_, kSettings);
  });
  ExpectAll(3000, "after a restart");
}

TEST_F(SettingsFile, ASaveFlushesItsFileOnceAndALoadNever) {
  int syncs = 0;
  Reopen({.Write = nullptr,
          .Sync =
              [&syncs](int file) {
                ++syncs;
                return fsync(file);
              },
          .Rename = nullptr});
  SetAll(3000);
  SaveSettings(context_, kSettings);
  EXPECT_EQ(syncs, 2) << "the file and its folder";
  LoadSettings(context_, kSettings);
  SaveSettings(context_, kSettings);
  EXPECT_EQ(syncs, 2) << "nothing changed";
}

TEST_F(SettingsFile, PowerLossAtAnyByteOfASaveLeavesTheOldOrTheNewSettingsWhole) {
  Reopen();
  SetAll(3000);
  SaveSettings(context_, kSettings);
  const std::size_t size = ReadBytes(folder_.File()).size();
  ASSERT_GT(size, 1000U);
  // The new file is as long as the old: numbers have eight digits.
  // A process under a sanitizer forks slowly.
  const std::size_t kStep = kIsSanitized ? 7 : 1;
  for (std::size_t cut = 0; cut < size; cut += kStep) {
    InOtherProcess([&] {
      Reopen({.Write = [cut](int file, const char* bytes, std::size_t count) -> ssize_t {
                _exit(write(file, bytes, std::min(cut, count)) < 0 ? 1 : 0);
              },
              .Sync = nullptr,
              .Rename = nullptr});
      SetAll(4000);
      SaveSettings(context_, kSettings);
      _exit(1);
    });
    ExpectAll(3000, "cut at byte " + std::to_string(cut));
    if (HasFatalFailure()) return;
  }
  for (const int syncsBefore : {0, 1}) {
    InOtherProcess([&] {
      Reopen({.Write = nullptr,
              .Sync =
                  [left = syncsBefore](int) mutable {
                    if (left-- == 0) _exit(0);
                    return 0;
                  },
              .Rename = nullptr});
      SetAll(4000);
      SaveSettings(context_, kSettings);
      _exit(1);
    });
    ExpectAll(syncsBefore == 0 ? 3000 : 4000, "cut at a flush");
  }
  EXPECT_THAT(messages_, ::testing::IsEmpty());
}

// Each process saves for its own camera; the file holds both.
TEST_F(SettingsFile, TwoProcessesSavingAtOnceLoseNothing) {
  std::fflush(nullptr);
  std::vector<pid_t> children;
  for (unsigned camera = 0; camera < 2; ++camera) {
    const pid_t child = fork();
    if (child == 0) {
      Reopen();
      device_.DriverKey = host::ImagingDriverKey(camera);
      for (std::uint32_t round = 0; round < 40; ++round) {
        SetAll(1000 * (camera + 1) + round);
        if (SaveSettings(context_, kSettings) != 0) _exit(1);
        LoadSettings(context_, kSettings);
        if (context_.LED != static_cast<std::int32_t>(1000 * (camera + 1) + round + 15)) _exit(2);
      }
      _exit(0);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  for (unsigned camera = 0; camera < 2; ++camera) {
    device_.DriverKey = host::ImagingDriverKey(camera);
    ExpectAll(1000 * (camera + 1) + 39, "after both");
  }
}

TEST_F(SettingsFile, ADamagedFileGivesTheDefaultsAndIsKept) {
  WriteBytes(folder_.File(), "garbage");
  Reopen();
  LoadSettings(context_, kSettings);
  for (const LoadRow& row : kLoadTable) EXPECT_EQ(row.Field.Get(context_), row.Default);
  SaveSettings(context_, kSettings);
  EXPECT_EQ(ReadBytes(folder_.Aside(1)), "garbage");
  EXPECT_EQ(messages_.size(), 1U);
}

TEST_F(SettingsFile, AFileWrittenByHandLoads) {
  WriteBytes(folder_.File(),
             "Windows Registry Editor Version 5.00\n\n"
             "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\Class\\"
             "{6bdd1fc6-810f-11d0-bec7-08002be2092f}\\0000\\Settings]\n"
             "\"Exposure\"=dword:32\n\"Brightness\"=hex:07,00,00,00\n");
  Reopen();
  LoadSettings(context_, kSettings);
  EXPECT_EQ(context_.Exposure, 50);
  EXPECT_EQ(context_.Brightness, 7);
  EXPECT_EQ(context_.Contrast, 10);
}

TEST_F(SettingsFile, AFullDiskFailsNoSaveAndLosesNoSettingOfTheRunningCamera) {
  Reopen({.Write = [](int, const char*, std::size_t) -> ssize_t {
            errno = ENOSPC;
            return -1;
          },
          .Sync = nullptr,
          .Rename = nullptr});
  SetAll(3000);
  EXPECT_EQ(SaveSettings(context_, kSettings), 0);
  SetAll(0);
  LoadSettings(context_, kSettings);
  EXPECT_EQ(context_.Brightness, 3001);
  EXPECT_EQ(messages_.size(), 1U);
}

}  // namespace
}  // namespace lidcam::test
