#include "tests/closed_loop/loop_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace lidcam::app {
namespace {

std::vector<std::string> GoldenLines() {
  std::ifstream file(LIDCAM_SOURCE_ROOT "/tests/closed_loop/golden/closed_loop.txt");
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line + "\n");
  return lines;
}

// Each line comes out of the whole chain: light, sensor, bus, driver, registers, sensor. A change
// of any of them that moves the loop shows here; print_loop_table prints the table anew.
TEST(LoopTable, TheLoopComesToRestOrSwingsAsRecordedAtEveryLight) {
  const std::vector<std::string> golden = GoldenLines();
  const std::vector<LoopCase> cases = AllLoopCases();
  ASSERT_EQ(cases.size(), 78U);
  ASSERT_EQ(golden.size(), 80U);
  EXPECT_EQ(golden[0] + golden[1], LoopTableHeading());
  for (std::size_t i = 0; i < cases.size(); ++i) {
    EXPECT_EQ(LoopTableLine(cases[i], RunLoopCase(cases[i])), golden[i + 2]);
  }
}

TEST(LoopTable, StandsInTheDocumentation) {
  std::ifstream file(LIDCAM_SOURCE_ROOT "/docs/exposure.md");
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  std::string table;
  for (const std::string& line : GoldenLines()) table += line;
  EXPECT_THAT(text, ::testing::HasSubstr("```text\n" + table + "```\n"));
}

// The same case twice, with another one between them that leaves other values behind.
TEST(LoopTable, ARunTellsNothingOfTheRunBefore) {
  const LoopCase loopCase{46, 50, 30};
  const std::string before = LoopTableLine(loopCase, RunLoopCase(loopCase));
  (void)RunLoopCase({1, 60, 80});
  EXPECT_EQ(LoopTableLine(loopCase, RunLoopCase(loopCase)), before);
}

}  // namespace
}  // namespace lidcam::app
