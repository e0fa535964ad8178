#include "bus/faults/fault_source.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "bus/faults/random_faults.h"

namespace lidcam::bus {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

std::string ErrorOf(const std::string& argument) {
  try {
    (void)LoadFaults(argument, 1s);
  } catch (const FaultScriptError& error) {
    return error.what();
  }
  return "read";
}

class ScriptFile {
 public:
  explicit ScriptFile(const std::string& text) { std::ofstream(path, std::ios::binary) << text; }
  ~ScriptFile() { std::filesystem::remove(path); }
  ScriptFile(const ScriptFile&) = delete;
  ScriptFile& operator=(const ScriptFile&) = delete;

  const std::string path = testing::TempDir() + "lidcam-" +
                           testing::UnitTest::GetInstance()->current_test_info()->name() + ".txt";
};

TEST(FaultSource, SeedGivesItsRandomFaults) {
  EXPECT_EQ(LoadFaults("seed=42", 3s), RandomFaults(42, 3s));
  EXPECT_EQ(LoadFaults("seed=42,packets", 3s), RandomFaults(42, 3s, RandomFaultMix::Packets));
  EXPECT_EQ(LoadFaults("seed=0,requests", 3s), RandomFaults(0, 3s));
  EXPECT_EQ(LoadFaults("seed=18446744073709551615,everything", 3s),
            RandomFaults(UINT64_MAX, 3s, RandomFaultMix::Everything));
}

TEST(FaultSource, WrongSeedsAreNamed) {
  for (const char* const argument : {"seed=", "seed=x", "seed=-1", "seed=1,", "seed=1,all",
                                     "seed=18446744073709551616", "seed=1 "}) {
    EXPECT_THAT(ErrorOf(argument), HasSubstr("faults '" + std::string(argument) + "': a seed is"));
  }
}

TEST(FaultSource, NameOfAFileGivesItsScript) {
  const ScriptFile file{"# one\nat 2s lose 5\n"};
  EXPECT_EQ(ToText(LoadFaults(file.path, 1s)), "at 2s lose 5\n");
}

TEST(FaultSource, ByteOrderMarkIsNoError) {
  const ScriptFile file{
      "\xEF\xBB\xBF"
      "at 2s lose 5\n"};
  EXPECT_EQ(ToText(LoadFaults(file.path, 1s)), "at 2s lose 5\n");
}

TEST(FaultSource, MistakeInAFileIsNamedWithTheFile) {
  const ScriptFile file{"\nat 2s lose x\n"};
  EXPECT_EQ(ErrorOf(file.path), file.path + ":2: 'x' is not a count from 1 to 1000000000");
}

TEST(FaultSource, FileOfMoreThanSixteenMebibytesIsRefused) {
  const ScriptFile file{std::string((16U << 20) + 1, '\n')};
  EXPECT_EQ(ErrorOf(file.path), file.path + ": longer than a fault script may be (16 MiB)");
}

TEST(FaultSource, AnythingElseIsTheScriptItself) {
  EXPECT_EQ(ToText(LoadFaults("at 2s lose 5; control 12 stall", 1s)),
            "at 2s lose 5\ncontrol 12 stall\n");
  EXPECT_EQ(LoadFaults("", 1s), FaultScript{});
  EXPECT_EQ(ErrorOf("at 2s lose x"), "faults:1: 'x' is not a count from 1 to 1000000000");
}

TEST(FaultSource, OneWordThatIsNoFileIsAskedFor) {
  EXPECT_EQ(
      ErrorOf("nosuch.txt"),
      "faults 'nosuch.txt': there is no such file; right would be a file, seed=N, or a script "
      "such as 'at 2s lose 5; control 12 stall'");
}

}  // namespace
}  // namespace lidcam::bus
