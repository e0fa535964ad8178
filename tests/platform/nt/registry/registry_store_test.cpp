#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <random>
#include <thread>

#include "platform/host/nt/registry/registry_store.h"
#include "platform/host/nt/registry/registry_text.h"
#include "tests/platform/nt/registry/registry_support.h"

namespace lidcam::test {
namespace {

using host::RegistryOptions;
using host::RegistryStore;
using host::RegistryTree;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr std::u16string_view kKey = u"HKEY_LOCAL_MACHINE\\Camera\\Settings";

std::u16string Name(unsigned number) {
  std::u16string name = u"Value";
  for (const char digit : std::to_string(number)) name.push_back(static_cast<char16_t>(digit));
  return name;
}

/// The messages of a store with a file in a folder.
class RegistryFileStore : public ::testing::Test {
 protected:
  RegistryOptions Options(base::FileReplacementSteps steps = {}) {
    return {.File = folder_.File(),
            .Message = [this](const std::string& message) { messages_.push_back(message); },
            .Steps = std::move(steps)};
  }

  void Set(RegistryStore& store, unsigned name, unsigned number) {
    const auto batch = store.NewBatch();
    store.SetValue(batch, kKey, Name(name), Dword(number));
    EXPECT_EQ(store.Commit(batch), 0);
  }

  RegistryTree InFile() {
    RegistryTree tree;
    host::RegistryTextError error;
    EXPECT_TRUE(ParseRegistryText(ReadBytes(folder_.File()), tree, error)) << error.What;
    return tree;
  }

  std::optional<unsigned> Find(RegistryStore& store, unsigned name) {
    const auto value = store.FindValue(kKey, Name(name));
    if (!value) return std::nullopt;
    return value->Data.at(0) | (value->Data.at(1) << 8);
  }

  RegistryFolder folder_;
  std::vector<std::string> messages_;
};

TEST_F(RegistryFileStore, WhatWasCommittedIsThereAfterARestart) {
  {
    RegistryStore store(Options());
    Set(store, 1, 11);
  }
  RegistryStore store(Options());
  EXPECT_EQ(Find(store, 1), 11U);
  EXPECT_THAT(messages_, IsEmpty());
}

TEST_F(RegistryFileStore, AFolderThatIsMissingIsMadeAtTheFirstCommit) {
  RegistryOptions options = Options();
  options.File = folder_.File() + ".d/deep/registry.reg";
  RegistryStore store(options);
  Set(store, 1, 1);
  EXPECT_TRUE(std::filesystem::exists(options.File));
}

TEST_F(RegistryFileStore, ABatchIsSeenAtOnceAndReachesTheFileAtItsCommit) {
  RegistryStore store(Options());
  const auto batch = store.NewBatch();
  store.SetValue(batch, kKey, u"Gamma", Dword(11));
  store.SetValue(batch, kKey, u"LED", Dword(4));
  EXPECT_TRUE(store.FindValue(kKey, u"gamma").has_value());
  EXPECT_FALSE(std::filesystem::exists(folder_.File()));
  EXPECT_EQ(store.Commit(batch), 0);
  EXPECT_EQ(InFile(), store.Snapshot());
}

TEST_F(RegistryFileStore, ACommitFlushesFileAndFolderOnceInThisOrder) {
  std::vector<std::string> order;
  RegistryStore store(Options({.Write =
                                   [&order](int file, const char* bytes, std::size_t count) {
                                     order.emplace_back("write");
                                     return write(file, bytes, count);
                                   },
                               .Sync =
                                   [&order](int file) {
                                     struct stat status {};
                                     EXPECT_EQ(fstat(file, &status), 0);
                                     order.emplace_back(S_ISDIR(status.st_mode) ? "sync folder"
                                                                                : "sync file");
                                     return fsync(file);
                                   },
                               .Rename =
                                   [&order](const char* from, const char* to) {
                                     order.emplace_back("rename");
                                     return std::rename(from, to);
                                   }}));
  const auto batch = store.NewBatch();
  for (unsigned i = 0; i < 20; ++i) store.SetValue(batch, kKey, Name(i), Dword(i));
  EXPECT_EQ(store.Commit(batch), 0);
  EXPECT_THAT(order, ElementsAre("write", "sync file", "rename", "sync folder"));
  order.clear();
  Set(store, 7, 7);
  EXPECT_THAT(order, IsEmpty()) << "nothing changed";
}

TEST_F(RegistryFileStore, OneBatchDoesNotWriteTheHalfOfAnother) {
  RegistryStore store(Options());
  const auto half = store.NewBatch();
  store.SetValue(half, kKey, Name(1), Dword(1));
  Set(store, 2, 2);
  EXPECT_FALSE(InFile().FindValue(kKey, Name(1)));
  EXPECT_EQ(Find(store, 1), 1U);
  EXPECT_EQ(store.CommitAll(), 0);
  EXPECT_TRUE(InFile().FindValue(kKey, Name(1)));
}

TEST_F(RegistryFileStore, TheLaterStoreOfAValueWinsWhicheverBatchEndsFirst) {
  RegistryStore store(Options());
  const auto early = store.NewBatch();
  const auto late = store.NewBatch();
  store.SetValue(early, kKey, u"LED", Dword(2));
  store.SetValue(late, kKey, u"led", Dword(3));
  EXPECT_EQ(store.Commit(late), 0);
  EXPECT_EQ(store.Commit(early), 0);
  EXPECT_EQ(*InFile().FindValue(kKey, u"LED"), Dword(3));
}

TEST_F(RegistryFileStore, ChangesOfAnotherStoreAreSeenAndKept) {
  RegistryStore one(Options());
  RegistryStore other(Options());
  Set(one, 1, 1);
  EXPECT_EQ(Find(other, 1), 1U);
  for (unsigned i = 0; i < 50; ++i) {
    Set(i % 2 == 0 ? one : other, 2, i);
    EXPECT_EQ(Find(i % 2 == 0 ? other : one, 2), i);
  }
  EXPECT_EQ(Find(one, 1), 1U);
}

TEST_F(RegistryFileStore, TwoProcessesAtOnceLoseNoValue) {
  constexpr unsigned kValues = 60;
  std::vector<pid_t> children;
  for (unsigned process = 0; process < 3; ++process) {
    const pid_t child = fork();
    if (child == 0) {
      RegistryStore store(Options());
      for (unsigned i = 0; i < kValues; ++i) Set(store, process * 1000 + i, i);
      _exit(HasFailure() ? 1 : 0);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  RegistryStore store(Options());
  for (unsigned process = 0; process < 3; ++process) {
    for (unsigned i = 0; i < kValues; ++i) EXPECT_EQ(Find(store, process * 1000 + i), i);
  }
}

TEST_F(RegistryFileStore, ThreadsAtOnceLoseNoValue) {
  RegistryStore store(Options());
  std::vector<std::thread> threads;
  for (unsigned thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&, thread] {
      for (unsigned i = 0; i < 15; ++i) Set(store, thread * 1000 + i, i);
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (unsigned thread = 0; thread < 4; ++thread) {
    for (unsigned i = 0; i < 15; ++i) EXPECT_EQ(Find(store, thread * 1000 + i), i);
  }
}

struct PowerCut {};

// The machine stops at the given byte, or at the given step after the last byte.
base::FileReplacementSteps CutAt(std::size_t bytes, int stepsAfter) {
  struct Budget {
    std::size_t Bytes;
    int Steps;
  };
  auto budget = std::make_shared<Budget>(Budget{bytes, stepsAfter});
  const auto step = [budget] {
    if (budget->Steps-- <= 0) throw PowerCut{};
  };
  return {.Write = [budget](int file, const char* content, std::size_t count) -> ssize_t {
            const std::size_t part = std::min(count, budget->Bytes);
            EXPECT_EQ(write(file, content, part), static_cast<ssize_t>(part));
            if (part < count) throw PowerCut{};
            return static_cast<ssize_t>(part);
          },
          .Sync =
              [step](int file) {
                step();
                return fsync(file);
              },
          .Rename =
              [step](const char* from, const char* to) {
                step();
                return std::rename(from, to);
              }};
}

TEST_F(RegistryFileStore, PowerLossAtAnyByteOfACommitLeavesTheOldOrTheNewFileWhole) {
  {
    RegistryStore store(Options());
    for (unsigned i = 0; i < 3; ++i) Set(store, i, 100 + i);
  }
  const std::string old = ReadBytes(folder_.File());
  const auto commitCut = [&](std::size_t bytes, int stepsAfter) {
    RegistryStore store(Options(CutAt(bytes, stepsAfter)));
    const auto batch = store.NewBatch();
    for (unsigned i = 0; i < 3; ++i) store.SetValue(batch, kKey, Name(i), Dword(200 + i));
    try {
      EXPECT_EQ(store.Commit(batch), 0);
      return false;
    } catch (const PowerCut&) {
      return true;
    }
  };
  const auto expectAll = [&](unsigned base) {
    RegistryStore store(Options());
    for (unsigned i = 0; i < 3; ++i) EXPECT_EQ(Find(store, i), base + i);
  };
  for (std::size_t bytes = 0; bytes < old.size(); ++bytes) {
    EXPECT_TRUE(commitCut(bytes, 0));
    ASSERT_EQ(ReadBytes(folder_.File()), old) << "cut at byte " << bytes;
  }
  expectAll(100);
  EXPECT_TRUE(commitCut(old.size(), 0)) << "ahead of the file's flush";
  EXPECT_TRUE(commitCut(old.size(), 1)) << "ahead of the rename";
  expectAll(100);
  EXPECT_TRUE(commitCut(old.size(), 2)) << "ahead of the folder's flush";
  expectAll(200);
  EXPECT_THAT(messages_, IsEmpty());
}

TEST_F(RegistryFileStore, ADamagedFileIsSetAsideWithAMessageAndItsContentKept) {
  const std::string damaged = "Windows Registry Editor Version 5.00\n[HKEY_USERS]\n\"LED\"=dwo";
  WriteBytes(folder_.File(), damaged);
  RegistryStore store(Options());
  EXPECT_EQ(store.Snapshot(), RegistryTree{});
  EXPECT_EQ(ReadBytes(folder_.Aside(1)), damaged);
  ASSERT_EQ(messages_.size(), 1U);
  EXPECT_THAT(messages_[0], HasSubstr(folder_.File() + ", line 3: the last line has no end"));
  EXPECT_THAT(messages_[0], HasSubstr("kept as " + folder_.Aside(1)));
  Set(store, 1, 1);
  EXPECT_EQ(ReadBytes(folder_.Aside(1)), damaged);
  EXPECT_EQ(Find(store, 1), 1U);
}

TEST_F(RegistryFileStore, ASecondDamagedFileDoesNotReplaceTheFirst) {
  for (const char* const damaged : {"one", "two", ""}) {
    WriteBytes(folder_.File(), damaged);
    RegistryStore store(Options());
    EXPECT_FALSE(store.HasKey(kKey));
  }
  EXPECT_EQ(ReadBytes(folder_.Aside(1)), "one");
  EXPECT_EQ(ReadBytes(folder_.Aside(2)), "two");
  EXPECT_EQ(ReadBytes(folder_.Aside(3)), "");
  EXPECT_EQ(messages_.size(), 3U);
}

TEST_F(RegistryFileStore, AFileDamagedWhileInUseIsSetAsideAtTheCommit) {
  RegistryStore store(Options());
  Set(store, 1, 1);
  const auto batch = store.NewBatch();
  store.SetValue(batch, kKey, Name(2), Dword(2));
  WriteBytes(folder_.File(), "torn");
  EXPECT_EQ(store.Commit(batch), 0);
  EXPECT_EQ(ReadBytes(folder_.Aside(1)), "torn");
  EXPECT_EQ(Find(store, 1), std::nullopt);
  EXPECT_EQ(Find(store, 2), 2U);
}

TEST_F(RegistryFileStore, AnyCutOrFlippedFileIsReadOrSetAsideAndNeverLost) {
  {
    RegistryStore store(Options());
    for (unsigned i = 0; i < 4; ++i) Set(store, i, i);
  }
  const std::string whole = ReadBytes(folder_.File());
  int aside = 0;
  for (unsigned seed = 0; seed < 400; ++seed) {
    std::mt19937 random(seed);
    std::string damaged = whole.substr(0, random() % (whole.size() + 1));
    for (auto flips = random() % 3; flips > 0 && !damaged.empty(); --flips) {
      damaged[random() % damaged.size()] = static_cast<char>(random());
    }
    std::filesystem::remove(folder_.Aside(1));
    WriteBytes(folder_.File(), damaged);
    RegistryStore store(Options());
    const bool isRead = store.HasKey(u"HKEY_LOCAL_MACHINE");
    const bool isAside = std::filesystem::exists(folder_.Aside(1));
    EXPECT_FALSE(isRead && isAside) << "seed " << seed;
    EXPECT_EQ(ReadBytes(isAside ? folder_.Aside(1) : folder_.File()), damaged) << "seed " << seed;
    aside += isAside ? 1 : 0;
  }
  EXPECT_EQ(static_cast<int>(messages_.size()), aside);
  EXPECT_GT(aside, 200);
}

TEST_F(RegistryFileStore, AFullDiskFailsTheCommitAndTheNextOneMakesUpForIt) {
  bool isFull = true;
  const auto full = [&isFull](int file, const char* bytes, std::size_t count) -> ssize_t {
    if (!isFull) return write(file, bytes, count);
    errno = ENOSPC;
    return -1;
  };
  RegistryStore store(Options({.Write = full, .Sync = nullptr, .Rename = nullptr}));
  for (unsigned i = 1; i <= 2; ++i) {
    const auto batch = store.NewBatch();
    store.SetValue(batch, kKey, Name(i), Dword(i));
    EXPECT_EQ(store.Commit(batch), ENOSPC);
  }
  EXPECT_FALSE(std::filesystem::exists(folder_.File()));
  EXPECT_FALSE(std::filesystem::exists(folder_.File() + ".new"));
  EXPECT_EQ(Find(store, 1), 1U);
  EXPECT_THAT(messages_, ElementsAre(HasSubstr("can't write " + folder_.File())));
  isFull = false;
  Set(store, 3, 3);
  EXPECT_EQ(InFile(), store.Snapshot());
  for (unsigned i = 1; i <= 3; ++i) EXPECT_EQ(Find(store, i), i);
}

TEST_F(RegistryFileStore, AFailedFlushOrRenameFailsTheCommit) {
  const auto fail = [](auto...) {
    errno = EIO;
    return -1;
  };
  RegistryStore noSync(Options({.Write = nullptr, .Sync = fail, .Rename = nullptr}));
  RegistryStore noRename(Options({.Write = nullptr, .Sync = nullptr, .Rename = fail}));
  for (RegistryStore* const store : {&noSync, &noRename}) {
    const auto batch = store->NewBatch();
    store->SetValue(batch, kKey, Name(1), Dword(1));
    EXPECT_EQ(store->Commit(batch), EIO);
    EXPECT_FALSE(std::filesystem::exists(folder_.File()));
  }
}

TEST_F(RegistryFileStore, WhatIsNoFileIsLeftAloneAndToldOnce) {
  std::filesystem::create_directory(folder_.File());
  RegistryStore store(Options());
  EXPECT_FALSE(store.HasKey(kKey));
  EXPECT_FALSE(store.HasKey(kKey));
  const auto batch = store.NewBatch();
  store.SetValue(batch, kKey, Name(1), Dword(1));
  EXPECT_NE(store.Commit(batch), 0);
  EXPECT_TRUE(std::filesystem::is_directory(folder_.File()));
  EXPECT_THAT(messages_, ElementsAre("registry: can't read " + folder_.File() + ": it is no file"));
}

TEST_F(RegistryFileStore, AFileLargerThanSettingsEverAreIsLeftAloneAndToldOnce) {
  WriteBytes(folder_.File(), "Windows Registry Editor Version 5.00\n");
  std::filesystem::resize_file(folder_.File(), std::uintmax_t{1} << 40);
  RegistryStore store(Options());
  EXPECT_FALSE(store.HasKey(kKey));
  const auto batch = store.NewBatch();
  store.SetValue(batch, kKey, Name(1), Dword(1));
  EXPECT_NE(store.Commit(batch), 0);
  EXPECT_EQ(std::filesystem::file_size(folder_.File()), std::uintmax_t{1} << 40);
  EXPECT_THAT(messages_,
              ElementsAre("registry: can't read " + folder_.File() +
                          ": it has more than 16 MiB, which settings never take: move it away, "
                          "and settings start anew"));
}

TEST_F(RegistryFileStore, AFileAsLargeAsSettingsMayBeIsRead) {
  std::string text =
      "Windows Registry Editor Version 5.00\n[HKEY_LOCAL_MACHINE\\Camera\\Settings]\n"
      "\"Value1\"=dword:5\n";
  text.resize(host::kLargestRegistryFile, '\n');
  WriteBytes(folder_.File(), text);
  RegistryStore store(Options());
  EXPECT_EQ(Find(store, 1), 5U);
  EXPECT_THAT(messages_, IsEmpty());
}

TEST_F(RegistryFileStore, WhatWouldBeTooLargeToBeReadAgainIsNotWritten) {
  RegistryStore store(Options());
  Set(store, 1, 5);
  const auto batch = store.NewBatch();
  // Each byte takes three characters of two bytes.
  store.SetValue(batch, kKey, Name(2),
                 {3, std::vector<std::uint8_t>(host::kLargestRegistryFile / 6)});
  EXPECT_NE(store.Commit(batch), 0);
  EXPECT_EQ(Find(store, 1), 5U);
  EXPECT_LT(std::filesystem::file_size(folder_.File()), 1000U);
}

TEST_F(RegistryFileStore, TheFileKeepsItsPermissionsAndALinkStaysALink) {
  const std::string real = folder_.File() + ".real";
  WriteBytes(real, "Windows Registry Editor Version 5.00\n");
  ASSERT_EQ(chmod(real.c_str(), 0640), 0);
  std::filesystem::create_symlink(real, folder_.File());
  RegistryStore store(Options());
  Set(store, 1, 1);
  EXPECT_TRUE(std::filesystem::is_symlink(folder_.File()));
  struct stat status {};
  ASSERT_EQ(stat(real.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640U);
  EXPECT_EQ(Find(store, 1), 1U);
}

TEST_F(RegistryFileStore, AFileEditedInPlaceIsReadAnew) {
  WriteBytes(folder_.File(),
             "Windows Registry Editor Version 5.00\n[HKEY_LOCAL_MACHINE\\Camera\\Settings]\n"
             "\"Value1\"=dword:5\n");
  RegistryStore store(Options());
  EXPECT_EQ(Find(store, 1), 5U);
  WriteBytes(folder_.File(),
             "Windows Registry Editor Version 5.00\n[HKEY_LOCAL_MACHINE\\Camera\\Settings]\n"
             "\"Value1\"=dword:00000077\n");
  EXPECT_EQ(Find(store, 1), 0x77U);
}

}  // namespace
}  // namespace lidcam::test
