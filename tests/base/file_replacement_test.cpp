#include "base/file_replacement.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace lidcam::base {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;

constexpr mode_t kPermissions = 07777;

class FileReplacementTest : public ::testing::Test {
 protected:
  FileReplacementTest() {
    std::string name = (fs::temp_directory_path() / "lidcam-replacement-XXXXXX").string();
    folder_ = mkdtemp(name.data());
  }
  ~FileReplacementTest() override { fs::remove_all(folder_); }

  [[nodiscard]] std::string PathOf(const std::string& name) const {
    return (folder_ / name).string();
  }

  void Put(const std::string& name, const std::string& content) const {
    std::ofstream(PathOf(name), std::ios::binary) << content;
  }

  [[nodiscard]] std::string ContentOf(const std::string& name) const {
    std::ifstream file(PathOf(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  [[nodiscard]] std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder_)) {
      names.push_back(entry.path().filename().string());
    }
    return names;
  }

  [[nodiscard]] mode_t ModeOf(const std::string& name) const {
    struct stat status {};
    EXPECT_EQ(stat(PathOf(name).c_str(), &status), 0);
    return status.st_mode & kPermissions;
  }

  // Performs all steps; returns the error number of the first that fails.
  static int Replace(FileReplacement& replacement, const std::string& path,
                     std::string_view content) {
    int error = replacement.Open(path);
    if (error == 0) error = replacement.Append(content);
    if (error == 0) error = replacement.Flush();
    return error == 0 ? replacement.Rename() : error;
  }

 private:
  fs::path folder_;
};

// One step fails with an error number, the others are the system's.
FileReplacementSteps Failing(const std::string& step, int error) {
  FileReplacementSteps steps;
  const auto fail = [error] {
    errno = error;
    return -1;
  };
  if (step == "write") {
    steps.Write = [fail](int, const char*, std::size_t) -> ssize_t { return fail(); };
  }
  if (step == "rename") steps.Rename = [fail](const char*, const char*) { return fail(); };
  if (step == "sync file" || step == "sync folder") {
    const bool atFolder = step == "sync folder";
    steps.Sync = [fail, atFolder](int file) {
      struct stat status {};
      EXPECT_EQ(fstat(file, &status), 0);
      return S_ISDIR(status.st_mode) == atFolder ? fail() : fsync(file);
    };
  }
  return steps;
}

TEST_F(FileReplacementTest, TheOldFileStandsUntilTheNewOneIsWhole) {
  Put("a", "old");
  FileReplacement replacement;
  ASSERT_EQ(replacement.Open(PathOf("a")), 0);
  EXPECT_EQ(replacement.Append(std::string_view("new ")), 0);
  EXPECT_EQ(replacement.Append(std::string_view("one")), 0);
  EXPECT_EQ(replacement.Flush(), 0);
  EXPECT_EQ(ContentOf("a"), "old");
  EXPECT_EQ(replacement.Rename(), 0);
  EXPECT_EQ(ContentOf("a"), "new one");
  EXPECT_FALSE(replacement.IsOpen());
  EXPECT_THAT(Names(), ElementsAre("a"));
}

TEST_F(FileReplacementTest, FlushesTheFileAheadOfItsNameAndTheFolderBehindIt) {
  std::vector<std::string> order;
  FileReplacement replacement({.Write = {},
                               .Sync =
                                   [&order](int file) {
                                     struct stat status {};
                                     EXPECT_EQ(fstat(file, &status), 0);
                                     order.emplace_back(S_ISDIR(status.st_mode) ? "folder"
                                                                                : "file");
                                     return fsync(file);
                                   },
                               .Rename =
                                   [&order](const char* from, const char* to) {
                                     order.emplace_back("rename");
                                     return std::rename(from, to);
                                   }});
  EXPECT_EQ(Replace(replacement, PathOf("a"), "new"), 0);
  EXPECT_THAT(order, ElementsAre("file", "rename", "folder"));
}

TEST_F(FileReplacementTest, AStepThatFailsIsToldAndLeavesTheOldFileAlone) {
  for (const std::string step : {"write", "sync file", "rename"}) {
    Put("a", "old");
    {
      FileReplacement replacement(Failing(step, ENOSPC));
      EXPECT_EQ(Replace(replacement, PathOf("a"), "new"), ENOSPC) << step;
      EXPECT_TRUE(replacement.IsOpen()) << step;
    }
    EXPECT_EQ(ContentOf("a"), "old") << step;
    EXPECT_THAT(Names(), ElementsAre("a")) << step;
  }
}

TEST_F(FileReplacementTest, AFolderThatCannotBeFlushedIsToldWithTheFileInPlace) {
  Put("a", "old");
  FileReplacement replacement(Failing("sync folder", EIO));
  EXPECT_EQ(Replace(replacement, PathOf("a"), "new"), EIO);
  EXPECT_FALSE(replacement.IsOpen());
  EXPECT_EQ(ContentOf("a"), "new");
}

TEST_F(FileReplacementTest, AFileSystemWithoutFlushesIsNoFailure) {
  for (const int error : {EINVAL, ENOTSUP}) {
    FileReplacement replacement(Failing("sync folder", error));
    EXPECT_EQ(Replace(replacement, PathOf("a"), "new"), 0);
  }
}

TEST_F(FileReplacementTest, AWriteThatIsCutShortGoesOn) {
  bool isInterrupted = false;
  FileReplacement replacement(
      {.Write = [&isInterrupted](int file, const char* bytes, std::size_t) -> ssize_t {
         isInterrupted = !isInterrupted;
         if (!isInterrupted) return write(file, bytes, 1);
         errno = EINTR;
         return -1;
       },
       .Sync = {},
       .Rename = {}});
  EXPECT_EQ(Replace(replacement, PathOf("a"), "all of it"), 0);
  EXPECT_EQ(ContentOf("a"), "all of it");
}

TEST_F(FileReplacementTest, AFileThatTakesNothingIsAnError) {
  FileReplacement replacement({.Write = [](int, const char*, std::size_t) -> ssize_t { return 0; },
                               .Sync = {},
                               .Rename = {}});
  EXPECT_EQ(Replace(replacement, PathOf("a"), "new"), EIO);
}

TEST_F(FileReplacementTest, TheFileKeepsItsPermissionsAndANewOneHasTheMasksRest) {
  Put("a", "old");
  ASSERT_EQ(chmod(PathOf("a").c_str(), 0604), 0);
  const mode_t mask = umask(027);
  EXPECT_EQ(ReplaceFile(PathOf("a"), {}), 0);
  EXPECT_EQ(ReplaceFile(PathOf("b"), {}), 0);
  umask(mask);
  EXPECT_EQ(ModeOf("a"), 0604U);
  EXPECT_EQ(ModeOf("b"), 0640U);
}

TEST_F(FileReplacementTest, ALinkStaysALinkWhereverItLeads) {
  Put("real", "old");
  fs::create_symlink("real", PathOf("link"));
  fs::create_symlink("link", PathOf("second"));
  fs::create_symlink("missing", PathOf("dangling"));
  const std::uint8_t content[] = {'n', 'e', 'w'};
  EXPECT_EQ(ReplaceFile(PathOf("second"), content), 0);
  EXPECT_EQ(ReplaceFile(PathOf("dangling"), content), 0);
  EXPECT_TRUE(fs::is_symlink(PathOf("second")));
  EXPECT_TRUE(fs::is_symlink(PathOf("dangling")));
  EXPECT_EQ(ContentOf("real"), "new");
  EXPECT_EQ(ContentOf("missing"), "new");
}

TEST_F(FileReplacementTest, OtherProgramsSeeTheTemporaryFileLockedUntilItHasItsName) {
  FileReplacement replacement;
  ASSERT_EQ(replacement.Open(PathOf("a")), 0);
  EXPECT_EQ(replacement.Flush(), 0);
  ASSERT_EQ(Names().size(), 1U);
  const int other = open(PathOf(Names()[0]).c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_NE(flock(other, LOCK_SH | LOCK_NB), 0);
  EXPECT_EQ(errno, EWOULDBLOCK);
  EXPECT_EQ(replacement.Rename(), 0);
  EXPECT_EQ(flock(other, LOCK_SH | LOCK_NB), 0);
  close(other);
}

TEST_F(FileReplacementTest, WhatAnEarlierProgramLeftIsPassedOver) {
  const std::string left = ".a." + std::to_string(getpid()) + ".part";
  Put(left, "the user's");
  EXPECT_EQ(ReplaceFile(PathOf("a"), {}), 0);
  EXPECT_EQ(ContentOf(left), "the user's");
  EXPECT_TRUE(fs::exists(PathOf("a")));
}

TEST_F(FileReplacementTest, TwoAtOnceDoNotMix) {
  FileReplacement one;
  FileReplacement other;
  ASSERT_EQ(one.Open(PathOf("a")), 0);
  ASSERT_EQ(other.Open(PathOf("a")), 0);
  EXPECT_EQ(one.Append(std::string_view("one")), 0);
  EXPECT_EQ(other.Append(std::string_view("other")), 0);
  EXPECT_EQ(other.Rename(), 0);
  EXPECT_EQ(one.Rename(), 0);
  EXPECT_EQ(ContentOf("a"), "one");
  EXPECT_THAT(Names(), ElementsAre("a"));
}

TEST_F(FileReplacementTest, UnderANameOfTheCallersWhatIsLeftThereIsRemoved) {
  Put("a.new", "of a cut, and longer");
  FileReplacement replacement;
  ASSERT_EQ(replacement.OpenAs(PathOf("a"), PathOf("a.new")), 0);
  EXPECT_EQ(replacement.Append(std::string_view("new")), 0);
  EXPECT_EQ(ContentOf("a.new"), "new");
  EXPECT_EQ(replacement.Rename(), 0);
  EXPECT_THAT(Names(), ElementsAre("a"));
}

TEST_F(FileReplacementTest, WhatIsKeptStaysBesideTheNameThatItCouldNotHave) {
  FileReplacement replacement;
  ASSERT_EQ(replacement.Open(PathOf("a")), 0);
  EXPECT_EQ(replacement.Append(std::string_view("new")), 0);
  fs::create_directory(PathOf("a"));
  EXPECT_EQ(replacement.Rename(), EISDIR);
  const std::string kept = replacement.Keep();
  EXPECT_EQ(ContentOf(fs::path(kept).filename()), "new");
}

TEST_F(FileReplacementTest, AFolderThatIsMissingIsTold) {
  EXPECT_EQ(ReplaceFile(PathOf("missing/a"), {}), ENOENT);
}

// Without read permission, a folder can't be opened for the flush.
TEST_F(FileReplacementTest, AFolderThatMayOnlyBeWrittenToTakesTheFile) {
  constexpr uid_t kOther = 65534;
  fs::create_directory(PathOf("box"));
  ASSERT_EQ(chmod(fs::path(PathOf("")).parent_path().c_str(), 0711), 0);
  ASSERT_EQ(chmod(PathOf("box").c_str(), 0333), 0);
  const bool isRoot = geteuid() == 0;
  ASSERT_EQ(isRoot ? seteuid(kOther) : 0, 0);
  EXPECT_EQ(ReplaceFile(PathOf("box/a"), {}), 0);
  ASSERT_EQ(isRoot ? seteuid(0) : 0, 0);
  EXPECT_EQ(chmod(PathOf("box").c_str(), 0755), 0);
  EXPECT_TRUE(fs::exists(PathOf("box/a")));
}

}  // namespace
}  // namespace lidcam::base
