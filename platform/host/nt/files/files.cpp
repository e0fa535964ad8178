#include "platform/host/nt/files/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/host/nt/objects/handles.h"
#include "platform/host/nt/scheduling/scheduler.h"
#include "platform/host/nt/verifier/kernel_faults.h"

namespace lidcam::host {
namespace {

// Never destroyed: a driver may use files during static destruction.
struct FileSystem {
  std::mutex Lock;
  std::filesystem::path Root;
  FileTroubleSink Trouble;
  std::uint32_t FailReadCountdown = 0;
  NTSTATUS FailReadStatus = STATUS_SUCCESS;
};

FileSystem& TheFileSystem() {
  static auto* const fileSystem = new FileSystem;
  return *fileSystem;
}

constexpr std::u16string_view kSystemRootPrefix = u"\\SystemRoot\\";
constexpr std::u16string_view kForbiddenCharacters = u"/:*?\"<>|";
constexpr LONGLONG kAtCurrentPosition = -2;
constexpr mode_t kNewFileMode = 0644;

NTSTATUS StatusOfError(int error) {
  switch (error) {
    case ENOENT:
      return STATUS_OBJECT_NAME_NOT_FOUND;
    case EBADF:  // closed by another thread just before the use
      return STATUS_INVALID_HANDLE;
    case ENOTDIR:
      return STATUS_OBJECT_PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EROFS:
      return STATUS_ACCESS_DENIED;
    case EISDIR:
      return STATUS_FILE_IS_A_DIRECTORY;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return STATUS_DISK_FULL;
    case EMFILE:
    case ENFILE:
    case ENOMEM:
      return STATUS_INSUFFICIENT_RESOURCES;
    case EIO:
      return STATUS_DEVICE_DATA_ERROR;
    default:
      return STATUS_UNEXPECTED_IO_ERROR;
  }
}

template <typename Character>
bool SameIgnoringCase(std::basic_string_view<Character> left,
                      std::basic_string_view<Character> right) {
  const auto fold = [](Character c) {
    return c >= Character{'A'} && c <= Character{'Z'} ? static_cast<Character>(c + ('a' - 'A')) : c;
  };
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [fold](Character a, Character b) { return fold(a) == fold(b); });
}

bool IsValidComponent(std::u16string_view name) {
  if (name.empty() || name == u"." || name == u"..") return false;
  return std::all_of(name.begin(), name.end(), [](char16_t c) {
    return c >= u' ' && kForbiddenCharacters.find(c) == std::u16string_view::npos;
  });
}

// Splits what follows "\SystemRoot\" at the backslashes.
NTSTATUS SplitPath(std::u16string_view path, std::vector<std::filesystem::path>& components) {
  const auto prefix = path.substr(0, kSystemRootPrefix.size());
  if (!SameIgnoringCase(prefix, kSystemRootPrefix)) return STATUS_OBJECT_PATH_NOT_FOUND;
  std::u16string_view rest = path.substr(prefix.size());
  while (true) {
    const std::size_t end = rest.find(u'\\');
    const std::u16string_view name = rest.substr(0, end);
    if (!IsValidComponent(name)) return STATUS_OBJECT_NAME_INVALID;
    try {
      components.emplace_back(name);
    } catch (const std::system_error&) {  // half of a surrogate pair
      return STATUS_OBJECT_NAME_INVALID;
    }
    if (end == std::u16string_view::npos) return STATUS_SUCCESS;
    rest.remove_prefix(end + 1);
  }
}

// The entry of `folder` named `name`: one spelled the same before one that differs in case. `folder
// / name` if neither exists.
std::filesystem::path FindInFolder(const std::filesystem::path& folder,
                                   const std::filesystem::path& name) {
  std::filesystem::path exact = folder / name;
  std::error_code error;
  if (std::filesystem::exists(std::filesystem::symlink_status(exact, error))) return exact;
  const std::string& wanted = name.native();
  for (auto entry = std::filesystem::directory_iterator(folder, error);
       !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    const std::string spelling = entry->path().filename().native();
    if (SameIgnoringCase<char>(spelling, wanted)) return entry->path();
  }
  return exact;
}

NTSTATUS ResolvePath(std::u16string_view name, std::filesystem::path& path) {
  path = SystemRoot();
  if (path.empty()) return STATUS_OBJECT_PATH_NOT_FOUND;
  std::vector<std::filesystem::path> components;
  const NTSTATUS status = SplitPath(name, components);
  if (!NT_SUCCESS(status)) return status;
  std::error_code error;
  for (const std::filesystem::path& component : components) {
    if (!std::filesystem::is_directory(path, error)) {
      return error == std::errc::permission_denied ? STATUS_ACCESS_DENIED
                                                   : STATUS_OBJECT_PATH_NOT_FOUND;
    }
    path = FindInFolder(path, component);
  }
  return STATUS_SUCCESS;
}

class HostFile final : public HandleObject {
 public:
  HostFile(int descriptor, ACCESS_MASK access) : descriptor_(descriptor), access_(access) {}
  ~HostFile() override { HostFile::Close(); }

  // Some file systems report only here that they had no room for the data.
  NTSTATUS Close() override {
    const std::lock_guard guard(lock_);
    const int descriptor = std::exchange(descriptor_, kClosed);
    if (descriptor == kClosed) return STATUS_SUCCESS;
    const bool isClosed = ::close(descriptor) == 0 || errno == EINTR;
    return isClosed ? STATUS_SUCCESS : StatusOfError(errno);
  }

  NTSTATUS Read(const LARGE_INTEGER* offset, void* buffer, std::size_t length, std::size_t& done) {
    if ((access_ & FILE_READ_DATA) == 0) return STATUS_ACCESS_DENIED;
    const std::lock_guard guard(lock_);
    if (!MoveTo(offset)) return STATUS_INVALID_PARAMETER;
    const NTSTATUS status = ForEachPiece(length, done, STATUS_SUCCESS, [&](std::size_t from) {
      return ::pread(descriptor_, static_cast<char*>(buffer) + from, length - from,
                     static_cast<off_t>(position_));
    });
    if (!NT_SUCCESS(status)) return status;
    return done == 0 && length != 0 ? STATUS_END_OF_FILE : STATUS_SUCCESS;
  }

  NTSTATUS Write(const LARGE_INTEGER* offset, const void* buffer, std::size_t length,
                 std::size_t& done) {
    if ((access_ & FILE_WRITE_DATA) == 0) return STATUS_ACCESS_DENIED;
    const std::lock_guard guard(lock_);
    if (!MoveTo(offset)) return STATUS_INVALID_PARAMETER;
    return ForEachPiece(length, done, STATUS_DISK_FULL, [&](std::size_t from) {
      return ::pwrite(descriptor_, static_cast<const char*>(buffer) + from, length - from,
                      static_cast<off_t>(position_));
    });
  }

 private:
  bool MoveTo(const LARGE_INTEGER* offset) {
    if (offset == nullptr || offset->QuadPart == kAtCurrentPosition) return true;
    if (offset->QuadPart < 0) return false;
    position_ = offset->QuadPart;
    return true;
  }

  // The system may move less than requested at a time. The platform's reads continue to the end of
  // the file or of the buffer, its writes until all is written. `atNothing` is the status if the
  // system moves no byte: the end of the file, or a full disk.
  template <typename Transfer>
  NTSTATUS ForEachPiece(std::size_t length, std::size_t& done, NTSTATUS atNothing,
                        Transfer transfer) {
    done = 0;
    while (done < length) {
      const ssize_t moved = transfer(done);
      if (moved < 0 && errno == EINTR) continue;
      if (moved < 0) return StatusOfError(errno);
      if (moved == 0) return atNothing;
      done += static_cast<std::size_t>(moved);
      position_ += moved;
    }
    return STATUS_SUCCESS;
  }

  static constexpr int kClosed = -1;

  std::mutex lock_;
  int descriptor_;
  const ACCESS_MASK access_;
  LONGLONG position_ = 0;
};

// Emptying a file is a write, regardless of the handle's access.
int OpenFlags(ACCESS_MASK access, ULONG disposition) {
  const bool replaces = disposition == FILE_OVERWRITE_IF;
  const bool writes = replaces || (access & FILE_WRITE_DATA) != 0;
  const bool reads = (access & FILE_READ_DATA) != 0;
  const int direction = writes ? (reads ? O_RDWR : O_WRONLY) : O_RDONLY;
  // Without O_NONBLOCK, opening a pipe would wait for its other end.
  return direction | O_CLOEXEC | O_NONBLOCK | (replaces ? O_CREAT | O_TRUNC : 0);
}

// Other kinds than files are not opened at all: opening alone has effects on some devices.
NTSTATUS RequireFile(const struct stat& status) {
  if (S_ISDIR(status.st_mode)) return STATUS_FILE_IS_A_DIRECTORY;
  return S_ISREG(status.st_mode) ? STATUS_SUCCESS : STATUS_OBJECT_TYPE_MISMATCH;
}

NTSTATUS OpenFile(const OBJECT_ATTRIBUTES& attributes, std::u16string_view name, ACCESS_MASK access,
                  ULONG disposition, HANDLE& handle, ULONG_PTR& information) {
  if (disposition != FILE_OPEN && disposition != FILE_OVERWRITE_IF) return STATUS_NOT_IMPLEMENTED;
  std::filesystem::path path;
  const NTSTATUS resolved = ResolvePath(name, path);
  if (!NT_SUCCESS(resolved)) return resolved;
  struct stat found {};
  const bool existed = ::stat(path.c_str(), &found) == 0;
  if (existed) {
    const NTSTATUS status = RequireFile(found);
    if (!NT_SUCCESS(status)) return status;
  }
  const int descriptor = ::open(path.c_str(), OpenFlags(access, disposition), kNewFileMode);
  if (descriptor < 0) return StatusOfError(errno);
  auto file = std::make_shared<HostFile>(descriptor, access);
  // The name may refer to something else by now.
  if (::fstat(descriptor, &found) != 0) return StatusOfError(errno);
  const NTSTATUS opened = RequireFile(found);
  if (!NT_SUCCESS(opened)) return opened;
  handle = OpenHandleOfDriver(calls::kZwCreateFile.Name, &attributes, std::move(file));
  information = disposition == FILE_OPEN ? FILE_OPENED : existed ? FILE_OVERWRITTEN : FILE_CREATED;
  return STATUS_SUCCESS;
}

void TellTrouble(std::u16string_view name, NTSTATUS status) {
  FileSystem& fileSystem = TheFileSystem();
  FileTroubleSink sink;
  std::filesystem::path path;
  {
    const std::lock_guard guard(fileSystem.Lock);
    sink = fileSystem.Trouble;
    path = fileSystem.Root;
  }
  std::vector<std::filesystem::path> components;
  if (!sink || !NT_SUCCESS(SplitPath(name, components))) return;
  for (const std::filesystem::path& component : components) path /= component;
  sink(path, status);
}

// The status that a read reports: `status`, or the injected fault if it is due.
NTSTATUS WithReadFault(NTSTATUS status) {
  FileSystem& fileSystem = TheFileSystem();
  const std::lock_guard guard(fileSystem.Lock);
  if (fileSystem.FailReadCountdown == 0 || --fileSystem.FailReadCountdown != 0) return status;
  return fileSystem.FailReadStatus;
}

NTSTATUS Report(PIO_STATUS_BLOCK io, NTSTATUS status, std::size_t information) {
  io->Status = status;
  io->Information = NT_SUCCESS(status) ? information : 0;
  return status;
}

}  // namespace

void SetSystemRoot(const std::filesystem::path& folder) {
  FileSystem& fileSystem = TheFileSystem();
  const std::lock_guard guard(fileSystem.Lock);
  fileSystem.Root = folder;
}

std::filesystem::path SystemRoot() {
  FileSystem& fileSystem = TheFileSystem();
  const std::lock_guard guard(fileSystem.Lock);
  return fileSystem.Root;
}

void SetFileTroubleSink(FileTroubleSink sink) {
  FileSystem& fileSystem = TheFileSystem();
  const std::lock_guard guard(fileSystem.Lock);
  fileSystem.Trouble = std::move(sink);
}

void FailFileRead(std::uint32_t countdown, NTSTATUS status) {
  FileSystem& fileSystem = TheFileSystem();
  const std::lock_guard guard(fileSystem.Lock);
  fileSystem.FailReadCountdown = countdown;
  fileSystem.FailReadStatus = status;
}

}  // namespace lidcam::host

NTSTATUS ZwCreateFile(PHANDLE file, ACCESS_MASK access, POBJECT_ATTRIBUTES attributes,
                      PIO_STATUS_BLOCK io, PLARGE_INTEGER, ULONG, ULONG, ULONG disposition, ULONG,
                      PVOID, ULONG) {
  using namespace lidcam::host;
  EnterKernelCall(calls::kZwCreateFile, attributes);
  if (const auto fault = KernelCallFault("ZwCreateFile")) return Report(io, *fault, 0);
  const UNICODE_STRING* const name = attributes->ObjectName;
  if (name == nullptr || attributes->RootDirectory != nullptr) {
    return Report(io, STATUS_INVALID_PARAMETER, 0);
  }
  const std::u16string_view text(name->Buffer, name->Length / sizeof(WCHAR));
  ULONG_PTR information = 0;
  const NTSTATUS status = OpenFile(*attributes, text, access, disposition, *file, information);
  if (!NT_SUCCESS(status) && disposition == FILE_OPEN) TellTrouble(text, status);
  return Report(io, status, information);
}

NTSTATUS ZwReadFile(HANDLE file, HANDLE, PIO_APC_ROUTINE, PVOID, PIO_STATUS_BLOCK io, PVOID buffer,
                    ULONG length, PLARGE_INTEGER offset, PULONG) {
  using namespace lidcam::host;
  EnterKernelCall(calls::kZwReadFile, file);
  std::shared_ptr<HostFile> object;
  std::size_t done = 0;
  NTSTATUS status = FindHandle(file, object);
  if (NT_SUCCESS(status)) status = object->Read(offset, buffer, length, done);
  return Report(io, WithReadFault(status), done);
}

NTSTATUS ZwWriteFile(HANDLE file, HANDLE, PIO_APC_ROUTINE, PVOID, PIO_STATUS_BLOCK io, PVOID buffer,
                     ULONG length, PLARGE_INTEGER offset, PULONG) {
  using namespace lidcam::host;
  EnterKernelCall(calls::kZwWriteFile, file);
  if (const auto fault = KernelCallFault("ZwWriteFile")) return Report(io, *fault, 0);
  std::shared_ptr<HostFile> object;
  std::size_t done = 0;
  NTSTATUS status = FindHandle(file, object);
  if (NT_SUCCESS(status)) status = object->Write(offset, buffer, length, done);
  return Report(io, status, done);
}
