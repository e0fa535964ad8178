#include "library/register_sets/set_checker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "library/register_sets/set_compiler.h"
#include "library/register_sets/set_disassembler.h"
#include "tests/driver/sensor/register_sets/register_set_bytes.h"

namespace lidcam::app {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using namespace lidcam::test;

std::vector<std::string> TextsOf(const Bytes& file, SetFinding::Weight kind) {
  std::vector<std::string> texts;
  for (const SetFinding& finding : CheckRegisterSet(file)) {
    if (finding.Kind == kind) texts.push_back(FindingText("S001.set", finding));
  }
  return texts;
}

std::vector<std::string> FaultsOf(const Bytes& file) {
  return TextsOf(file, SetFinding::Weight::Fault);
}

std::vector<std::string> NotesOf(const Bytes& file) {
  return TextsOf(file, SetFinding::Weight::Note);
}

Bytes WholeFile() {
  return SetFile({Section(1, {0x11, 0x0A, 0x01, 0x33, 0x0C, 0x60}), Section(2, {0x11, 0x78, 0x70}),
                  Section(3, {})});
}

TEST(SetChecker, HasNothingToSayOfASoundFile) {
  EXPECT_THAT(FaultsOf(WholeFile()), IsEmpty());
  EXPECT_THAT(NotesOf(WholeFile()), IsEmpty());
}

TEST(SetChecker, NamesAFileTooShortForItsLength) {
  EXPECT_THAT(
      FaultsOf({1, 2, 3}),
      ElementsAre("S001.set: offset 0: fault: the file has 3 bytes; the body's length alone "
                  "takes 4"));
}

TEST(SetChecker, NamesABodyLengthThatIsNotTheFiles) {
  EXPECT_THAT(FaultsOf(SetFileTelling(12, {Section(1, {0x11, 0x0A, 0x01})})),
              ElementsAre("S001.set: offset 0: fault: body length 12, but only 11 bytes follow"));
  EXPECT_THAT(
      FaultsOf(SetFileTelling(11, {Section(1, {0x11, 0x0A, 0x01}), {0, 0}})),
      ElementsAre("S001.set: offset 15: fault: 2 bytes stand behind the body of length 11"));
}

TEST(SetChecker, NamesABodyAbove1980Bytes) {
  const Bytes entries = CountingEntries(493);
  EXPECT_THAT(FaultsOf(SetFile({Section(1, entries), Section(2, CountingEntries(162))})),
              ElementsAre("S001.set: offset 0: fault: body length 1981 is above 1980"));
}

TEST(SetChecker, NamesASectionShorterThanItsHead) {
  EXPECT_THAT(FaultsOf(SetFile({Section(1, {}), LittleEndian(4), LittleEndian(3)})),
              ElementsAre("S001.set: offset 12: fault: section length 4 is below 8, its head's"));
}

TEST(SetChecker, NamesSectionsThatDoNotAddUp) {
  EXPECT_THAT(FaultsOf(SetFile({Section(1, {}), LittleEndian(20), LittleEndian(3)})),
              ElementsAre("S001.set: offset 12: fault: the sections do not add up: section length "
                          "20, but only 8 bytes are left"));
  EXPECT_THAT(FaultsOf(SetFile({Section(1, {}), {1, 2, 3}})),
              ElementsAre("S001.set: offset 12: fault: the sections do not add up: 3 bytes are "
                          "left, and the head of a section takes 8"));
}

TEST(SetChecker, NamesAnUnknownTypeAndGoesOn) {
  EXPECT_THAT(FaultsOf(SetFile({Section(4, {}), Section(3, {0x22, 0x0A, 0x01})})),
              ElementsAre("S001.set: offset 8: fault: section type 4 is not 1 (setup), 2 (low "
                          "light) or 3 (normal): loading stops here",
                          "S001.set: offset 20: fault: marker 22 is neither 33 (sensor) nor 11 "
                          "(bridge): the entry is passed over"));
}

TEST(SetChecker, NamesAPayloadThatIsNoMultipleOfThree) {
  EXPECT_THAT(FaultsOf(SetFile({Section(3, {0x11, 0x0A, 0x01, 0x11})})),
              ElementsAre("S001.set: offset 4: fault: 4 bytes of entries are not a multiple of 3"));
}

TEST(SetChecker, NamesTooManyEntries) {
  EXPECT_THAT(FaultsOf(SetFile({Section(1, CountingEntries(600))})), IsEmpty());
  EXPECT_THAT(
      FaultsOf(SetFile({Section(1, CountingEntries(601))})),
      ElementsAre("S001.set: offset 4: fault: 601 entries in [setup], which can have 600 at most"));
  EXPECT_THAT(FaultsOf(SetFile({Section(2, CountingEntries(599))})), IsEmpty());
  EXPECT_THAT(FaultsOf(SetFile({Section(2, CountingEntries(600))})),
              ElementsAre("S001.set: offset 4: fault: 600 entries in [low light], which can have "
                          "599 at most"));
  EXPECT_THAT(FaultsOf(SetFile({Section(3, CountingEntries(600))})),
              ElementsAre("S001.set: offset 4: fault: 600 entries in [normal], which can have 599 "
                          "at most"));
}

TEST(SetChecker, NamesAWriteOfTheSelectRegister) {
  EXPECT_THAT(FaultsOf(SetFile({Section(1, {0x11, 0xFF, 0x02})})),
              ElementsAre(HasSubstr("offset 13: fault: register FFFF is the select register")));
}

TEST(SetChecker, NotesWhatIsMissingAndWhatIsReplaced) {
  EXPECT_THAT(NotesOf(SetFile({Section(3, {}), Section(3, {0x11, 0x0A, 0x01})})),
              ElementsAre("S001.set: offset 12: note: replaces the section [normal] at offset 4",
                          "S001.set: offset 23: note: no section [setup]",
                          "S001.set: offset 23: note: no section [low light]"));
}

TEST(SetDisassembler, ShowsASoundFileAsASourceOfItself) {
  EXPECT_EQ(DisassembleRegisterSet(WholeFile()),
            "# 37 bytes, body length 33\n"
            "\n[setup]  # offset 4, 2 entries\n"
            "bridge FF0A = 01\n"
            "sensor FF0C = 60\n"
            "\n[low light]  # offset 18, 1 entry\n"
            "bridge FF78 = 70\n"
            "\n[normal]  # offset 29, 0 entries\n");
  EXPECT_EQ(CompileRegisterSet(DisassembleRegisterSet(WholeFile())).Bytes, WholeFile());
}

TEST(SetDisassembler, ShowsABrokenFileWithItsFaults) {
  EXPECT_EQ(DisassembleRegisterSet(SetFileTelling(
                99, {Section(4, {0x11, 0x0A, 0x01}), Section(1, {0x22, 0x0A, 0x01, 0x11})})),
            "# 27 bytes, body length 99\n"
            "# fault at offset 0: body length 99, but only 23 bytes follow\n"
            "# fault at offset 8: section type 4 is not 1 (setup), 2 (low light) or 3 "
            "(normal): loading stops here\n"
            "# fault at offset 15: 4 bytes of entries are not a multiple of 3\n"
            "# fault at offset 23: marker 22 is neither 33 (sensor) nor 11 (bridge): the entry is "
            "passed over\n"
            "\n# [type 4]  # offset 4, 1 entry\n"
            "# bridge FF0A = 01\n"
            "\n[setup]  # offset 15, 1 entry\n"
            "raw 22 0A 01\n"
            "# left over: 11\n");
}

}  // namespace
}  // namespace lidcam::app
