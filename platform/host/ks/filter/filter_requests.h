#pragma once

#include "platform/host/ks/device/ks_objects.h"

namespace lidcam::host {

/// Opens a filter for the request's file object. The driver's Create runs with no mutex held.
/// @param reference  of the factory; empty for the oldest
NTSTATUS CreateFilter(DeviceBlock& device, PIRP irp, const UNICODE_STRING& reference);

/// Calls the driver's Close, and frees the filter unless a pin of it is still open.
void CloseFilter(FilterBlock& filter, PIRP irp);

/// Answers a control request to a filter. The driver's handlers run under the control mutex.
NTSTATUS DispatchFilterControl(FilterBlock& filter, PIRP irp);

}  // namespace lidcam::host
