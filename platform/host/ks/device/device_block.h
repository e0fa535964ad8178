#pragma once

// The device of the class's own requests: who uses it, and until when it lives.

#include "platform/host/ks/device/ks_objects.h"
#include "platform/host/ks/objects/class_mutex.h"

namespace lidcam::host {

/// What a functional device object of a device with plug and play has as its extension. That of one
/// without has the address only.
struct DeviceExtension {
  DeviceBlock* Block;
  DeviceBlock Own;
};

inline DeviceBlock& BlockOf(PDEVICE_OBJECT functionalDevice) {
  return **static_cast<DeviceBlock**>(functionalDevice->DeviceExtension);
}

// The class's own short holds, during which it calls no driver.
inline void AcquireMutex(DeviceBlock& device) {
  AcquireMutex(device.Device.Mutex);
}
inline void ReleaseMutex(DeviceBlock& device) {
  ReleaseMutex(device.Device.Mutex);
}

/// The device entries of the driver; those it doesn't have are null.
const KSDEVICE_DISPATCH& EntriesOf(const DeviceBlock& device);

/// Keeps the device for an open file, or for a request while it is worked on.
void HoldDevice(DeviceBlock& device);
/// The last user of a removed device deletes it. Passive level.
void LetGoOfDevice(DeviceBlock& device);

/// A request's work begins. Its end lets a removal go on that waits for it, and may delete the device:
/// nothing of the device is touched after it.
void BeginRequest(DeviceBlock& device);
void EndRequest(DeviceBlock& device);
/// Of the thread that removes the device: waits until no request is worked on any more.
void WaitForRequests(DeviceBlock& device);

inline bool IsSet(volatile LONG& flag) {
  return InterlockedCompareExchange(&flag, 0, 0) != 0;
}

/// Sends a request to the device below and waits until that has completed it.
/// @return its status; the request is the caller's again, to be completed
NTSTATUS ForwardAndWait(DeviceBlock& device, PIRP irp);
/// Sends a request to the device below, which completes it.
NTSTATUS Forward(DeviceBlock& device, PIRP irp);

}  // namespace lidcam::host
