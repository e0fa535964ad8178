#pragma once

#include "platform/host/ks/device/ks_objects.h"

namespace lidcam::host {

/// The device has started or stopped: its filters are announced to applications, or withdrawn.
void EnableFactories(DeviceBlock& device, BOOLEAN isEnabled);

enum class FactoriesDropped {
  OfAStoppedDevice,  ///< those made with KSCREATE_ITEM_FREEONSTOP
  All
};

/// Factories create no more filters; each is freed with its last filter. Passive level, no mutex
/// held.
void DropFactories(DeviceBlock& device, FactoriesDropped which);

/// Adds a filter to the count of the factory named by a file's name, or of the oldest factory for
/// an empty name. Applications return reference strings in lower case, so case is ignored.
///
/// @return STATUS_OBJECT_NAME_NOT_FOUND, or STATUS_DELETE_PENDING for a removed device
NTSTATUS FindFactory(DeviceBlock& device, const UNICODE_STRING& name, FilterFactoryBlock*& factory);

/// Subtracts a filter from the count. Passive level, no mutex held.
void ReleaseFactory(FilterFactoryBlock& factory);

}  // namespace lidcam::host
