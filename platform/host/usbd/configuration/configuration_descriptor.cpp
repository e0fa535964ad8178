#include "platform/host/usbd/configuration/configuration_descriptor.h"

#include <cstring>

namespace lidcam::host {

std::size_t DescriptorLength(std::span<const std::uint8_t> bytes) {
  if (bytes.size() < sizeof(USB_COMMON_DESCRIPTOR)) return 0;
  const std::size_t length = bytes[0];
  return length < sizeof(USB_COMMON_DESCRIPTOR) || length > bytes.size() ? 0 : length;
}

std::vector<USB_ENDPOINT_DESCRIPTOR> EndpointsOf(std::span<const std::uint8_t> configuration,
                                                 const USB_INTERFACE_DESCRIPTOR& interface) {
  std::vector<USB_ENDPOINT_DESCRIPTOR> endpoints;
  const auto* const start = reinterpret_cast<const std::uint8_t*>(&interface);
  auto rest = configuration.subspan(static_cast<std::size_t>(start - configuration.data()));
  rest = rest.subspan(DescriptorLength(rest));
  while (endpoints.size() < interface.bNumEndpoints) {
    const std::size_t length = DescriptorLength(rest);
    if (length == 0 || rest[1] == USB_INTERFACE_DESCRIPTOR_TYPE) break;
    if (rest[1] == USB_ENDPOINT_DESCRIPTOR_TYPE && length >= sizeof(USB_ENDPOINT_DESCRIPTOR)) {
      USB_ENDPOINT_DESCRIPTOR& endpoint = endpoints.emplace_back();
      std::memcpy(&endpoint, rest.data(), sizeof(endpoint));
    }
    rest = rest.subspan(length);
  }
  return endpoints;
}

}  // namespace lidcam::host
