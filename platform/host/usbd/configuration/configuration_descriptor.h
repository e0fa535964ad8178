#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/kernel.h"

namespace lidcam::host {

/// Bytes of an interface's information with `pipes` pipes.
[[nodiscard]] constexpr std::size_t InterfaceInformationSize(std::size_t pipes) {
  return offsetof(USBD_INTERFACE_INFORMATION, Pipes) + pipes * sizeof(USBD_PIPE_INFORMATION);
}

/// Bytes of the descriptor at the front of `bytes`; 0 if none fits.
[[nodiscard]] std::size_t DescriptorLength(std::span<const std::uint8_t> bytes);

/// The endpoints that follow an interface descriptor in its configuration.
///
/// @param configuration  all bytes of the configuration
/// @param interface      within `configuration`
[[nodiscard]] std::vector<USB_ENDPOINT_DESCRIPTOR> EndpointsOf(
    std::span<const std::uint8_t> configuration, const USB_INTERFACE_DESCRIPTOR& interface);

}  // namespace lidcam::host
