#pragma once

#include "platform/kernel.h"
#include "tests/on_wine/ks/pin_connection.h"

namespace lidcam::wine {

/// A program's file of a device's interface, which is a filter: the second context of the file
/// object, which the class does not use. The test double's own files have none.
struct FilterFile {
  LIST_ENTRY Link;
  PDEVICE_OBJECT Device;
  FILE_OBJECT* File;
  PinConnection* Pin;  ///< null while it isn't open
};

/// Held while the files are used. A thread may acquire it again.
class FilterFilesLock {
 public:
  FilterFilesLock();
  FilterFilesLock(const FilterFilesLock&) = delete;
  FilterFilesLock& operator=(const FilterFilesLock&) = delete;
  ~FilterFilesLock();
};

/// Called before anything else here.
void InitializeFilterFiles();

// Unlike the platform, this kernel removes a device while it has open files and requests in flight:
// requests check under the lock whether their device is still served.

/// Called before a device starts.
void ServeDevice(PDEVICE_OBJECT functionalDevice);
/// Called before a device is removed: closes its files, because this kernel no longer sends
/// requests for them, not even the close.
void EndService(PDEVICE_OBJECT functionalDevice);
/// Under the lock. A request for a device that isn't served must not touch it.
bool IsServed(PDEVICE_OBJECT functionalDevice);

/// The record of a request's file; null for a file of the test double's own, or a closed one.
FilterFile* FilterFileOf(PIRP irp);

// The class's own routines, and additionally the record, the pin and the clock of a file. Passive
// level.

NTSTATUS NTAPI CreateFilterFile(PDEVICE_OBJECT functionalDevice, PIRP irp);
NTSTATUS NTAPI CleanUpFilterFile(PDEVICE_OBJECT functionalDevice, PIRP irp);
NTSTATUS NTAPI CloseFilterFile(PDEVICE_OBJECT functionalDevice, PIRP irp);

}  // namespace lidcam::wine
