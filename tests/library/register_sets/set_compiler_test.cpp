#include "library/register_sets/set_compiler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/driver/sensor/register_sets/register_set_bytes.h"

namespace lidcam::app {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using namespace lidcam::test;

std::vector<std::string> ErrorsOf(std::string_view source) {
  const CompiledSet set = CompileRegisterSet(source);
  EXPECT_EQ(set.Bytes.empty(), !set.Errors.empty());
  std::vector<std::string> errors;
  for (const SourceError& error : set.Errors) errors.push_back(ErrorText("a.txt", error));
  return errors;
}

TEST(SetCompiler, WritesSectionsInTheOrderOfTheSource) {
  const CompiledSet set = CompileRegisterSet(
      "# a camera\n"
      "[low light]\n"
      "  bridge FF78 = 70   # less colour\r\n"
      "\n"
      "[setup]\n"
      "sensor ff0c=6a\n"
      "wide FF09 = 01DD\n"
      "raw 22 0A 01\n"
      "[ normal ]");
  EXPECT_THAT(set.Errors, IsEmpty());
  EXPECT_EQ(set.Bytes, (Bytes{39,   0,    0,    0,                          // body length
                              11,   0,    0,    0,    2,    0,    0,    0,  // low light
                              0x11, 0x78, 0x70,                             //
                              20,   0,    0,    0,    1,    0,    0,    0,  // setup
                              0x33, 0x0C, 0x6A, 0x11, 0x7F, 0xDD, 0x33, 0x09, 0x01, 0x22,
                              0x0A, 0x01, 8,    0,    0,    0,    3,    0,    0,    0}));  // normal
}

TEST(SetCompiler, NamesEachErrorWithItsLine) {
  EXPECT_THAT(ErrorsOf("bridge FF0A = 01\n"
                       "[dark]\n"
                       "bridge FF0B = 01\n"
                       "[setup]\n"
                       "bridge FFFF = 01\n"
                       "sensor FE0A = 0\n"
                       "bridge FF0A 01\n"
                       "wide FF09 = 1DD\n"
                       "poke FF0A = 01\n"
                       "raw 22 0A\n"
                       "[setup]\n"),
              ElementsAre("a.txt:1: an entry ahead of the first section",
                          "a.txt:2: '[dark]' is not [setup], [low light] or [normal]",
                          "a.txt:5: register 'FFFF' is not in FF00 to FFFE",
                          "a.txt:6: register 'FE0A' is not in FF00 to FFFE",
                          "a.txt:6: value '0' is not two hexadecimal digits",
                          "a.txt:7: an entry reads like: bridge FF0A = 01",
                          "a.txt:8: value '1DD' is not four hexadecimal digits",
                          "a.txt:9: 'poke' is not bridge, sensor, wide, raw or a section",
                          "a.txt:10: a raw entry reads like: raw 22 0A 01",
                          "a.txt:11: there is a section [setup] already, in line 4"));
}

TEST(SetCompiler, TellsBinaryDataInOneLine) {
  using namespace std::string_view_literals;
  EXPECT_THAT(
      ErrorsOf("\x7F\x45LF\n\n\x01\n\n"sv),
      ElementsAre("a.txt:1: this is no source of a register set, but binary data (byte 7F at "
                  "offset 0)"));
  EXPECT_THAT(
      ErrorsOf("[setup]\nbridge\0FF0A = 01\nnonsense\n"sv),
      ElementsAre("a.txt:2: this is no source of a register set, but binary data (byte 00 at "
                  "offset 14)"));
}

TEST(SetCompiler, TakesAByteOrderMarkAndAnyLettersInComments) {
  EXPECT_EQ(CompileRegisterSet("\xEF\xBB\xBF[setup]\nbridge FF0A = 01 # caf\xE9\n").Bytes,
            SetFile({Section(1, {0x11, 0x0A, 0x01})}));
}

TEST(SetCompiler, WantsASection) {
  EXPECT_THAT(ErrorsOf("# nothing\n"),
              ElementsAre("a.txt:1: there is no section: [setup], [low light] or [normal]"));
}

std::string Entries(int count) {
  std::string text;
  for (int i = 0; i < count; ++i) text += "bridge FF50 = 01\n";
  return text;
}

TEST(SetCompiler, KeepsToTheRoomOfEachTable) {
  EXPECT_THAT(ErrorsOf("[setup]\n" + Entries(600)), IsEmpty());
  EXPECT_THAT(ErrorsOf("[setup]\n" + Entries(602)),
              ElementsAre("a.txt:602: [setup] has more than 600 entries"));
  EXPECT_THAT(ErrorsOf("[normal]\n" + Entries(599)), IsEmpty());
  EXPECT_THAT(ErrorsOf("[normal]\n" + Entries(600)),
              ElementsAre("a.txt:601: [normal] has more than 599 entries"));
  EXPECT_THAT(ErrorsOf("[low light]\n" + Entries(600)),
              ElementsAre("a.txt:601: [low light] has more than 599 entries"));
}

TEST(SetCompiler, KeepsTheBodyTo1980Bytes) {
  EXPECT_THAT(ErrorsOf("[setup]\n" + Entries(490) + "[normal]\n" + Entries(164)), IsEmpty());
  EXPECT_THAT(ErrorsOf("[setup]\n" + Entries(490) + "[normal]\n" + Entries(170)),
              ElementsAre("a.txt:657: the sections take more than 1980 bytes"));
}

}  // namespace
}  // namespace lidcam::app
