#pragma once

#include "platform/host/ks/device/ks_objects.h"

namespace lidcam::host {

/// The device has started, or stopped: applications are told of its filters, or not any more.
void EnableFactories(DeviceBlock& device, BOOLEAN isEnabled);

enum class FactoriesDropped {
  OfAStoppedDevice,  ///< those made with KSCREATE_ITEM_FREEONSTOP
  All
};

/// Factories give no filters any more; each goes with the last filter that it gave. Passive level, no
/// mutex held.
void DropFactories(DeviceBlock& device, FactoriesDropped which);

/// Counts a filter in to the factory that a file's name tells, the oldest for an empty name.
/// Reference strings come back from applications in lower case, so that case doesn't count.
///
/// @return STATUS_OBJECT_NAME_NOT_FOUND, or STATUS_DELETE_PENDING for a device that is gone
NTSTATUS FindFactory(DeviceBlock& device, const UNICODE_STRING& name, FilterFactoryBlock*& factory);

/// Counts the filter out. Passive level, no mutex held.
void ReleaseFactory(FilterFactoryBlock& factory);

}  // namespace lidcam::host
