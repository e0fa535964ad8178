#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {

class Scheduler;
struct HostFile;

/// What an application hands in with a request, and where the answer goes. The memory is the
/// application's and outlives the request.
struct ControlBuffers {
  PVOID Input = nullptr;
  ULONG InputBytes = 0;
  PVOID Output = nullptr;
  ULONG OutputBytes = 0;
};

/// A request that is sent and may take its time. Passive level.
class DeviceRequest {
 public:
  DeviceRequest(const DeviceRequest&) = delete;
  DeviceRequest& operator=(const DeviceRequest&) = delete;

  /// Cancels the request if it is still out, and waits for it.
  ~DeviceRequest() noexcept(false);

  /// Waits until the request has come back.
  ///
  /// @param timeout  as KeWaitForSingleObject() takes it; null waits without limit
  /// @return false if it is still out
  [[nodiscard]] bool Wait(PLARGE_INTEGER timeout = nullptr);

  /// Asks the driver to give it back; it may take a while, or come back done.
  void Cancel();

  /// Of a request that has come back.
  [[nodiscard]] NTSTATUS Status() const;
  [[nodiscard]] ULONG_PTR Information() const;

  /// Signalled while the request is back.
  [[nodiscard]] PKEVENT Event() { return &back_; }

 private:
  friend class DeviceFile;
  friend NTSTATUS SendAndWait(PDEVICE_OBJECT device, const IO_STACK_LOCATION& parameters);

  /// @param parameters  what the top driver finds in its stack location
  /// @param output      becomes the request's UserBuffer
  /// @param keptFile    stays open until the request has come back; may be null
  DeviceRequest(PDEVICE_OBJECT device, const IO_STACK_LOCATION& parameters, PVOID output,
                HostFile* keptFile);

  static NTSTATUS NTAPI CameBack(PDEVICE_OBJECT device, PIRP irp, PVOID context);

  KEVENT back_{};
  PIRP irp_ = nullptr;  ///< null if the kernel had none
  HostFile* const keptFile_;
};

/// An application's opening of a device. Passive level; from several threads, but for the end.
class DeviceFile {
 public:
  /// Opens a device.
  ///
  /// @param device   any of its stack: the topmost driver is asked
  /// @param name     what follows the device's own name; the bytes may be anything
  /// @param related  the file that `name` is relative to; may be null
  /// @param file     is set on success only
  /// @return the driver's status, or STATUS_INSUFFICIENT_RESOURCES
  static NTSTATUS Open(PDEVICE_OBJECT device, std::u16string name, const DeviceFile* related,
                       std::unique_ptr<DeviceFile>& file);

  DeviceFile(const DeviceFile&) = delete;
  DeviceFile& operator=(const DeviceFile&) = delete;

  /// Lets the driver clean up, and closes the file once nobody refers to it, of whom requests that are
  /// still out are some. Files that are relative to it may outlive it.
  ~DeviceFile() noexcept(false);

  /// Sends a device control request and waits for its end.
  ///
  /// @param information  what the driver says of its answer, on success mostly bytes
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

/// Nobody can open the device from now on; returns once those who are at it have come to an end. As
/// the platform does it, a device is removed behind the openings that it was asked for before.
void CloseToOpenings(PDEVICE_OBJECT device);

/// Files that are open, or still referred to, in the calling thread's world.
[[nodiscard]] std::size_t OpenFileCount();

/// A file of this world that is still open or referred to; empty if none.
[[nodiscard]] std::string FindOpenFile(const Scheduler& world);

/// All files of a world that goes.
void ForgetFilesOfWorld(const Scheduler& world);

/// Sends a request of no file to the top of a device's stack and waits for its end: plug and play,
/// power.
/// @return its status; STATUS_NOT_SUPPORTED if no driver gave one
NTSTATUS SendAndWait(PDEVICE_OBJECT device, const IO_STACK_LOCATION& parameters);

/// ObfDereferenceObject() of a file object: the last reference closes the file.
/// @return references left
LONG DereferenceFileObject(PVOID object);

}  // namespace lidcam::host
