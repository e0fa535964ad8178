#pragma once

#include "platform/kernel.h"
#include "tests/on_wine/ks/pin_connection.h"

namespace lidcam::wine {

/// A program's file of a device's interface, which is a filter: the second context of the file object,
/// for which the class has no use. The stand-in's own files have none.
struct FilterFile {
  LIST_ENTRY Link;
  PDEVICE_OBJECT Device;
  FILE_OBJECT* File;
  PinConnection* Pin;  ///< null while it isn't open
};

/// While the files are looked at and worked with. A thread may take it again.
class FilterFilesLock {
 public:
  FilterFilesLock();
  FilterFilesLock(const FilterFilesLock&) = delete;
  FilterFilesLock& operator=(const FilterFilesLock&) = delete;
  ~FilterFilesLock();
};

/// Before anything else here.
void InitializeFilterFiles();

// This kernel removes a device while files of it are open and requests for them are on their way, which
// the platform doesn't: requests look under the lock whether their device is still served.

/// Of a device that is about to start.
void ServeDevice(PDEVICE_OBJECT functionalDevice);
/// Of a device that is about to be removed: closes its files, for which this kernel lets no request
/// through any more, not even their closing.
void EndService(PDEVICE_OBJECT functionalDevice);
/// Under the lock. A request for a device that isn't served must not touch it.
bool IsServed(PDEVICE_OBJECT functionalDevice);

/// The record of a request's file; null for a file of the stand-in's own, or one that is closed.
FilterFile* FilterFileOf(PIRP irp);

// The class's own routines, with the record, the pin and the clock that belong to a file. Passive level.

NTSTATUS NTAPI CreateFilterFile(PDEVICE_OBJECT functionalDevice, PIRP irp);
NTSTATUS NTAPI CleanUpFilterFile(PDEVICE_OBJECT functionalDevice, PIRP irp);
NTSTATUS NTAPI CloseFilterFile(PDEVICE_OBJECT functionalDevice, PIRP irp);

}  // namespace lidcam::wine
