#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "platform/host/nt/registry/registry_text.h"
#include "tests/platform/nt/registry/registry_support.h"

namespace lidcam::test {
namespace {

using host::RegistryTree;
using host::RegistryValue;

constexpr std::string_view kHeader = "Windows Registry Editor Version 5.00\r\n\r\n";

std::string ToUtf16(std::string_view ascii) {
  std::string bytes = "\xFF\xFE";
  for (const char letter : ascii) {
    bytes.push_back(letter);
    bytes.push_back('\0');
  }
  return bytes;
}

RegistryTree ParseWhole(std::string_view bytes) {
  RegistryTree tree;
  host::RegistryTextError error;
  EXPECT_TRUE(ParseRegistryText(bytes, tree, error)) << error.Line << ": " << error.What;
  return tree;
}

RegistryTree ParseLines(std::string_view lines) {
  return ParseWhole(std::string(kHeader) + std::string(lines));
}

RegistryValue Bytes(std::uint32_t type, std::vector<std::uint8_t> data) {
  return {type, std::move(data)};
}

TEST(RegistryText, TheWrittenTextIsTheOneThePlatformWrites) {
  RegistryTree tree;
  tree.SetValue(u"HKEY_LOCAL_MACHINE\\Camera\\Settings", u"Brightness", Dword(20));
  tree.SetValue(u"HKEY_LOCAL_MACHINE\\Camera\\Settings", u"a \"b\" \\c",
                Bytes(1, {'x', 0, '\\', 0, '"', 0, 0, 0}));
  tree.SetValue(u"HKEY_LOCAL_MACHINE\\Camera\\Settings", u"", Bytes(3, {0x0A, 0xFF}));
  tree.SetValue(u"HKEY_LOCAL_MACHINE\\Camera\\Settings", u"wide",
                Bytes(11, {1, 0, 0, 0, 0, 0, 0, 0}));
  tree.SetValue(u"HKEY_LOCAL_MACHINE\\Camera\\Settings", u"none", Bytes(0, {}));
  tree.CreateKey(u"HKEY_USERS\\Empty");
  EXPECT_EQ(WriteRegistryText(tree), ToUtf16("Windows Registry Editor Version 5.00\r\n"
                                             "\r\n"
                                             "[HKEY_LOCAL_MACHINE\\Camera\\Settings]\r\n"
                                             "@=hex:0a,ff\r\n"
                                             "\"a \\\"b\\\" \\\\c\"=\"x\\\\\\\"\"\r\n"
                                             "\"Brightness\"=dword:00000014\r\n"
                                             "\"none\"=hex(0):\r\n"
                                             "\"wide\"=hex(b):01,00,00,00,00,00,00,00\r\n"
                                             "\r\n"
                                             "[HKEY_USERS\\Empty]\r\n"
                                             "\r\n"));
}

TEST(RegistryText, LongListsOfBytesBreakWithinEightyColumns) {
  RegistryTree tree;
  tree.SetValue(u"HKEY_USERS", u"long", Bytes(3, std::vector<std::uint8_t>(100, 0xAB)));
  const std::string text = WriteRegistryText(tree);
  std::size_t column = 0;
  std::size_t lines = 0;
  for (std::size_t at = 2; at < text.size(); at += 2) {
    column = text[at] == '\n' ? 0 : column + 1;
    if (text[at] == '\n') ++lines;
    EXPECT_LE(column, 80U);
  }
  EXPECT_GT(lines, 6U);
  EXPECT_EQ(ParseWhole(text), tree);
}

TEST(RegistryText, Utf16AndUtf8WithAnyLineEndSayTheSame) {
  RegistryTree expected;
  expected.SetValue(u"HKEY_USERS\\Camera", u"LED", Dword(4));
  std::string crlf(kHeader);
  crlf.append("[HKEY_USERS\\Camera]\r\n\"LED\"=dword:00000004\r\n");
  std::string lf;
  std::string cr;
  for (const char letter : crlf) {
    if (letter != '\r') lf.push_back(letter);
    if (letter != '\n') cr.push_back(letter);
  }
  EXPECT_EQ(ParseWhole(ToUtf16(crlf)), expected);
  EXPECT_EQ(ParseWhole(ToUtf16(lf)), expected);
  EXPECT_EQ(ParseWhole(crlf), expected);
  EXPECT_EQ(ParseWhole(lf), expected);
  EXPECT_EQ(ParseWhole(cr), expected);
  EXPECT_EQ(ParseWhole(crlf.insert(0, "\xEF\xBB\xBF")), expected);
}

TEST(RegistryText, Utf8OfEveryLengthBecomesTheRightCharacters) {
  const RegistryTree tree = ParseLines("[HKEY_USERS]\n\"a\u00E9\u20AC\U0001F4F7\"=dword:1\n");
  RegistryTree expected;
  expected.SetValue(u"HKEY_USERS", u"a\u00E9\u20AC\U0001F4F7", Dword(1));
  EXPECT_EQ(tree, expected);
}

TEST(RegistryText, WhatAPersonMayWriteIsUnderstood) {
  const RegistryTree tree = ParseLines(
      "; the camera of the lid\n"
      "  [HKEY_USERS\\Odd ] Name]  \n"
      "\t\"short\" = dword:14 ; twenty\n"
      "\"upper\"=DWORD:0000ABCD\n"
      "\"list\"=hex(4):14,\\\n"
      "    0, \\\n"
      "    0,00\n"
      "\"text\"=\"; no comment\"\n"
      "@=\"\"\n");
  RegistryTree expected;
  const std::u16string key = u"HKEY_USERS\\Odd ] Name";
  expected.SetValue(key, u"short", Dword(20));
  expected.SetValue(key, u"upper", Dword(0xABCD));
  expected.SetValue(key, u"list", Dword(20));
  std::vector<std::uint8_t> text;
  for (const char letter : std::string("; no comment\0", 13)) {
    text.push_back(static_cast<std::uint8_t>(letter));
    text.push_back(0);
  }
  expected.SetValue(key, u"text", Bytes(1, text));
  expected.SetValue(key, u"", Bytes(1, {0, 0}));
  EXPECT_EQ(tree, expected);
}

TEST(RegistryText, LaterLinesReplaceAndDeletingLinesTakeBack) {
  const RegistryTree tree = ParseLines(
      "[HKEY_USERS\\A]\n\"v\"=dword:1\n\"V\"=dword:2\n\"gone\"=dword:3\n\"Gone\"=-\n"
      "[HKEY_USERS\\B\\C]\n\"v\"=dword:1\n[HKEY_USERS\\Bc]\n"
      "[-hkey_users\\b]\n");
  RegistryTree expected;
  expected.SetValue(u"HKEY_USERS\\A", u"v", Dword(2));
  expected.CreateKey(u"HKEY_USERS\\Bc");
  EXPECT_EQ(tree, expected);
}

TEST(RegistryText, NamesDifferInMoreThanCaseOnly) {
  RegistryTree tree;
  tree.SetValue(u"HKEY_USERS\\Caf\u00E9", u"\u0431\u03B1", Dword(1));
  EXPECT_NE(tree.FindValue(u"hkey_users\\CAF\u00C9", u"\u0411\u0391"), nullptr);
  EXPECT_EQ(tree.FindValue(u"HKEY_USERS\\Cafe", u"\u0431\u03B1"), nullptr);
  EXPECT_TRUE(host::IsBelowKey(u"hkey_users\\x", u"HKEY_USERS"));
  EXPECT_FALSE(host::IsBelowKey(u"HKEY_USERSX", u"HKEY_USERS"));
}

struct Damage {
  std::string_view Bytes;
  std::size_t Line;
  std::string_view What;
};

class RegistryTextDamage : public ::testing::TestWithParam<Damage> {};

TEST_P(RegistryTextDamage, IsToldWithItsLine) {
  RegistryTree tree;
  host::RegistryTextError error;
  EXPECT_FALSE(ParseRegistryText(GetParam().Bytes, tree, error));
  EXPECT_EQ(error.Line, GetParam().Line);
  EXPECT_THAT(error.What, ::testing::HasSubstr(std::string(GetParam().What)));
}

#define HEAD "Windows Registry Editor Version 5.00\n"
using namespace std::string_view_literals;
INSTANTIATE_TEST_SUITE_P(
    Kinds, RegistryTextDamage,
    ::testing::Values(
        Damage{"", 0, "empty"}, Damage{"REGEDIT4\n", 1, "header"},
        Damage{"Windows Registry Editor Version 5.00", 1, "cut"},
        Damage{"\xFE\xFF\0W"sv, 0, "wrong order"}, Damage{"\xFF\xFEW\0i"sv, 0, "cut"},
        Damage{HEAD "\xC0\x80\n", 0, "UTF-8"}, Damage{HEAD "\xED\xA0\x80\n", 0, "UTF-8"},
        Damage{HEAD "\xF4\x90\x80\x80\n", 0, "UTF-8"}, Damage{HEAD "\xE2\x82", 0, "UTF-8"},
        Damage{HEAD "\x80\n", 0, "UTF-8"}, Damage{HEAD "\0\n"sv, 2, "zero"},
        Damage{HEAD "\"a\"=dword:1\n", 2, "outside"}, Damage{HEAD "[HKEY_USERS\n", 2, "bracket"},
        Damage{HEAD "[USERS]\n", 2, "HKEY_"}, Damage{HEAD "[HKEY_USERS\\]\n", 2, "HKEY_"},
        Damage{HEAD "[HKEY_USERS\\\\A]\n", 2, "HKEY_"}, Damage{HEAD "[]\n", 2, "HKEY_"},
        Damage{HEAD "[HKEY_A]\na=dword:1\n", 3, "neither"},
        Damage{HEAD "[HKEY_A]\n\"a\n", 3, "not closed"}, Damage{HEAD "[HKEY_A]\n\"a\\", 3, "cut"},
        Damage{HEAD "[HKEY_A]\n\"a\\\n", 3, "not closed"},
        Damage{HEAD "[HKEY_A]\n\"a\\b\"=dword:1\n", 3, "doubled"},
        Damage{HEAD "[HKEY_A]\n\"a\" dword:1\n", 3, "equals"},
        Damage{HEAD "[HKEY_A]\n\"a\"=dword:\n", 3, "digits"},
        Damage{HEAD "[HKEY_A]\n\"a\"=dword:123456789\n", 3, "digits"},
        Damage{HEAD "[HKEY_A]\n\"a\"=dword:1 2\n", 3, "more than one"},
        Damage{HEAD "[HKEY_A]\n\"a\"=qword:1\n", 3, "unknown"},
        Damage{HEAD "[HKEY_A]\n\"a\"=hex(x):1\n", 3, "type"},
        Damage{HEAD "[HKEY_A]\n\"a\"=hex(1:1\n", 3, "type"},
        Damage{HEAD "[HKEY_A]\n\"a\"=hex:100\n", 3, "byte"},
        Damage{HEAD "[HKEY_A]\n\"a\"=hex:1,\n", 3, "byte"},
        Damage{HEAD "[HKEY_A]\n\"a\"=hex:1,\\ 2\n", 3, "backslash"},
        Damage{HEAD "[HKEY_A]\n\"a\"=hex:1,\\\n", 3, "goes on"},
        Damage{HEAD "[HKEY_A]\n\"a\"=- -\n", 3, "more than one"},
        Damage{HEAD "[HKEY_A]\n[-HKEY_A]\n\"a\"=dword:1\n", 4, "outside"}));

// A cut inside a line is always detected; one between lines keeps the lines before it.
TEST(RegistryText, ACutTextIsDamagedOrEndsBetweenLines) {
  RegistryTree tree;
  tree.SetValue(u"HKEY_USERS\\Camera", u"Gamma", Dword(11));
  tree.SetValue(u"HKEY_USERS\\Camera", u"Bytes", Bytes(3, std::vector<std::uint8_t>(60, 7)));
  tree.SetValue(u"HKEY_USERS\\Camera", u"Text", Bytes(1, {'a', 0, 0, 0}));
  const std::string whole = WriteRegistryText(tree);
  // The character `count` places before a cut.
  const auto before = [&whole](std::size_t size, std::size_t count) {
    return size >= 2 * count && size % 2 == 0 ? whole[size - 2 * count] : '?';
  };
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const std::size_t lineEnd = before(size, 1) == '\n' ? 2 : before(size, 1) == '\r' ? 1 : 0;
    const bool isWhole = lineEnd != 0 && before(size, lineEnd + 1) != '\\';
    RegistryTree cut;
    host::RegistryTextError error;
    ASSERT_EQ(ParseRegistryText(whole.substr(0, size), cut, error), isWhole) << size;
    if (!isWhole) continue;
    for (const auto& [path, values] : cut.Keys()) {
      for (const auto& [name, value] : values) EXPECT_EQ(*tree.FindValue(path, name), value);
    }
  }
}

TEST(RegistryText, RandomTreesComeBackFromTheirText) {
  constexpr std::u16string_view kLetters = u"aB\\\"]; =@-,\u00E9\xD83D\u4E00[\t";
  constexpr std::u16string_view kKeyLetters = u"aB\"]; =@-,\u00E9\xD83D\u4E00[\t";
  for (unsigned seed = 0; seed < 2000; ++seed) {
    std::mt19937 random(seed);
    const auto pick = [&random](std::size_t count) { return random() % count; };
    const auto word = [&](std::u16string_view letters, std::size_t length) {
      std::u16string text;
      while (length-- > 0) text.push_back(letters[pick(letters.size())]);
      return text;
    };
    RegistryTree tree;
    for (std::size_t i = 0; i <= pick(8); ++i) {
      std::u16string path = u"HKEY_" + word(u"aB", pick(2));
      for (std::size_t level = pick(3); level > 0; --level) {
        path += u"\\" + word(kKeyLetters, 1 + pick(4));
      }
      RegistryValue value{static_cast<std::uint32_t>(pick(13)), {}};
      if (pick(20) == 0) value.Type = static_cast<std::uint32_t>(random());
      for (std::size_t size = pick(2) == 0 ? 4 : pick(40); size > 0; --size) {
        value.Data.push_back(static_cast<std::uint8_t>(pick(3) == 0 ? 0 : random()));
      }
      if (pick(5) == 0) {
        tree.CreateKey(path);
      } else {
        tree.SetValue(path, word(kLetters, pick(5)), value);
      }
    }
    EXPECT_EQ(ParseWhole(WriteRegistryText(tree)), tree) << "seed " << seed;
  }
}

}  // namespace
}  // namespace lidcam::test
