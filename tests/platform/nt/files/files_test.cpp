#include "platform/host/nt/files/files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "platform/host/nt/objects/handles.h"
#include "tests/driver/support/file_size_limit.h"
#include "tests/driver/support/system_root.h"
#include "tests/driver/support/unprivileged_user.h"

namespace {

// Results in place of the system's; the linker redirects the calls here (--wrap).
bool g_takesNothing = false;
int g_closeError = 0;

}  // namespace

// The linker requires these names.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" {

int __real_close(int descriptor);
int __wrap_close(int descriptor);
ssize_t __real_pwrite(int descriptor, const void* bytes, size_t count, off_t offset);
ssize_t __wrap_pwrite(int descriptor, const void* bytes, size_t count, off_t offset);

int __wrap_close(int descriptor) {
  const int result = __real_close(descriptor);
  if (g_closeError == 0) return result;
  errno = g_closeError;
  return -1;
}

ssize_t __wrap_pwrite(int descriptor, const void* bytes, size_t count, off_t offset) {
  return g_takesNothing ? 0 : __real_pwrite(descriptor, bytes, count, offset);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace lidcam::test {
namespace {

constexpr auto kEndOfFile = static_cast<NTSTATUS>(0xC0000011);
constexpr auto kAccessDenied = static_cast<NTSTATUS>(0xC0000022);
constexpr auto kTypeMismatch = static_cast<NTSTATUS>(0xC0000024);
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

  // Opens a path that must not exist; closes the file if it does.
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

  NTSTATUS Write(std::string text, LARGE_INTEGER* offset = nullptr) {
    return ZwWriteFile(handle_, nullptr, nullptr, nullptr, &io_, text.data(),
                       static_cast<ULONG>(text.size()), offset, nullptr);
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
  [[nodiscard]] std::filesystem::path Root() const { return disk_.Root(); }
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
  EXPECT_EQ(Open(u"\\SystemRoot\\system32", kWriteAccess, kOverwriteIf), kIsADirectory);
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

namespace fs = std::filesystem;

TEST_F(Files, ProtectedFileIsDenied) {
  Put("a.set", "abc");
  fs::permissions(Drivers() / "a.set", fs::perms::none);
  const UnprivilegedUser user(Root());
  if (!user.IsUnprivileged()) GTEST_SKIP() << "nothing is protected from the superuser";
  EXPECT_EQ(OpenAndClose(kDrivers + u"a.set"), kAccessDenied);
}

TEST_F(Files, ReadOnlyFolderTakesNoNewFileAndKeepsTheProtectedOne) {
  Put("old.dat", "abc");
  fs::permissions(Drivers() / "old.dat", fs::perms::owner_read);
  fs::permissions(Drivers(), fs::perms::owner_read | fs::perms::owner_exec);
  {
    const UnprivilegedUser user(Root());
    if (!user.IsUnprivileged()) GTEST_SKIP() << "nothing is protected from the superuser";
    EXPECT_EQ(Open(kDrivers + u"new.dat", kWriteAccess, kOverwriteIf), kAccessDenied);
    EXPECT_EQ(Open(kDrivers + u"old.dat", kWriteAccess, kOverwriteIf), kAccessDenied);
  }
  fs::permissions(Drivers(), fs::perms::owner_all);
  EXPECT_FALSE(fs::exists(Drivers() / "new.dat"));
  EXPECT_EQ(ContentOf("old.dat"), "abc");
}

TEST_F(Files, PipeInPlaceOfAFileIsRefusedWithoutWaitingForItsOtherEnd) {
  ASSERT_EQ(::mkfifo((Drivers() / "a.set").c_str(), 0600), 0);
  EXPECT_EQ(OpenAndClose(kDrivers + u"a.set"), kTypeMismatch);
  EXPECT_EQ(Open(kDrivers + u"a.set", kWriteAccess, kOverwriteIf), kTypeMismatch);
  EXPECT_TRUE(std::filesystem::is_fifo(Drivers() / "a.set"));
}

TEST_F(Files, PipeThatIsRefusedGivesItsReaderNothing) {
  ASSERT_EQ(::mkfifo((Drivers() / "a.dat").c_str(), 0600), 0);
  const int reader = ::open((Drivers() / "a.dat").c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_GE(reader, 0);
  EXPECT_EQ(Open(kDrivers + u"a.dat", kWriteAccess, kOverwriteIf), kTypeMismatch);
  std::array<char, 8> bytes{};
  EXPECT_EQ(::read(reader, bytes.data(), bytes.size()), 0);
  ::close(reader);
}

TEST_F(Files, DeviceInPlaceOfAFileIsRefused) {
  std::filesystem::create_symlink("/dev/null", Drivers() / "a.set");
  EXPECT_EQ(OpenAndClose(kDrivers + u"a.set"), kTypeMismatch);
  EXPECT_EQ(Open(kDrivers + u"a.set", kWriteAccess, kOverwriteIf), kTypeMismatch);
}

TEST_F(Files, FileThatCannotBeReadIsToldWithItsPathAndTheReason) {
  std::vector<std::pair<std::string, NTSTATUS>> troubles;
  host::SetFileTroubleSink([&troubles](const std::filesystem::path& path, NTSTATUS status) {
    troubles.emplace_back(path.string(), status);
  });
  Put("good.set", "abc");
  std::filesystem::create_directory(Drivers() / "a.set");
  EXPECT_EQ(OpenAndClose(kDrivers + u"good.set"), 0);
  EXPECT_EQ(OpenAndClose(kDrivers + u"a.set"), kIsADirectory);
  EXPECT_EQ(OpenAndClose(kDrivers + u"b.set"), kNameNotFound);
  EXPECT_EQ(Open(kDrivers + u"a.set", kWriteAccess, kOverwriteIf), kIsADirectory);
  host::SetFileTroubleSink(nullptr);
  EXPECT_EQ(OpenAndClose(kDrivers + u"b.set"), kNameNotFound);
  ASSERT_EQ(troubles.size(), 2U);
  EXPECT_EQ(troubles[0], std::pair((Drivers() / "a.set").string(), kIsADirectory));
  EXPECT_EQ(troubles[1], std::pair((Drivers() / "b.set").string(), kNameNotFound));
}

TEST_F(Files, FullDiskIsToldByTheWrite) {
  ASSERT_EQ(Open(kDrivers + u"full.dat", kWriteAccess, kOverwriteIf), 0);
  {
    const FileSizeLimit limit(0);
    EXPECT_EQ(Write("x"), kDiskFull);
  }
  EXPECT_EQ(Io().Information, 0U);
  Close();
}

TEST_F(Files, DiskThatFillsUpWithinAWriteIsToldAndTheOldContentsAreGone) {
  Put("a.dat", "0123456789");
  ASSERT_EQ(Open(kDrivers + u"a.dat", kWriteAccess, kOverwriteIf), 0);
  {
    const FileSizeLimit limit(4);
    EXPECT_EQ(Write("abcdefg"), kDiskFull);
  }
  EXPECT_EQ(Io().Information, 0U);
  Close();
  EXPECT_EQ(ContentOf("a.dat"), "abcd");
}

TEST_F(Files, WriteThatTheSystemTakesNothingOfMeansAFullDisk) {
  ASSERT_EQ(Open(kDrivers + u"a.dat", kWriteAccess, kOverwriteIf), 0);
  g_takesNothing = true;
  EXPECT_EQ(Write("abc"), kDiskFull);
  EXPECT_EQ(Io().Information, 0U);
  EXPECT_EQ(Write(""), 0);
  g_takesNothing = false;
  EXPECT_EQ(Write("abc"), 0);
  Close();
  EXPECT_EQ(ContentOf("a.dat"), "abc");
}

// Network file systems may report at close what they could not store.
TEST_F(Files, DiskThatTellsOfItsEndAtTheCloseIsHeard) {
  ASSERT_EQ(Open(kDrivers + u"a.dat", kWriteAccess, kOverwriteIf), 0);
  EXPECT_EQ(Write("abc"), 0);
  g_closeError = ENOSPC;
  const NTSTATUS status = ZwClose(Handle());
  g_closeError = 0;
  EXPECT_EQ(status, kDiskFull);
  EXPECT_EQ(ZwClose(Handle()), kInvalidHandle) << "the handle is closed despite the error";
}

TEST_F(Files, InterruptedCloseIsDone) {
  Put("a.set", "abc");
  ASSERT_EQ(Open(kDrivers + u"a.set"), 0);
  g_closeError = EINTR;
  const NTSTATUS status = ZwClose(Handle());
  g_closeError = 0;
  EXPECT_EQ(status, 0);
}

TEST_F(Files, OverwritingThroughAHandleForReadingEmptiesTheFileAndTakesNoWrite) {
  Put("a.dat", "abc");
  ASSERT_EQ(Open(kDrivers + u"a.dat", kReadAccess, kOverwriteIf), 0);
  EXPECT_EQ(Io().Information, 3U);
  std::string text;
  EXPECT_EQ(Read(text, 1), kEndOfFile);
  EXPECT_EQ(Write("x"), kAccessDenied);
  Close();
  EXPECT_EQ(ContentOf("a.dat"), "");
}

TEST_F(Files, WriteFromAnOffsetGoesThereAndTheNextOneOn) {
  ASSERT_EQ(Open(kDrivers + u"a.dat", kWriteAccess, kOverwriteIf), 0);
  EXPECT_EQ(Write("0123456789"), 0);
  LARGE_INTEGER start{};
  EXPECT_EQ(Write("ab", &start), 0);
  EXPECT_EQ(Write("cd"), 0);
  Close();
  EXPECT_EQ(ContentOf("a.dat"), "abcd456789");
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
