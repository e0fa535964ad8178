#include "platform/image/file/image_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "tests/platform/image/made_image.h"

namespace lidcam::image {
namespace {

using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::HasSubstr;

TEST(ImageFile, AWholeImageShowsItsParts) {
  const ImageFile file = MadeImage().File();
  EXPECT_EQ(file.Size(), 0x6000U);
  EXPECT_EQ(file.Entry(), MadeImage::kText);
  EXPECT_THAT(
      file.Sections(),
      ElementsAre(Field(&ImageSection::Name, ".text"), Field(&ImageSection::Name, ".rdata"),
                  Field(&ImageSection::Name, ".pdata"), Field(&ImageSection::IsWritable, true),
                  Field(&ImageSection::IsDiscardable, true)));
  EXPECT_THAT(file.Imports(), ElementsAre(Field(&ImageImport::Library, "hal.dll"),
                                          Field(&ImageImport::Name, "PsTerminateSystemThread")));
  EXPECT_EQ(file.Relocations().size(), std::size_t{MadeImage::kFunctionCount});
  ASSERT_NE(file.FunctionAt(MadeImage::kText + 4), nullptr);
  EXPECT_EQ(file.FunctionAt(MadeImage::kText + 4)->Begin, MadeImage::kText);
  EXPECT_EQ(file.FunctionAt(MadeImage::kText + 0x1F), nullptr);
}

struct Spoilt {
  const char* Name;
  std::function<void(MadeImage&)> Spoil;
  const char* Message;
};

class SpoiltImage : public ::testing::TestWithParam<Spoilt> {};

TEST_P(SpoiltImage, IsRefusedWithItsReason) {
  MadeImage made;
  GetParam().Spoil(made);
  try {
    made.File();
    FAIL() << "the image is taken";
  } catch (const ImageError& error) {
    EXPECT_THAT(error.what(), HasSubstr("made.sys: "));
    EXPECT_THAT(error.what(), HasSubstr(GetParam().Message));
  }
}

constexpr std::size_t kSection = MadeImage::kSections;

INSTANTIATE_TEST_SUITE_P(
    Headers, SpoiltImage,
    ::testing::Values(
        Spoilt{"Mark", [](MadeImage& i) { i.Put16(0, 0x4D5A); }, "is no executable image"},
        Spoilt{"Empty", [](MadeImage& i) { i.Cut(0); }, "the file ends within its headers"},
        Spoilt{"SignaturePlace", [](MadeImage& i) { i.Put32(0x3C, 0xFFFFFFFE); },
               "ends within its headers"},
        Spoilt{"Signature", [](MadeImage& i) { i.Put32(MadeImage::kSignature, 0); },
               "is no image of Windows"},
        Spoilt{"Machine", [](MadeImage& i) { i.Put16(MadeImage::kFileHeader, 0x14C); },
               "is not for 64-bit x86 processors"},
        Spoilt{"OptionalSize", [](MadeImage& i) { i.Put16(MadeImage::kFileHeader + 16, 224); },
               "optional header of an unknown size"},
        Spoilt{"Kind", [](MadeImage& i) { i.Put16(MadeImage::kFileHeader + 18, 0x20); },
               "was not linked completely"},
        Spoilt{"Stripped", [](MadeImage& i) { i.Put16(MadeImage::kFileHeader + 18, 0x23); },
               "has no relocations"},
        Spoilt{"Magic", [](MadeImage& i) { i.Put16(MadeImage::kOptional, 0x10B); },
               "is no 64-bit image"},
        Spoilt{"Alignment", [](MadeImage& i) { i.Put32(MadeImage::kOptional + 32, 0x20); },
               "not aligned to pages"},
        Spoilt{"Size", [](MadeImage& i) { i.Put32(MadeImage::kOptional + 56, 0x6001); },
               "has a wrong size in memory"},
        Spoilt{"HeaderSize", [](MadeImage& i) { i.Put32(MadeImage::kOptional + 60, 0x10000); },
               "has headers of a wrong size"},
        Spoilt{"Checksum",
               [](MadeImage& i) {
                 i.Bytes();
                 i.Omit(true);
                 i.Put16(0x420, 0x1234);
               },
               "has a wrong checksum"},
        Spoilt{"Subsystem", [](MadeImage& i) { i.Put16(MadeImage::kOptional + 68, 3); },
               "is no driver"},
        Spoilt{"DirectoryCount", [](MadeImage& i) { i.Put32(MadeImage::kOptional + 108, 15); },
               "has an unknown number of directories"},
        Spoilt{"Exports", [](MadeImage& i) { i.PutDirectory(0, 0x2000, 8); }, "has exports"},
        Spoilt{"ThreadStorage", [](MadeImage& i) { i.PutDirectory(9, 0x2000, 8); },
               "has variables for each thread"},
        Spoilt{"DelayedImports", [](MadeImage& i) { i.PutDirectory(13, 0x2000, 8); },
               "has delayed imports"},
        Spoilt{"Entry", [](MadeImage& i) { i.Put32(MadeImage::kOptional + 16, 0x2000); },
               "has an entry that is not in its code"}),
    [](const auto& test) { return std::string(test.param.Name); });

INSTANTIATE_TEST_SUITE_P(
    Sections, SpoiltImage,
    ::testing::Values(Spoilt{"None", [](MadeImage& i) { i.Put16(MadeImage::kFileHeader + 2, 0); },
                             "has no sections"},
                      Spoilt{"TooMany",
                             [](MadeImage& i) { i.Put16(MadeImage::kFileHeader + 2, 500); },
                             "sections without headers"},
                      Spoilt{"Order", [](MadeImage& i) { i.Put32(kSection + 40 + 12, 0x1000); },
                             "section .rdata begins within the one before"},
                      Spoilt{"End", [](MadeImage& i) { i.Put32(kSection + 160 + 8, 0x2000); },
                             "section .reloc ends behind the image"},
                      Spoilt{"FileEnd", [](MadeImage& i) { i.Put32(kSection + 20, 0xFFFFFF00); },
                             "section .text ends behind the file"},
                      Spoilt{"Unreadable", [](MadeImage& i) { i.Put32(kSection + 36, 0x20000020); },
                             "section .text can't be read"},
                      Spoilt{"WritableCode",
                             [](MadeImage& i) { i.Put32(kSection + 36, 0xE0000020); },
                             "section .text is writable and executable"}),
    [](const auto& test) { return std::string(test.param.Name); });

INSTANTIATE_TEST_SUITE_P(
    Tables, SpoiltImage,
    ::testing::Values(
        Spoilt{"RelocationPlace", [](MadeImage& i) { i.PutDirectory(5, 0x5FF0, 0x20); },
               "the relocation table is not within a section"},
        Spoilt{"Signature", [](MadeImage& i) { i.PutDirectory(4, 0x600, 16); },
               "has a signature that isn't at its end"},
        Spoilt{"RelocationEnd", [](MadeImage& i) { i.PutDirectory(5, MadeImage::kRelocations, 6); },
               "the relocation table ends within a block"},
        Spoilt{"RelocationBlock", [](MadeImage& i) { i.Put32(0xC04, 0x1000); },
               "a block of a wrong size"},
        Spoilt{"RelocationKind", [](MadeImage& i) { i.Put16(0xC08, 0x3000); },
               "a relocation of an unknown kind"},
        Spoilt{"RelocatedPointer",
               [](MadeImage& i) { i.Put64(MadeImage::OffsetOf(MadeImage::kPointers), 5); },
               "a pointer that leads outside of the image"},
        Spoilt{"ImportTable", [](MadeImage& i) { i.PutDirectory(1, 0x9000, 0x100); },
               "the import table is not within a section"},
        Spoilt{"ImportNumber",
               [](MadeImage& i) {
                 i.Put64(MadeImage::OffsetOf(MadeImage::kSlots + 0x40), 0x8000000000000005);
               },
               "imports a function of hal.dll by number"},
        Spoilt{"ImportName",
               [](MadeImage& i) { i.Put64(MadeImage::OffsetOf(MadeImage::kSlots + 0x40), 0x5FF0); },
               "an import's name is not within a section"},
        Spoilt{"FunctionTableSize",
               [](MadeImage& i) { i.PutDirectory(3, MadeImage::kFunctions, 13); },
               "has a function table of a wrong size"},
        Spoilt{
            "FunctionOrder",
            [](MadeImage& i) { i.Put32(MadeImage::OffsetOf(MadeImage::kFunctions) + 12, 0x1000); },
            "has a function table in a wrong order"}),
    [](const auto& test) { return std::string(test.param.Name); });

TEST(ImageFile, AFileThatIsNotThereIsNamed) {
  try {
    static_cast<void>(ImageFile::Read("/nowhere/lidcam.sys"));
    FAIL();
  } catch (const ImageError& error) {
    EXPECT_STREQ(error.what(), "/nowhere/lidcam.sys: No such file or directory");
  }
}

}  // namespace
}  // namespace lidcam::image
