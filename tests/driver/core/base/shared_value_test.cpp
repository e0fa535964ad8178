#include "driver/core/base/shared_value.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/base/pattern.h"

namespace lidcam::test {
namespace {

TEST(SharedValue, StartsAsZero) {
  const Shared<std::uint32_t> value;
  EXPECT_EQ(value, 0U);
}

TEST(SharedValue, HoldsWhatWasStoredLast) {
  Shared<std::int32_t> value{-7};
  EXPECT_EQ(value, -7);
  value = 9;
  EXPECT_EQ(value, 9);
  const Shared<std::int32_t> other{11};
  value = other;
  EXPECT_EQ(value, 11);
}

TEST(SharedValue, IsAsWideAsWhatItHolds) {
  EXPECT_EQ(sizeof(Shared<std::uint8_t>), 1U);
  EXPECT_EQ(sizeof(Shared<std::uint16_t>), 2U);
  EXPECT_EQ(sizeof(Shared<std::uint32_t>), 4U);
  EXPECT_EQ(sizeof(Shared<void*>), sizeof(void*));
}

// Lines of the driver's headers, with the line above each.
struct HeaderLine {
  std::string Above;
  std::string Text;
};

std::vector<HeaderLine> LinesOfAllHeaders() {
  std::vector<HeaderLine> lines;
  const std::filesystem::path driver = std::filesystem::path(LIDCAM_SOURCE_ROOT) / "driver";
  for (const auto& entry : std::filesystem::recursive_directory_iterator(driver)) {
    if (entry.path().extension() != ".h") continue;
    std::ifstream file(entry.path());
    std::string above;
    for (std::string line; std::getline(file, line); above = line) lines.push_back({above, line});
  }
  return lines;
}

TEST(SharedValue, EveryFieldSaysWhichContextsMeetThere) {
  const std::string field = R"(^ +Shared<[^;]*>\s+\w+(\{.*\})?;)";
  const std::string contexts = R"(///<? \w[[:alnum:]_, ]* \| \w)";
  int fields = 0;
  for (const HeaderLine& line : LinesOfAllHeaders()) {
    if (MatchesOf(line.Text, field).empty()) continue;
    ++fields;
    const bool isBeside = line.Text.find("///") != std::string::npos;
    EXPECT_FALSE(MatchesOf(isBeside ? line.Text : line.Above, contexts).empty()) << line.Text;
  }
  EXPECT_GT(fields, 80);
}

}  // namespace
}  // namespace lidcam::test
