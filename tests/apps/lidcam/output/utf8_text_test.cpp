#include "apps/lidcam/output/utf8_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

namespace lidcam::app {
namespace {

TEST(Utf8Text, LeavesTextAlone) {
  for (const std::string text :
       {"", "clip.y4m", "a\\xFF", "caf\xC3\xA9", "\xE2\x82\xAC", "\xED\x9F\xBF", "\xEE\x80\x80",
        "\xEF\xBB\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBD", "\x01\x7F"}) {
    EXPECT_EQ(Utf8Text(text), text);
  }
}

TEST(Utf8Text, ShowsEachByteThatIsNoneByItsNumber) {
  EXPECT_EQ(Utf8Text("n\xFF.pcap"), "n\\xFF.pcap");
  EXPECT_EQ(Utf8Text("caf\xE9"), "caf\\xE9") << "another encoding";
  EXPECT_EQ(Utf8Text("\x80z"), "\\x80z") << "the rest of a character";
  EXPECT_EQ(Utf8Text("\xE2\x82"), "\\xE2\\x82") << "a part of one";
  EXPECT_EQ(Utf8Text("\xE2\x82z"), "\\xE2\\x82z");
  EXPECT_EQ(Utf8Text("\xC0\x80"), "\\xC0\\x80") << "longer than it need be";
  EXPECT_EQ(Utf8Text("\xE0\x80\x80"), "\\xE0\\x80\\x80");
  EXPECT_EQ(Utf8Text("\xED\xA0\x80"), "\\xED\\xA0\\x80") << "half of a pair";
  EXPECT_EQ(Utf8Text("\xF4\x90\x80\x80"), "\\xF4\\x90\\x80\\x80") << "beyond the last character";
  EXPECT_EQ(Utf8Text("\xEF\xBF\xBF"), "\\xEF\\xBF\\xBF") << "no character";
}

TEST(JsonText, TakesAnyNameAnywhere) {
  const nlohmann::json value = {{"file", "n\xFF"}, {"list", {"\xFE", 3, {{"deep", "\xE9"}}}}};
  const std::string text = JsonText(value, -1);
  EXPECT_EQ(text, R"({"file":"n\\xFF","list":["\\xFE",3,{"deep":"\\xE9"}]})");
  EXPECT_EQ(nlohmann::json::parse(text)["file"], "n\\xFF");
}

}  // namespace
}  // namespace lidcam::app
