#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "bus/capture/records/usb_record.h"

namespace lidcam::bus {

/// Whether the record carries the payload of its transfer: the completion of an IN transfer, the
/// submission of an OUT transfer.
[[nodiscard]] bool CarriesData(const UsbRecord& record);

/// Checks the packets of a record that carries data against its data and sets their `Captured`.
///
/// @param originalDataLength  bytes of data before the capture system cut the record
/// Throws CaptureError if a packet ends beyond that.
void PlacePackets(UsbRecord& record, std::size_t originalDataLength);

/// Returns the data behind a header, of the announced length or less.
///
/// @param originalLength  bytes behind the header before the capture system cut the record
/// Throws CaptureError if the announced length is more than that.
[[nodiscard]] std::span<const std::uint8_t> AnnouncedData(std::span<const std::uint8_t> rest,
                                                          std::size_t originalLength,
                                                          std::uint32_t announced);

}  // namespace lidcam::bus
