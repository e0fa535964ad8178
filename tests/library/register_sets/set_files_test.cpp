#include "library/register_sets/set_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "library/register_sets/set_checker.h"
#include "library/register_sets/set_compiler.h"
#include "tests/driver/sensor/register_sets/register_set_bytes.h"
#include "tests/driver/support/system_root.h"

namespace lidcam::app {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

using namespace lidcam::test;

class SetFiles : public ::testing::Test {
 protected:
  void Put(const std::string& name, const std::string& text) {
    disk_.Write(name, {text.begin(), text.end()});
  }

  [[nodiscard]] std::filesystem::path Path(const std::string& name) const {
    return disk_.Drivers() / name;
  }

  [[nodiscard]] Bytes ContentOf(const std::string& name) const {
    std::string error;
    return ReadSetFile(Path(name), error).value_or(Bytes{});
  }

  [[nodiscard]] std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(disk_.Drivers())) {
      names.push_back(entry.path().filename().string());
    }
    return names;
  }

 private:
  TemporarySystemRoot disk_;
};

TEST_F(SetFiles, FileThatNeverEndsIsNoSetFile) {
  std::string error;
  EXPECT_EQ(ReadSetFile("/dev/zero", error), std::nullopt);
  EXPECT_EQ(error, "/dev/zero: File too large");
}

TEST_F(SetFiles, SourceIsCompiledIntoTheTarget) {
  Put("S001.txt", "[setup]\nbridge FF0A = 01\n");
  EXPECT_THAT(CompileRegisterSetFile(Path("S001.txt"), Path("S001.set")), IsEmpty());
  EXPECT_EQ(ContentOf("S001.set"), SetFile({Section(1, {0x11, 0x0A, 0x01})}));
  EXPECT_THAT(Names(), UnorderedElementsAre("S001.txt", "S001.set"));
}

TEST_F(SetFiles, SourceWithErrorsLeavesTheTargetAsItWas) {
  Put("S001.txt", "[setup]\nbridge FF0A = 1\n");
  Put("S001.set", "before");
  EXPECT_THAT(
      CompileRegisterSetFile(Path("S001.txt"), Path("S001.set")),
      ElementsAre(Path("S001.txt").string() + ":2: value '1' is not two hexadecimal digits"));
  EXPECT_EQ(ContentOf("S001.set"), (Bytes{'b', 'e', 'f', 'o', 'r', 'e'}));
}

TEST_F(SetFiles, MissingSourceAndUnwritableTargetAreNamed) {
  EXPECT_THAT(CompileRegisterSetFile(Path("S001.txt"), Path("S001.set")),
              ElementsAre(Path("S001.txt").string() + ": No such file or directory"));
  Put("S001.txt", "[setup]\n");
  const std::filesystem::path target = Path("nowhere") / "S001.set";
  EXPECT_THAT(CompileRegisterSetFile(Path("S001.txt"), target),
              ElementsAre(target.string() + ": No such file or directory"));
}

TEST_F(SetFiles, TargetThatIsAFolderStaysAndNothingIsLeftBehind) {
  Put("S001.txt", "[setup]\n");
  std::filesystem::create_directory(Path("S001.set"));
  EXPECT_THAT(CompileRegisterSetFile(Path("S001.txt"), Path("S001.set")),
              ElementsAre(Path("S001.set").string() + ": Is a directory"));
  EXPECT_THAT(Names(), UnorderedElementsAre("S001.txt", "S001.set"));
}

TEST(SimulatedSets, AreEightSoundFiles) {
  std::vector<std::string> names;
  for (const SimulatedSet& set : SimulatedSets()) {
    names.emplace_back(set.Name);
    const CompiledSet compiled = CompileRegisterSet(set.Source);
    for (const SourceError& error : compiled.Errors) ADD_FAILURE() << ErrorText(set.Name, error);
    for (const SetFinding& finding : CheckRegisterSet(compiled.Bytes)) {
      if (finding.Kind == SetFinding::Weight::Fault) {
        ADD_FAILURE() << FindingText(set.Name, finding);
      }
    }
  }
  EXPECT_THAT(names, ElementsAre("S000", "S001", "S002", "S003", "S004", "S005", "S006", "S007"));
}

TEST_F(SetFiles, SimulatedSetsAreInstalledWhereTheDriverLooksForThem) {
  const std::filesystem::path root = Path("fresh");
  EXPECT_EQ(InstallSimulatedSets(root), std::nullopt);
  EXPECT_EQ(InstallSimulatedSets(root), std::nullopt);  // again over what is there
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(root / "system32" / "drivers")) {
    names.push_back(entry.path().filename().string());
  }
  EXPECT_THAT(names, UnorderedElementsAre("S000.set", "S001.set", "S002.set", "S003.set",
                                          "S004.set", "S005.set", "S006.set", "S007.set"));
}

TEST_F(SetFiles, FolderThatCannotBeMadeIsNamed) {
  Put("file", "");
  const auto error = InstallSimulatedSets(Path("file"));
  ASSERT_TRUE(error.has_value());
  EXPECT_THAT(*error, ::testing::StartsWith((Path("file") / "system32" / "drivers").string()));
}

}  // namespace
}  // namespace lidcam::app
