#include "tests/base/pattern.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace lidcam::test {
namespace {

using testing::ElementsAre;
using testing::Field;

TEST(Pattern, ItsMatchesComeInTheirOrderWithTheirGroups) {
  EXPECT_THAT(MatchesOf("a=1\nb=22, c", R"(\w=([0-9]+))"),
              ElementsAre(Field(&PatternMatch::Group, "1"), Field(&PatternMatch::Group, "22")));
  EXPECT_THAT(MatchesOf("one two", "[a-z]+"),
              ElementsAre(Field(&PatternMatch::Text, "one"), Field(&PatternMatch::Text, "two")));
}

TEST(Pattern, AnEmptyMatchIsFoundOnceAtEachPlace) {
  EXPECT_EQ(MatchesOf("ab", "x*").size(), 3U);
}

TEST(Pattern, ABrokenOneIsAnError) {
  EXPECT_THROW((void)MatchesOf("text", "(open"), std::invalid_argument);
}

}  // namespace
}  // namespace lidcam::test
