#include "platform/host/nt/files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/host/nt/handles.h"
#include "tests/driver/support/system_root.h"

namespace lidcam::test {
namespace {

constexpr auto kEndOfFile = static_cast<NTSTATUS>(0xC0000011);
constexpr auto kAccessDenied = static_cast<NTSTATUS>(0xC0000022);
constexpr auto kNameInvalid = static_cast<NTSTATUS>(0xC0000033);
constexpr auto kNameNotFound = static_cast<NTSTATUS>(0xC0000034);
constexpr auto kPathNotFound = static_cast<NTSTATUS>(0xC000003A);
constexpr auto kDiskFull = static_cast<NTSTATUS>(0xC000007F);
constexpr auto kIsADirectory = static_cast<NTSTATUS>(0xC00000BA);
constexpr auto kInvalidHandle = static_cast<NTSTATUS>(0xC0000008);

constexpr ACCESS_MASK kReadAccess = 1;
constexpr ACCESS_MASK kWriteAccess = 2;
constexpr ULONG kOpen = 1;
constexpr ULONG kOverwriteIf = 5;

class Files : public ::testing::Test {
 protected:
  ~Files() override { EXPECT_EQ(host::OpenHandleCount(), 0U); }

  NTSTATUS Open(const std::u16string& path, ACCESS_MASK access = kReadAccess,
                ULONG disposition = kOpen) {
    std::u16string name = path;
    UNICODE_STRING text{};
    text.Buffer = name.data();
    text.Length = static_cast<USHORT>(name.size() * 2);
    text.MaximumLength = text.Length;
    OBJECT_ATTRIBUTES attributes{};
    InitializeObjectAttributes(&attributes, &text, 0x80, nullptr, nullptr);
    return ZwCreateFile(&handle_, access, &attributes, &io_, nullptr, 0x80, 1, disposition, 0x20,
                        nullptr, 0);
  }

  // Opens a path that must not be there and closes what came all the same.
  NTSTATUS OpenAndClose(const std::u16string& path) {
    const NTSTATUS status = Open(path);
    if (NT_SUCCESS(status)) Close();
    return status;
  }

  NTSTATUS Read(std::string& text, ULONG length, LARGE_INTEGER* offset = nullptr) {
    std::vector<char> buffer(length);
    const NTSTATUS status = ZwReadFile(handle_, nullptr, nullptr, nullptr, &io_, buffer.data(),
                                       length, offset, nullptr);
    text.assign(buffer.data(), io_.Information);
    return status;
  }

  NTSTATUS Write(std::string text) {
    return ZwWriteFile(handle_, nullptr, nullptr, nullptr, &io_, text.data(),
                       static_cast<ULONG>(text.size()), nullptr, nullptr);
  }

  void Close() { EXPECT_EQ(ZwClose(handle_), 0); }

  void Put(const std::string& name, const std::string& text) {
    disk_.Write(name, {text.begin(), text.end()});
  }

  [[nodiscard]] std::string ContentOf(const std::string& name) const {
    std::ifstream file(disk_.Drivers() / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  [[nodiscard]] std::filesystem::path Drivers() const { return disk_.Drivers(); }
  [[nodiscard]] const IO_STATUS_BLOCK& Io() const { return io_; }
  [[nodiscard]] HANDLE Handle() const { return handle_; }

 private:
  TemporarySystemRoot disk_;
  HANDLE handle_ = nullptr;
  IO_STATUS_BLOCK io_{};
};

const std::u16string kDrivers = u"\\SystemRoot\\system32\\drivers\\";

TEST_F(Files, AreReadOnFromWhereTheLastReadEnded) {
  Put("a.set", "abcdefg");
  ASSERT_EQ(Open(kDrivers + u"a.set"), 0);
  EXPECT_EQ(Io().Information, 1U);
  std::string text;
  EXPECT_EQ(Read(text, 4), 0);
  EXPECT_EQ(text, "abcd");
  EXPECT_EQ(Read(text, 4), 0);  // a short read succeeds
  EXPECT_EQ(text, "efg");
  EXPECT_EQ(Read(text, 4), kEndOfFile);
  EXPECT_EQ(Io().Status, kEndOfFile);
  EXPECT_EQ(Io().Information, 0U);
  EXPECT_EQ(Read(text, 0), 0);
  Close();
}

TEST_F(Files, AreReadFromAnOffset) {
  Put("a.set", "abcdefg");
  ASSERT_EQ(Open(kDrivers + u"a.set"), 0);
  std::string text;
  LARGE_INTEGER offset{};
  offset.QuadPart = 5;
  EXPECT_EQ(Read(text, 1, &offset), 0);
  EXPECT_EQ(text, "f");
  EXPECT_EQ(Read(text, 9), 0);
  EXPECT_EQ(text, "g");
  Close();
}

TEST_F(Files, AreFoundWhateverTheCaseOfTheirNames) {
  Put("S001.set", "x");
  EXPECT_EQ(OpenAndClose(u"\\SYSTEMROOT\\System32\\DRIVERS\\s001.SET"), 0);
}

TEST_F(Files, ExactSpellingGoesFirst) {
  Put("s001.set", "lower");
  Put("S001.set", "upper");
  ASSERT_EQ(Open(kDrivers + u"S001.set"), 0);
  std::string text;
  EXPECT_EQ(Read(text, 10), 0);
  EXPECT_EQ(text, "upper");
  Close();
}

TEST_F(Files, MissingFileAndMissingFolderHaveStatusesOfTheirOwn) {
  EXPECT_EQ(OpenAndClose(kDrivers + u"S001.set"), kNameNotFound);
  EXPECT_EQ(OpenAndClose(u"\\SystemRoot\\system33\\drivers\\S001.set"), kPathNotFound);
  Put("file", "x");
  EXPECT_EQ(OpenAndClose(kDrivers + u"file\\S001.set"), kPathNotFound);
}

TEST_F(Files, WithoutASystemFolderNothingOpens) {
  Put("S001.set", "x");
  host::SetSystemRoot({});
  EXPECT_EQ(OpenAndClose(kDrivers + u"S001.set"), kPathNotFound);
  host::SetSystemRoot("/nonexistent/lidcam");
  EXPECT_EQ(OpenAndClose(kDrivers + u"S001.set"), kPathNotFound);
}

TEST_F(Files, NamesCannotLeaveTheSystemFolder) {
  Put("S001.set", "x");
  EXPECT_EQ(OpenAndClose(u"\\SystemRoot\\system32\\..\\system32\\drivers\\S001.set"), kNameInvalid);
  EXPECT_EQ(OpenAndClose(u"\\SystemRoot\\.\\system32\\drivers\\S001.set"), kNameInvalid);
  EXPECT_EQ(OpenAndClose(u"\\SystemRoot\\system32/drivers\\S001.set"), kNameInvalid);
  EXPECT_EQ(OpenAndClose(u"\\SystemRoot\\\\system32\\drivers\\S001.set"), kNameInvalid);
  EXPECT_EQ(OpenAndClose(u"\\SystemRoot\\"), kNameInvalid);
  EXPECT_EQ(OpenAndClose(u"\\??\\C:\\S001.set"), kPathNotFound);
  EXPECT_EQ(OpenAndClose(u"S001.set"), kPathNotFound);
  EXPECT_EQ(OpenAndClose(u"\\SystemRoot\\\xD800"), kNameInvalid);
}

TEST_F(Files, FolderIsNoFile) {
  EXPECT_EQ(OpenAndClose(u"\\SystemRoot\\system32"), kIsADirectory);
}

TEST_F(Files, OverwritingCreatesTheFileOrEmptiesIt) {
  ASSERT_EQ(Open(kDrivers + u"new.dat", kWriteAccess, kOverwriteIf), 0);
  EXPECT_EQ(Io().Information, 2U);
  EXPECT_EQ(Write("0123456789"), 0);
  EXPECT_EQ(Io().Information, 10U);
  Close();
  EXPECT_EQ(ContentOf("new.dat"), "0123456789");

  ASSERT_EQ(Open(kDrivers + u"NEW.DAT", kWriteAccess, kOverwriteIf), 0);
  EXPECT_EQ(Io().Information, 3U);
  EXPECT_EQ(Write("ab"), 0);
  EXPECT_EQ(Write("cd"), 0);
  Close();
  EXPECT_EQ(ContentOf("new.dat"), "abcd");
}

TEST_F(Files, AccessIsWhatTheOpenAskedFor) {
  Put("a.set", "abc");
  ASSERT_EQ(Open(kDrivers + u"a.set", kReadAccess), 0);
  EXPECT_EQ(Write("x"), kAccessDenied);
  Close();
  ASSERT_EQ(Open(kDrivers + u"a.set", kWriteAccess, kOverwriteIf), 0);
  std::string text;
  EXPECT_EQ(Read(text, 1), kAccessDenied);
  Close();
}

TEST_F(Files, ProtectedFileIsDenied) {
  if (::geteuid() == 0) GTEST_SKIP() << "nothing is protected from the superuser";
  Put("a.set", "abc");
  ASSERT_EQ(::chmod((Drivers() / "a.set").c_str(), 0), 0);
  EXPECT_EQ(OpenAndClose(kDrivers + u"a.set"), kAccessDenied);
}

TEST_F(Files, FullDiskIsToldByTheWrite) {
  std::filesystem::create_symlink("/dev/full", Drivers() / "full.dat");
  ASSERT_EQ(Open(kDrivers + u"full.dat", kWriteAccess, kOverwriteIf), 0);
  EXPECT_EQ(Write("x"), kDiskFull);
  EXPECT_EQ(Io().Information, 0U);
  Close();
}

TEST_F(Files, FaultOfAReadComesAtItsTurnAndOnce) {
  Put("a.set", "abc");
  ASSERT_EQ(Open(kDrivers + u"a.set"), 0);
  host::FailFileRead(2, kAccessDenied);
  std::string text;
  EXPECT_EQ(Read(text, 1), 0);
  EXPECT_EQ(Read(text, 1), kAccessDenied);
  EXPECT_EQ(Read(text, 1), 0);
  EXPECT_EQ(text, "c");
  Close();
}

TEST_F(Files, ClosedHandleIsInvalid) {
  Put("a.set", "abc");
  ASSERT_EQ(Open(kDrivers + u"a.set"), 0);
  Close();
  std::string text;
  EXPECT_EQ(Read(text, 1), kInvalidHandle);
  EXPECT_EQ(Write("x"), kInvalidHandle);
}

}  // namespace
}  // namespace lidcam::test
