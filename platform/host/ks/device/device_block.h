#pragma once

// The device as the class's own requests see it: its users, and its lifetime.

#include "platform/host/ks/device/ks_objects.h"
#include "platform/host/ks/objects/class_mutex.h"

namespace lidcam::host {

/// The device extension of a functional device object with plug and play. Without plug and play it
/// is the address only.
struct DeviceExtension {
  DeviceBlock* Block;
  DeviceBlock Own;
};

inline DeviceBlock& BlockOf(PDEVICE_OBJECT functionalDevice) {
  return **static_cast<DeviceBlock**>(functionalDevice->DeviceExtension);
}

// Short holds by the class itself, during which it calls no driver.
inline void AcquireMutex(DeviceBlock& device) {
  AcquireMutex(device.Device.Mutex);
}
inline void ReleaseMutex(DeviceBlock& device) {
  ReleaseMutex(device.Device.Mutex);
}

/// The device entries of the driver; missing ones are null.
const KSDEVICE_DISPATCH& EntriesOf(const DeviceBlock& device);

/// Takes a reference for an open file, or for a request in progress.
void HoldDevice(DeviceBlock& device);
/// Releases a reference; the last one deletes a removed device. Passive level.
void LetGoOfDevice(DeviceBlock& device);

/// Begins and ends the work on a request. The end lets a waiting removal continue, and may delete
/// the device: the caller must not touch it afterwards.
void BeginRequest(DeviceBlock& device);
void EndRequest(DeviceBlock& device);
/// Called by the thread that removes the device: waits until no request is in progress.
void WaitForRequests(DeviceBlock& device);

inline bool IsSet(volatile LONG& flag) {
  return InterlockedCompareExchange(&flag, 0, 0) != 0;
}

/// Sends a request to the device below and waits for its completion.
/// @return its status; the caller owns the request again and completes it
NTSTATUS ForwardAndWait(DeviceBlock& device, PIRP irp);
/// Sends a request to the device below, which completes it.
NTSTATUS Forward(DeviceBlock& device, PIRP irp);

}  // namespace lidcam::host
