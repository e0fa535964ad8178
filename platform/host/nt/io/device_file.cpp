#include "platform/host/nt/io/device_file.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <set>
#include <utility>

#include "base/time_units.h"
#include "platform/host/nt/io/device_object.h"
#include "platform/host/nt/objects/handles.h"
#include "platform/host/nt/scheduling/scheduler.h"
#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/scheduling/violation.h"

namespace lidcam::host {
namespace {

// Never destroyed: a world may be inspected during static destruction.
struct OpenFiles {
  std::mutex Lock;
  std::set<const HostFile*> All;
};

OpenFiles& TheOpenFiles() {
  static auto* const files = new OpenFiles;
  return *files;
}

}  // namespace

/// A file object with the host's own data.
struct HostFile : FILE_OBJECT {
  HostFile(PDEVICE_OBJECT device, std::u16string name, PFILE_OBJECT related)
      : FILE_OBJECT{}, Name(std::move(name)) {
    Type = IO_TYPE_FILE;
    Size = sizeof(FILE_OBJECT);
    DeviceObject = device;
    ReadAccess = TRUE;
    WriteAccess = TRUE;
    RelatedFileObject = related;
    FileName.Buffer = Name.data();
    FileName.Length = static_cast<USHORT>(Name.size() * sizeof(char16_t));
    FileName.MaximumLength = FileName.Length;
  }
  HostFile(const HostFile&) = delete;
  HostFile& operator=(const HostFile&) = delete;
  ~HostFile() {
    OpenFiles& files = TheOpenFiles();
    const std::lock_guard guard(files.Lock);
    files.All.erase(this);
  }

  const Scheduler* World = &CurrentThread().World;
  std::u16string Name;
  std::atomic<LONG> References{1};
  bool IsOpening = true;  ///< the driver hasn't completed the create yet; under the files' lock
};

namespace {

/// For destructors, which may also run while an exception of the application unwinds: in a world
/// that stops they leave everything as it is. They must not throw, because applications keep these
/// objects in smart pointers; a stopping world stops the thread at its next kernel call.
template <typename Action>
void UnlessTheWorldStops(const Action& action) {
  if (CurrentThread().World.IsStopping()) return;
  try {
    action();
  } catch (const KernelStopped&) {
  }
}

PDEVICE_OBJECT TopOf(PDEVICE_OBJECT device) {
  while (device->AttachedDevice != nullptr) device = device->AttachedDevice;
  return device;
}

IO_STACK_LOCATION FileRequest(UCHAR major, HostFile& file) {
  IO_STACK_LOCATION location{};
  location.MajorFunction = major;
  location.FileObject = &file;
  return location;
}

IO_STACK_LOCATION ControlRequest(HostFile& file, ULONG code, const ControlBuffers& buffers) {
  IO_STACK_LOCATION location = FileRequest(IRP_MJ_DEVICE_CONTROL, file);
  location.Parameters.DeviceIoControl.OutputBufferLength = buffers.OutputBytes;
  location.Parameters.DeviceIoControl.InputBufferLength = buffers.InputBytes;
  location.Parameters.DeviceIoControl.IoControlCode = code;
  location.Parameters.DeviceIoControl.Type3InputBuffer = buffers.Input;
  return location;
}

/// A file that is being opened keeps its device; null if the device is being removed.
std::unique_ptr<HostFile> BeginOpening(PDEVICE_OBJECT device, std::u16string name,
                                       PFILE_OBJECT related) {
  auto made = std::make_unique<HostFile>(device, std::move(name), related);
  OpenFiles& files = TheOpenFiles();
  const std::lock_guard guard(files.Lock);
  const HostDevice* const host = FindHostDevice(device);
  if (host != nullptr && host->IsBeingRemoved) return nullptr;
  std::atomic_ref(device->ReferenceCount).fetch_add(1);
  files.All.insert(made.get());
  return made;
}

void EndOpening(HostFile& file) {
  OpenFiles& files = TheOpenFiles();
  const std::lock_guard guard(files.Lock);
  file.IsOpening = false;
}

bool IsBeingOpened(const DEVICE_OBJECT* device) {
  OpenFiles& files = TheOpenFiles();
  const std::lock_guard guard(files.Lock);
  return std::ranges::any_of(files.All, [device](const HostFile* file) {
    return file->IsOpening && file->DeviceObject == device;
  });
}

void LetGoOfDevice(HostFile& file) {
  InterlockedDecrement(&file.DeviceObject->ReferenceCount);
}

void Pause() {
  LARGE_INTEGER interval{};
  interval.QuadPart = -base::kUnitsPerMillisecond;
  KeDelayExecutionThread(KernelMode, FALSE, &interval);
}

/// Requests that end something can't fail for lack of memory: the platform reserves some for them.
bool MustBeSent(const IO_STACK_LOCATION& request) {
  const bool isRemoval = request.MinorFunction == IRP_MN_REMOVE_DEVICE ||
                         request.MinorFunction == IRP_MN_SURPRISE_REMOVAL;
  return request.MajorFunction == IRP_MJ_CLEANUP || request.MajorFunction == IRP_MJ_CLOSE ||
         (request.MajorFunction == IRP_MJ_PNP && isRemoval);
}

/// A handle holds a reference of its own.
class FileHandle final : public HandleObject {
 public:
  explicit FileHandle(HostFile& file) : file_(file) { ++file_.References; }

  PVOID Reference() override {
    ++file_.References;
    return static_cast<PFILE_OBJECT>(&file_);
  }

  NTSTATUS Close() override {
    DereferenceFileObject(static_cast<PFILE_OBJECT>(&file_));
    return STATUS_SUCCESS;
  }

 private:
  HostFile& file_;
};

}  // namespace

DeviceRequest::DeviceRequest(PDEVICE_OBJECT device, const IO_STACK_LOCATION& parameters,
                             PVOID output, HostFile* keptFile)
    : keptFile_(keptFile) {
  if (keptFile_ != nullptr) ++keptFile_->References;
  KeInitializeEvent(&back_, NotificationEvent, FALSE);
  PDEVICE_OBJECT const top = TopOf(device);
  irp_ = IoAllocateIrp(top->StackSize, FALSE);
  while (irp_ == nullptr && MustBeSent(parameters)) {
    Pause();
    irp_ = IoAllocateIrp(top->StackSize, FALSE);
  }
  if (irp_ == nullptr) {
    KeSetEvent(&back_, IO_NO_INCREMENT, FALSE);
    return;
  }
  irp_->IoStatus.Status = STATUS_NOT_SUPPORTED;
  irp_->RequestorMode = KernelMode;
  irp_->UserBuffer = output;
  irp_->Tail.Overlay.OriginalFileObject = parameters.FileObject;
  IO_STACK_LOCATION& location = *IoGetNextIrpStackLocation(irp_);
  location = parameters;
  IoSetCompletionRoutine(irp_, CameBack, this, TRUE, TRUE, TRUE);
  IoCallDriver(top, irp_);
}

DeviceRequest::~DeviceRequest() noexcept(false) {
  UnlessTheWorldStops([this] {
    LARGE_INTEGER now{};
    if (!Wait(&now)) {
      Cancel();
      static_cast<void>(Wait());
    }
    if (irp_ != nullptr) IoFreeIrp(irp_);
    if (keptFile_ != nullptr) DereferenceFileObject(static_cast<PFILE_OBJECT>(keptFile_));
  });
}

// The request is kept for its sender to read.
NTSTATUS DeviceRequest::CameBack(PDEVICE_OBJECT, PIRP, PVOID context) {
  KeSetEvent(&static_cast<DeviceRequest*>(context)->back_, IO_NO_INCREMENT, FALSE);
  return STATUS_MORE_PROCESSING_REQUIRED;
}

bool DeviceRequest::Wait(PLARGE_INTEGER timeout) {
  return KeWaitForSingleObject(&back_, Executive, KernelMode, FALSE, timeout) == STATUS_SUCCESS;
}

void DeviceRequest::Cancel() {
  if (irp_ != nullptr) IoCancelIrp(irp_);
}

NTSTATUS DeviceRequest::Status() const {
  return irp_ != nullptr ? irp_->IoStatus.Status : STATUS_INSUFFICIENT_RESOURCES;
}

ULONG_PTR DeviceRequest::Information() const {
  return irp_ != nullptr ? irp_->IoStatus.Information : 0;
}

NTSTATUS SendAndWait(PDEVICE_OBJECT device, const IO_STACK_LOCATION& parameters) {
  DeviceRequest request(device, parameters, nullptr, nullptr);
  static_cast<void>(request.Wait());
  return request.Status();
}

LONG DereferenceFileObject(PVOID object) {
  HostFile& file = *static_cast<HostFile*>(static_cast<PFILE_OBJECT>(object));
  const LONG left = --file.References;
  if (left != 0) return left;
  // The driver may delete a removed device while it closes the last file: the device must not be
  // touched afterwards. IoDeleteDevice() detects a device that is deleted earlier.
  LetGoOfDevice(file);
  SendAndWait(file.DeviceObject, FileRequest(IRP_MJ_CLOSE, file));
  delete &file;
  return left;
}

void CloseToOpenings(PDEVICE_OBJECT device) {
  {
    OpenFiles& files = TheOpenFiles();
    const std::lock_guard guard(files.Lock);
    HostDevice* const host = FindHostDevice(device);
    if (host != nullptr) host->IsBeingRemoved = true;
  }
  while (IsBeingOpened(device)) Pause();
}

std::size_t OpenFileCount() {
  const Scheduler& world = CurrentThread().World;
  OpenFiles& files = TheOpenFiles();
  const std::lock_guard guard(files.Lock);
  return static_cast<std::size_t>(std::ranges::count(files.All, &world, &HostFile::World));
}

std::string FindOpenFile(const Scheduler& world) {
  OpenFiles& files = TheOpenFiles();
  const std::lock_guard guard(files.Lock);
  const auto found = std::ranges::find(files.All, &world, &HostFile::World);
  return found != files.All.end() ? DescribeObject("file", *found) : std::string();
}

void ForgetFilesOfWorld(const Scheduler& world) {
  OpenFiles& files = TheOpenFiles();
  const std::lock_guard guard(files.Lock);
  std::erase_if(files.All, [&world](const HostFile* file) { return file->World == &world; });
}

DeviceFile::DeviceFile(HostFile* file)
    : file_(file), handle_(OpenHandle(std::make_shared<FileHandle>(*file))) {}

NTSTATUS DeviceFile::Open(PDEVICE_OBJECT device, std::u16string name, const DeviceFile* related,
                          std::unique_ptr<DeviceFile>& file) {
  // The driver that opened the file closes it, even if its device has left the stack meanwhile.
  std::unique_ptr<HostFile> made =
      BeginOpening(TopOf(device), std::move(name), related != nullptr ? related->file_ : nullptr);
  if (made == nullptr) return STATUS_DELETE_PENDING;
  const NTSTATUS status = ForApplication(
      [&] { return SendAndWait(made->DeviceObject, FileRequest(IRP_MJ_CREATE, *made)); });
  if (!NT_SUCCESS(status)) {
    LetGoOfDevice(*made);
    return status;
  }
  EndOpening(*made);
  made->RelatedFileObject = nullptr;
  file.reset(new DeviceFile(made.release()));
  return status;
}

DeviceFile::~DeviceFile() noexcept(false) {
  UnlessTheWorldStops([this] {
    ForApplication([this] {
      SendAndWait(file_->DeviceObject, FileRequest(IRP_MJ_CLEANUP, *file_));
      ZwClose(handle_);
      return DereferenceFileObject(static_cast<PFILE_OBJECT>(file_));
    });
  });
}

PDEVICE_OBJECT DeviceFile::Device() const {
  return file_->DeviceObject;
}

NTSTATUS DeviceFile::Control(ULONG code, const ControlBuffers& buffers,
                             ULONG_PTR& information) const {
  const std::unique_ptr<DeviceRequest> request = BeginControl(code, buffers);
  static_cast<void>(request->Wait());
  information = request->Information();
  return request->Status();
}

std::unique_ptr<DeviceRequest> DeviceFile::BeginControl(ULONG code,
                                                        const ControlBuffers& buffers) const {
  return ForApplication([&] {
    return std::unique_ptr<DeviceRequest>(new DeviceRequest(
        file_->DeviceObject, ControlRequest(*file_, code, buffers), buffers.Output, file_));
  });
}

}  // namespace lidcam::host
