#include "base/folder_entries.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace lidcam::base {
namespace {

namespace fs = std::filesystem;

TEST(FolderEntries, AreInTheOrderOfTheirPaths) {
  const fs::path folder =
      fs::temp_directory_path() / ("lidcam-entries-" + std::to_string(::getpid()));
  fs::create_directories(folder / "b");
  std::ofstream(folder / "c") << "c";
  std::ofstream(folder / "a") << "a";
  EXPECT_EQ(EntriesOf(folder), (std::vector<fs::path>{folder / "a", folder / "b", folder / "c"}));
  fs::remove_all(folder);
}

TEST(FolderEntries, AreNoneOfAFolderThatIsNotThere) {
  EXPECT_TRUE(EntriesOf("/no/such/folder").empty());
}

}  // namespace
}  // namespace lidcam::base
