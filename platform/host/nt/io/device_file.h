#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {

class Scheduler;
struct HostFile;

/// Input and output buffers of an application's request. The application owns the memory, which
/// outlives the request.
struct ControlBuffers {
  PVOID Input = nullptr;
  ULONG InputBytes = 0;
  PVOID Output = nullptr;
  ULONG OutputBytes = 0;
};

/// A request in flight. Passive level.
class DeviceRequest {
 public:
  DeviceRequest(const DeviceRequest&) = delete;
  DeviceRequest& operator=(const DeviceRequest&) = delete;

  /// Cancels the request if it is in flight, and waits for its completion.
  ~DeviceRequest() noexcept(false);

  /// Waits for the completion of the request.
  ///
  /// @param timeout  as KeWaitForSingleObject() takes it; null waits without limit
  /// @return false if it is still in flight
  [[nodiscard]] bool Wait(PLARGE_INTEGER timeout = nullptr);

  /// Cancels the request; its completion may take a while, or may have succeeded already.
  void Cancel();

  /// Of a completed request.
  [[nodiscard]] NTSTATUS Status() const;
  [[nodiscard]] ULONG_PTR Information() const;

  /// Signalled when the request is completed.
  [[nodiscard]] PKEVENT Event() { return &back_; }

 private:
  friend class DeviceFile;
  friend NTSTATUS SendAndWait(PDEVICE_OBJECT device, const IO_STACK_LOCATION& parameters);

  /// @param parameters  the stack location of the topmost driver
  /// @param output      becomes the request's UserBuffer
  /// @param keptFile    stays open until the request is completed; may be null
  DeviceRequest(PDEVICE_OBJECT device, const IO_STACK_LOCATION& parameters, PVOID output,
                HostFile* keptFile);

  static NTSTATUS NTAPI CameBack(PDEVICE_OBJECT device, PIRP irp, PVOID context);

  KEVENT back_{};
  PIRP irp_ = nullptr;  ///< null if its allocation failed
  HostFile* const keptFile_;
};

/// An application's open file of a device. Passive level; any thread, except for the destructor.
class DeviceFile {
 public:
  /// Opens a device.
  ///
  /// @param device   any of its stack: the topmost driver gets the request
  /// @param name     what follows the device's own name; any bytes
  /// @param related  the file that `name` is relative to; may be null
  /// @param file     is set on success only
  /// @return the driver's status, or STATUS_INSUFFICIENT_RESOURCES
  static NTSTATUS Open(PDEVICE_OBJECT device, std::u16string name, const DeviceFile* related,
                       std::unique_ptr<DeviceFile>& file);

  DeviceFile(const DeviceFile&) = delete;
  DeviceFile& operator=(const DeviceFile&) = delete;

  /// Sends the driver the cleanup, and closes the file when its last reference is released, of
  /// which each request in flight holds one. Files opened relative to it may outlive it.
  ~DeviceFile() noexcept(false);

  /// Sends a device control request and waits for its completion.
  ///
  /// @param information  the driver's IoStatus.Information, on success mostly a number of bytes
  NTSTATUS Control(ULONG code, const ControlBuffers& buffers, ULONG_PTR& information) const;

  /// Sends a device control request.
  [[nodiscard]] std::unique_ptr<DeviceRequest> BeginControl(ULONG code,
                                                            const ControlBuffers& buffers) const;

  /// The kernel's handle of the file, for requests that name another file.
  [[nodiscard]] HANDLE Handle() const { return handle_; }

  /// The device that the file's requests go to.
  [[nodiscard]] PDEVICE_OBJECT Device() const;

 private:
  explicit DeviceFile(HostFile* file);

  HostFile* const file_;
  const HANDLE handle_;
};

/// Refuses all further openings of the device, and returns when those in progress have ended. As on
/// the platform, a device is removed after the openings that began before.
void CloseToOpenings(PDEVICE_OBJECT device);

/// Files that are open, or still referred to, in the calling thread's world.
[[nodiscard]] std::size_t OpenFileCount();

/// A file of this world that is still open or referenced; empty if none.
[[nodiscard]] std::string FindOpenFile(const Scheduler& world);

/// Forgets all files of a world that ends.
void ForgetFilesOfWorld(const Scheduler& world);

/// Sends a request without a file to the top of a device's stack and waits for its completion: plug
/// and play, power.
/// @return its status; STATUS_NOT_SUPPORTED if no driver set one
NTSTATUS SendAndWait(PDEVICE_OBJECT device, const IO_STACK_LOCATION& parameters);

/// ObfDereferenceObject() of a file object: the last reference closes the file.
/// @return references left
LONG DereferenceFileObject(PVOID object);

}  // namespace lidcam::host
