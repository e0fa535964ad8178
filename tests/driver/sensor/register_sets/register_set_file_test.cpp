#include "driver/sensor/register_sets/register_set_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "platform/host/nt/files/files.h"
#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/objects/handles.h"
#include "platform/host/nt/system/debug_print.h"
#include "tests/driver/frame/still/still_file_calls.h"
#include "tests/driver/sensor/register_sets/register_set_bytes.h"
#include "tests/driver/support/system_root.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const WCHAR* kPath = u"\\SystemRoot\\system32\\drivers\\S001.set";
constexpr const char* kErrorMessage = " This is error type\n";

constexpr Status kReadFailed = static_cast<Status>(0xC000009C);
constexpr Status kEndOfFile = static_cast<Status>(0xC0000011);
constexpr Status kNoMemory = static_cast<Status>(0xC000009A);
constexpr Status kNameNotFound = static_cast<Status>(0xC0000034);
constexpr Status kPathNotFound = static_cast<Status>(0xC000003A);

// A record, a disk and a debug output. At its end no memory and no handle may be left.
class RegisterSetFile : public ::testing::Test {
 protected:
  ~RegisterSetFile() override {
    EXPECT_EQ(host::PoolUsageOfAll().Blocks, 0U);
    EXPECT_EQ(host::OpenHandleCount(), 0U);
    host::FailFileRead(0, 0);
  }

  Status Load(const Bytes& file) {
    disk_.Write("S001.set", file);
    return LoadRegisterFile(Context(), kPath);
  }

  CameraContext& Context() { return *context_; }
  RegisterSetTable& SetupTable() { return context_->SetupRegisters; }
  RegisterSetTable& LowLightTable() { return context_->LowLightRegisters; }
  RegisterSetTable& NormalTable() { return context_->NormalRegisters; }
  [[nodiscard]] std::vector<std::string> Messages() const { return debug_.Messages(); }

 private:
  TemporarySystemRoot disk_;
  host::DebugPrintCapture debug_;
  std::unique_ptr<CameraContext> context_ = std::make_unique<CameraContext>();
};

Bytes BytesOf(const RegisterSetTable& table, std::size_t count) {
  Bytes bytes(count);
  std::memcpy(bytes.data(), table.Entries, count);
  return bytes;
}

TEST_F(RegisterSetFile, EachSectionTypeFillsItsTableInTheFormOfTheFile) {
  const Status status = Load(
      SetFile({Section(1, {0x11, 0x0A, 0x01}), Section(2, {0x33, 0x09, 0x1F, 0x11, 0x78, 0x60}),
               Section(3, {0x33, 0x09, 0x2F})}));
  EXPECT_EQ(status, 0);
  EXPECT_EQ(SetupTable().Present, 1U);
  EXPECT_EQ(SetupTable().Count, 1U);
  EXPECT_EQ(BytesOf(SetupTable(), 3), (Bytes{0x11, 0x0A, 0x01}));
  EXPECT_EQ(LowLightTable().Present, 1U);
  EXPECT_EQ(LowLightTable().Count, 2U);
  EXPECT_EQ(BytesOf(LowLightTable(), 6), (Bytes{0x33, 0x09, 0x1F, 0x11, 0x78, 0x60}));
  EXPECT_EQ(NormalTable().Present, 1U);
  EXPECT_EQ(NormalTable().Count, 1U);
  EXPECT_EQ(BytesOf(NormalTable(), 3), (Bytes{0x33, 0x09, 0x2F}));
  EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(RegisterSetFile, NormalSectionOfEightBytesEmptiesTheTableThatAnEarlierOneFilled) {
  EXPECT_EQ(Load(SetFile({Section(3, CountingEntries(4)), Section(3, {})})), 0);
  EXPECT_EQ(NormalTable().Present, 0U);
  EXPECT_EQ(NormalTable().Count, 0U);
}

TEST_F(RegisterSetFile, SectionOf599EntriesHasCount599) {
  EXPECT_EQ(Load(SetFile({Section(3, CountingEntries(599))})), 0);
  EXPECT_EQ(NormalTable().Present, 1U);
  EXPECT_EQ(NormalTable().Count, 599U);
  EXPECT_EQ(BytesOf(NormalTable(), 1797), CountingEntries(599));
}

TEST_F(RegisterSetFile, PayloadOfTenBytesHasCount3AndTheTenthByteIsCopied) {
  EXPECT_EQ(Load(SetFile({Section(2, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10})})), 0);
  EXPECT_EQ(LowLightTable().Present, 1U);
  EXPECT_EQ(LowLightTable().Count, 3U);
  EXPECT_EQ(BytesOf(LowLightTable(), 11), (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 0}));
}

TEST_F(RegisterSetFile, PayloadOfTwoBytesIsPresentWithoutEntries) {
  EXPECT_EQ(Load(SetFile({Section(2, {0x11, 0x78})})), 0);
  EXPECT_EQ(LowLightTable().Present, 1U);
  EXPECT_EQ(LowLightTable().Count, 0U);
}

TEST_F(RegisterSetFile, EntriesWithMarker22AreCounted) {
  EXPECT_EQ(Load(SetFile({Section(1, {0x22, 0x01, 0x02, 0x11, 0x03, 0x04})})), 0);
  EXPECT_EQ(SetupTable().Count, 2U);
}

TEST_F(RegisterSetFile, EntriesPastTheRoomOfATableAreCountedAndNotStored) {
  NormalTable().Present = 0x5A5A5A5A;
  EXPECT_EQ(Load(SetFile({Section(1, CountingEntries(657))})), 0);
  EXPECT_EQ(SetupTable().Present, 1U);
  EXPECT_EQ(SetupTable().Count, 657U);
  EXPECT_EQ(BytesOf(SetupTable(), 1800), CountingEntries(600));
  EXPECT_EQ(NormalTable().Present, 0x5A5A5A5AU);
}

TEST_F(RegisterSetFile, SectionType4AfterAGoodSetupSectionKeepsTheTableAndPrintsTheError) {
  const Status status = Load(SetFile(
      {Section(1, CountingEntries(2)), Section(4, CountingEntries(1)), Section(3, {0x33, 9, 9})}));
  EXPECT_EQ(status, 0);
  EXPECT_EQ(SetupTable().Count, 2U);
  EXPECT_EQ(NormalTable().Present, 0U);
  EXPECT_THAT(Messages(), ElementsAre(kErrorMessage));
}

TEST_F(RegisterSetFile, SectionType0IsAnErrorWhateverItsLength) {
  EXPECT_EQ(Load(SetFile({Join({LittleEndian(3), LittleEndian(0)})})), 0);
  EXPECT_THAT(Messages(), ElementsAre(kErrorMessage));
}

TEST_F(RegisterSetFile, SectionType4KeepsTheStatusOfTheFailedBodyRead) {
  host::FailFileRead(2, kReadFailed);
  EXPECT_EQ(Load(SetFile({Section(1, CountingEntries(2)), Section(4, {})})), kReadFailed);
  EXPECT_EQ(SetupTable().Count, 2U);
}

TEST_F(RegisterSetFile, FailedBodyReadWithoutANormalSectionReportsTheReadAndIsWalkedAllTheSame) {
  host::FailFileRead(2, kReadFailed);
  EXPECT_EQ(Load(SetFile({Section(1, CountingEntries(2)), Section(2, CountingEntries(3))})),
            kReadFailed);
  EXPECT_EQ(SetupTable().Count, 2U);
  EXPECT_EQ(LowLightTable().Count, 3U);
}

TEST_F(RegisterSetFile, FailedBodyReadWithANormalSectionReportsSuccess) {
  host::FailFileRead(2, kReadFailed);
  EXPECT_EQ(Load(SetFile({Section(1, CountingEntries(2)), Section(3, CountingEntries(3))})), 0);
  EXPECT_EQ(NormalTable().Count, 3U);
}

TEST_F(RegisterSetFile, EmptyNormalSectionResetsTheStatusOfAFailedReadToo) {
  host::FailFileRead(2, kReadFailed);
  EXPECT_EQ(Load(SetFile({Section(3, {})})), 0);
}

TEST_F(RegisterSetFile, FailedReadOfTheBodyLengthCountsAsNoBody) {
  host::FailFileRead(1, kReadFailed);
  EXPECT_EQ(Load(SetFile({Section(1, CountingEntries(2))})), kReadFailed);
  EXPECT_EQ(SetupTable().Present, 0U);
  EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(RegisterSetFile, EmptyFileReportsTheEndOfTheFile) {
  EXPECT_EQ(Load({}), kEndOfFile);
  EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(RegisterSetFile, FileOfThreeBytesLoadsNothing) {
  EXPECT_EQ(Load({0x10, 0x00, 0x00}), 0);
  EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(RegisterSetFile, BodyLength0LoadsNothing) {
  EXPECT_EQ(Load(SetFileTelling(0, {Section(1, CountingEntries(1))})), 0);
  EXPECT_EQ(SetupTable().Present, 0U);
  EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(RegisterSetFile, BodyLength0IsReadAllTheSameAndReportsThatRead) {
  host::FailFileRead(2, kReadFailed);
  EXPECT_EQ(Load(SetFileTelling(0, {Section(1, CountingEntries(1))})), kReadFailed);
  EXPECT_EQ(SetupTable().Present, 0U);
  EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(RegisterSetFile, BodyMissingAltogetherReportsTheEndOfTheFile) {
  EXPECT_EQ(Load(SetFileTelling(11, {})), kEndOfFile);
  EXPECT_THAT(Messages(), ElementsAre(kErrorMessage));
}

TEST_F(RegisterSetFile, BodyLongerThanTheFileKeepsTheSectionsThatAreThere) {
  EXPECT_EQ(Load(SetFileTelling(400, {Section(1, CountingEntries(2)), Section(2, {})})), 0);
  EXPECT_EQ(SetupTable().Count, 2U);
  EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(RegisterSetFile, SectionThatIsCutByTheEndOfTheDataEndsTheWalkInSilence) {
  Bytes cut = Section(2, CountingEntries(5));
  cut.pop_back();
  LowLightTable().Count = 77;
  EXPECT_EQ(Load(SetFile({Section(1, CountingEntries(2)), cut})), 0);
  EXPECT_EQ(SetupTable().Count, 2U);
  EXPECT_EQ(LowLightTable().Count, 77U);
  EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(RegisterSetFile, SectionHeaderThatIsCutByTheEndOfTheDataEndsTheWalkInSilence) {
  EXPECT_EQ(Load(SetFile({Section(1, CountingEntries(2)), {8, 0, 0, 0, 1, 0, 0}})), 0);
  EXPECT_EQ(SetupTable().Count, 2U);
  EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(RegisterSetFile, SectionShorterThanItsHeaderEndsTheWalkInSilenceAndLeavesTheStatus) {
  for (const std::uint32_t length : {0U, 1U, 7U}) {
    host::FailFileRead(2, kReadFailed);
    const Bytes shortSection = Join({LittleEndian(length), LittleEndian(3)});
    EXPECT_EQ(Load(SetFile({Section(1, CountingEntries(2)), shortSection, Section(2, {1, 2, 3})})),
              kReadFailed);
    EXPECT_EQ(SetupTable().Count, 2U);
    EXPECT_EQ(NormalTable().Present, 0U);
    EXPECT_EQ(LowLightTable().Present, 0U);
    EXPECT_THAT(Messages(), IsEmpty());
  }
}

TEST_F(RegisterSetFile, SectionLengthNear4GiBEndsTheWalkInSilence) {
  EXPECT_EQ(Load(SetFile({Join({LittleEndian(0xFFFFFFFF), LittleEndian(1)}), Section(3, {})})), 0);
  EXPECT_EQ(SetupTable().Present, 0U);
  EXPECT_THAT(Messages(), IsEmpty());
}

// All four bytes of a number count.
TEST_F(RegisterSetFile, NumbersWithAHighByteAreLarge) {
  for (const std::uint32_t high : {0x100U, 0x8000U, 0x10000U, 0x800000U, 0x1000000U, 0x80000000U}) {
    const Bytes section = Join({LittleEndian(high + 11), LittleEndian(1), {0x11, 0x50, 1}});
    EXPECT_EQ(Load(SetFile({section})), 0);
    EXPECT_EQ(SetupTable().Present, 0U) << high;
    EXPECT_THAT(Messages(), IsEmpty());
    const Bytes body = SetFileTelling(high, {Section(1, {0x11, 0x50, 1}), LittleEndian(0)});
    EXPECT_EQ(Load(body), 0);
    EXPECT_EQ(SetupTable().Count, 1U) << high;
    SetupTable() = {};
  }
  const host::DebugPrintCapture debug;
  for (const std::uint32_t high : {0x100U, 0x8000U, 0x10000U, 0x800000U, 0x1000000U, 0x80000000U}) {
    Load(SetFile({Join({LittleEndian(11), LittleEndian(high + 1), {0x11, 0x50, 1}})}));
    EXPECT_EQ(SetupTable().Present, 0U) << high;
  }
  EXPECT_EQ(debug.Messages().size(), 6U);
}

// 1500 + 500: the second section lies across byte 1980, where the length is clamped.
TEST_F(RegisterSetFile, BodyOf2000IsReadWholeAndTheWalkGoesPastTheClampToTheEndOfTheBuffer) {
  const Bytes second = CountingEntries(164);
  EXPECT_EQ(Load(SetFile({Section(1, Bytes(1492, 0x22)), Section(3, second)})), 0);
  EXPECT_EQ(SetupTable().Count, 497U);
  EXPECT_EQ(NormalTable().Present, 1U);
  EXPECT_EQ(NormalTable().Count, 164U);
  EXPECT_EQ(BytesOf(NormalTable(), 492), second);
  EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(RegisterSetFile, WalkThatWrappedAtTheClampStillTakesTheSectionBehind) {
  EXPECT_EQ(Load(SetFile(
                {Section(1, Bytes(1977, 0x22)), Section(2, {0x11, 0x78, 0x60}), LittleEndian(1)})),
            0);
  EXPECT_EQ(LowLightTable().Count, 1U);
  EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(RegisterSetFile, SectionsThatEndAtTheClampEndTheWalkThere) {
  EXPECT_EQ(Load(SetFile({Section(1, Bytes(1492, 0x22)), Section(2, CountingEntries(157)),
                          Bytes(1, 0), Section(3, {0x33, 9, 9})})),
            0);
  EXPECT_EQ(LowLightTable().Count, 157U);
  EXPECT_THAT(Messages(), ElementsAre(kErrorMessage));
  // With one byte more the second section ends at byte 1980: the rest is not read.
  EXPECT_EQ(Load(SetFile({Section(1, Bytes(1492, 0x22)), Section(2, Bytes(472, 0x22)),
                          Section(3, {0x33, 9, 9})})),
            0);
  EXPECT_EQ(LowLightTable().Count, 157U);
  EXPECT_EQ(NormalTable().Present, 0U);
  EXPECT_EQ(Messages().size(), 1U);
}

TEST_F(RegisterSetFile, BodyLongerThanTheBufferIsReadAsFarAsTheBufferGoes) {
  EXPECT_EQ(Load(SetFile({Section(1, CountingEntries(100)), Section(2, CountingEntries(500)),
                          Section(3, CountingEntries(100)), Section(1, CountingEntries(300))})),
            0);
  EXPECT_EQ(SetupTable().Count, 100U);
  EXPECT_EQ(LowLightTable().Count, 500U);
  EXPECT_EQ(NormalTable().Present, 0U);
  EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(RegisterSetFile, BodyLengthOf4GiBReadsNoMoreThanTheBuffer) {
  EXPECT_EQ(Load(SetFileTelling(0xFFFFFFFF, {Section(1, CountingEntries(2)), Bytes(3000, 0)})), 0);
  EXPECT_EQ(SetupTable().Count, 2U);
  EXPECT_THAT(Messages(), ElementsAre(kErrorMessage));
}

TEST_F(RegisterSetFile, IsOpenedOnceForReadingByItsWholePath) {
  const StillFileCalls calls;
  EXPECT_EQ(Load(SetFile({Section(3, CountingEntries(1))})), 0);
  ASSERT_EQ(calls.Opens.size(), 1U);
  EXPECT_EQ(calls.Opens[0], (OpenCall{.Name = kPath,
                                      .AttributesLength = sizeof(OBJECT_ATTRIBUTES),
                                      .RootDirectory = nullptr,
                                      .Attributes = 0x80,
                                      .Access = 1,
                                      .HasAllocationSize = false,
                                      .FileAttributes = 0x80,
                                      .ShareAccess = 1,
                                      .Disposition = 1,
                                      .Options = 0x20,
                                      .ExtendedAttributes = nullptr,
                                      .ExtendedLength = 0}));
  EXPECT_EQ(calls.Closes.size(), 1U);
}

TEST_F(RegisterSetFile, MissingFileReportsTheOpenAndLeavesTheTables) {
  SetupTable().Count = 77;
  EXPECT_EQ(LoadRegisterFile(Context(), kPath), kNameNotFound);
  EXPECT_EQ(SetupTable().Count, 77U);
  EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(RegisterSetFile, WithoutASystemFolderEveryOpenFails) {
  host::SetSystemRoot({});
  EXPECT_EQ(LoadRegisterFile(Context(), kPath), kPathNotFound);
}

TEST_F(RegisterSetFile, WithoutMemoryForTheBodyTheTablesStayAndTheFileIsClosed) {
  SetupTable().Count = 77;
  host::FailPoolAllocation(1);
  EXPECT_EQ(Load(SetFile({Section(1, CountingEntries(2))})), kNoMemory);
  EXPECT_EQ(SetupTable().Count, 77U);
}

}  // namespace
}  // namespace lidcam::test
