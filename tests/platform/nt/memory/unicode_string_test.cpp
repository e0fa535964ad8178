#include <gtest/gtest.h>

#include <array>
#include <string>
#include <string_view>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {
namespace {

TEST(CountedString, CountsBytesWithoutTheTerminator) {
  UNICODE_STRING string;
  constexpr const WCHAR* kText = u"Settings";
  RtlInitUnicodeString(&string, kText);
  EXPECT_EQ(string.Length, 16);
  EXPECT_EQ(string.MaximumLength, 18);
  EXPECT_EQ(string.Buffer, kText);
}

TEST(CountedString, OfNullIsEmpty) {
  UNICODE_STRING string;
  RtlInitUnicodeString(&string, nullptr);
  EXPECT_EQ(string.Length, 0);
  EXPECT_EQ(string.MaximumLength, 0);
  EXPECT_EQ(string.Buffer, nullptr);
}

TEST(CountedString, OfEmptyTextHasRoomForTheTerminatorOnly) {
  UNICODE_STRING string;
  RtlInitUnicodeString(&string, u"");
  EXPECT_EQ(string.Length, 0);
  EXPECT_EQ(string.MaximumLength, 2);
}

TEST(CountedString, IsCutAtWhatSixteenBitsCanCount) {
  const std::u16string text(40'000, u'x');
  UNICODE_STRING string;
  RtlInitUnicodeString(&string, text.c_str());
  EXPECT_EQ(string.Length, 0xFFFC);
  EXPECT_EQ(string.MaximumLength, 0xFFFE);
}

struct Room {
  std::array<WCHAR, 8> Text{u'a', u'b', u'!', u'!', u'!', u'!', u'!', u'!'};
  UNICODE_STRING String{4, 10, Text.data()};  // "ab" in a buffer for five characters
};

TEST(CountedString, AppendsWhatFitsAndTerminates) {
  Room room;
  EXPECT_EQ(RtlAppendUnicodeToString(&room.String, u"cd"), STATUS_SUCCESS);
  EXPECT_EQ(room.String.Length, 8);
  EXPECT_EQ(std::u16string_view(room.Text.data()), u"abcd");
}

TEST(CountedString, AppendsUpToTheLastCharacterWithoutATerminator) {
  Room room;
  EXPECT_EQ(RtlAppendUnicodeToString(&room.String, u"cde"), STATUS_SUCCESS);
  EXPECT_EQ(room.String.Length, 10);
  EXPECT_EQ(std::u16string_view(room.Text.data(), 6), u"abcde!");
}

TEST(CountedString, RefusesAndKeepsItsTextWhenTheAppendixHasNoRoom) {
  Room room;
  EXPECT_EQ(RtlAppendUnicodeToString(&room.String, u"cdef"), STATUS_BUFFER_TOO_SMALL);
  EXPECT_EQ(room.String.Length, 4);
  EXPECT_EQ(std::u16string_view(room.Text.data(), 3), u"ab!");
}

TEST(CountedString, AppendsNothingForNull) {
  Room room;
  EXPECT_EQ(RtlAppendUnicodeToString(&room.String, nullptr), STATUS_SUCCESS);
  EXPECT_EQ(room.String.Length, 4);
}

}  // namespace
}  // namespace lidcam::host
