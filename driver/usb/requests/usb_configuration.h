#pragma once

#include <cstdint>

#include "driver/usb/records/usb_records.h"
#include "platform/kernel.h"

namespace lidcam {

/// Reads the device's descriptors and configures it: device descriptor, configuration descriptor,
/// select configuration. Recoveries can be scheduled from then on.
///
/// @return the status of the step that failed
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS ReadDeviceDescriptors(UsbDeviceRecord& device);

/// Reads the whole configuration descriptor, however long, and selects the configuration. Sets
/// LongConfigDescriptor, even if the request failed.
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS ReadConfiguration(UsbDeviceRecord& device);

/// Selects the configuration with all its interfaces in their first settings, and keeps handle,
/// interface information and pipe table. The latter two may stay null without memory; that is not
/// reported.
///
/// @param configurationDescriptor  wTotalLength bytes
/// @return STATUS_INSUFFICIENT_RESOURCES for every failure
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS SelectConfiguration(UsbDeviceRecord& device,
                             PUSB_CONFIGURATION_DESCRIPTOR configurationDescriptor);

/// Selects the alternate setting in InterfaceInformation, and updates it on success.
///
/// @return the request's status; STATUS_INSUFFICIENT_RESOURCES without memory or without an
///         InterfaceInformation. A status in the URB alone is not reported.
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS SelectInterfaceSetting(UsbDeviceRecord& device);

/// Writes `setting` into InterfaceInformation and selects it. The byte keeps its value on refusal.
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS SelectAlternateSetting(UsbDeviceRecord& device, std::uint8_t setting);

/// Takes over a video format and gives the interface the widest setting that the bus has room for,
/// from the widest down to 1. Nothing is sent if it has the widest already.
///
/// @return the last selection's status; STATUS_INSUFFICIENT_RESOURCES without a raw buffer size
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS ChooseStreamFormat(UsbStreamRecord& stream, const KS_VIDEOINFOHEADER& videoInfo);

/// Stores the camera core's capabilities in the record.
void StoreCapabilities(UsbDeviceRecord& device, const CameraCapabilities& capabilities);

}  // namespace lidcam
