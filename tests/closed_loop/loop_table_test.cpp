#include "tests/closed_loop/loop_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/driver/support/sanitizers.h"

namespace lidcam::app {
namespace {

std::vector<std::string> GoldenLines() {
  std::ifstream file(LIDCAM_SOURCE_ROOT "/tests/closed_loop/golden/closed_loop.txt");
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line + "\n");
  return lines;
}

constexpr std::size_t kLoopCases = 78;
// Under sanitizers, a sample of all lights, mains and first indexes.
const std::size_t kStep = test::kIsSanitized ? 5 : 1;

class LoopTableLines : public ::testing::TestWithParam<std::size_t> {};

// Each line is a result of the whole chain: light, sensor, bus, driver, registers, sensor. A change
// in any of them that affects the loop changes a line; print_loop_table prints a new table.
TEST_P(LoopTableLines, TheLoopComesToRestOrSwingsAsRecorded) {
  const LoopCase loopCase = AllLoopCases().at(GetParam());
  EXPECT_EQ(LoopTableLine(loopCase, RunLoopCase(loopCase)), GoldenLines().at(GetParam() + 2));
}

INSTANTIATE_TEST_SUITE_P(AtEveryLight, LoopTableLines,
                         ::testing::Range(std::size_t{0}, kLoopCases, kStep));

TEST(LoopTable, HasALineForEveryLight) {
  const std::vector<std::string> golden = GoldenLines();
  EXPECT_EQ(AllLoopCases().size(), kLoopCases);
  ASSERT_EQ(golden.size(), kLoopCases + 2);
  EXPECT_EQ(golden[0] + golden[1], LoopTableHeading());
}

TEST(LoopTable, StandsInTheDocumentation) {
  std::ifstream file(LIDCAM_SOURCE_ROOT "/docs/exposure.md");
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  std::string table;
  for (const std::string& line : GoldenLines()) table += line;
  EXPECT_THAT(text, ::testing::HasSubstr("```text\n" + table + "```\n"));
}

// The same case twice, with another one in between that leaves other values behind.
TEST(LoopTable, ARunTellsNothingOfTheRunBefore) {
  const LoopCase loopCase{46, 50, 30};
  const std::string before = LoopTableLine(loopCase, RunLoopCase(loopCase));
  (void)RunLoopCase({1, 60, 80});
  EXPECT_EQ(LoopTableLine(loopCase, RunLoopCase(loopCase)), before);
}

}  // namespace
}  // namespace lidcam::app
