#include "platform/host/nt/system/status_words.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "tests/base/pattern.h"

namespace lidcam::test {
namespace {

/// The statuses that a header defines.
std::set<NTSTATUS> StatusesOf(const std::string& header) {
  std::ifstream file(std::string(LIDCAM_SOURCE_ROOT "/platform/host/nt/declarations/") + header);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  std::set<NTSTATUS> statuses;
  for (const PatternMatch& declaration :
       MatchesOf(text, R"(#define STATUS_\w+ \(static_cast<NTSTATUS>\(0x([0-9A-F]{8})\)\))")) {
    statuses.insert(static_cast<NTSTATUS>(std::stoul(declaration.Group, nullptr, 16)));
  }
  return statuses;
}

TEST(StatusWords, EveryStatusOfTheKernelHasSomeOfItsOwn) {
  std::set<NTSTATUS> statuses = StatusesOf("nt_declarations.h");
  statuses.merge(StatusesOf("io_declarations.h"));
  EXPECT_GT(statuses.size(), 35U);
  std::set<std::string> words;
  for (const NTSTATUS status : statuses) {
    EXPECT_NE(host::WordsOf(status), "") << std::hex << status;
    EXPECT_TRUE(words.emplace(host::WordsOf(status)).second) << host::WordsOf(status);
  }
}

TEST(StatusWords, StandBehindTheNumber) {
  EXPECT_EQ(host::StatusText(static_cast<NTSTATUS>(0xC000009C)),
            "status C000009C (the device failed the request)");
  EXPECT_EQ(host::StatusText(static_cast<NTSTATUS>(0xC000009D)),
            "status C000009D (the device is gone)");
}

TEST(StatusWords, OfAStatusThatNothingGivesAreLeftOut) {
  EXPECT_EQ(host::StatusText(static_cast<NTSTATUS>(0xC0FFEE00)), "status C0FFEE00");
}

}  // namespace
}  // namespace lidcam::test
