// The platform's library functions that parse descriptors and build URBs, for kernels without them.

#include <cstring>
#include <span>

#include "platform/host/usbd/configuration/configuration_descriptor.h"
#include "platform/kernel.h"

namespace {

constexpr ULONG kPoolTag = 0x44425355;  // "USBD"

bool Fits(LONG wanted, UCHAR value) {
  return wanted == -1 || wanted == value;
}

}  // namespace

using namespace lidcam::host;

PUSB_INTERFACE_DESCRIPTOR USBD_ParseConfigurationDescriptorEx(
    PUSB_CONFIGURATION_DESCRIPTOR configuration, PVOID start, LONG interfaceNumber,
    LONG alternateSetting, LONG interfaceClass, LONG interfaceSubClass, LONG interfaceProtocol) {
  auto* const first = reinterpret_cast<std::uint8_t*>(configuration);
  auto* const from = static_cast<std::uint8_t*>(start);
  if (from < first || from > first + configuration->wTotalLength) return nullptr;
  std::span<std::uint8_t> rest(from, first + configuration->wTotalLength);
  while (const std::size_t length = DescriptorLength(rest)) {
    auto* const found = reinterpret_cast<PUSB_INTERFACE_DESCRIPTOR>(rest.data());
    if (found->bDescriptorType == USB_INTERFACE_DESCRIPTOR_TYPE &&
        length >= sizeof(USB_INTERFACE_DESCRIPTOR) &&
        Fits(interfaceNumber, found->bInterfaceNumber) &&
        Fits(alternateSetting, found->bAlternateSetting) &&
        Fits(interfaceClass, found->bInterfaceClass) &&
        Fits(interfaceSubClass, found->bInterfaceSubClass) &&
        Fits(interfaceProtocol, found->bInterfaceProtocol)) {
      return found;
    }
    rest = rest.subspan(length);
  }
  return nullptr;
}

PURB USBD_CreateConfigurationRequestEx(PUSB_CONFIGURATION_DESCRIPTOR configuration,
                                       PUSBD_INTERFACE_LIST_ENTRY list) {
  std::size_t length = offsetof(_URB_SELECT_CONFIGURATION, Interface);
  for (const auto* entry = list; entry->InterfaceDescriptor != nullptr; ++entry) {
    length += InterfaceInformationSize(entry->InterfaceDescriptor->bNumEndpoints);
  }
  if (length > UINT16_MAX) return nullptr;
  // Without interfaces there is still room for one: drivers look at the first.
  const std::size_t size =
      length < sizeof(_URB_SELECT_CONFIGURATION) ? sizeof(_URB_SELECT_CONFIGURATION) : length;
  auto* const urb = static_cast<URB*>(ExAllocatePoolWithTag(NonPagedPool, size, kPoolTag));
  if (urb == nullptr) return nullptr;
  std::memset(static_cast<void*>(urb), 0, size);

  _URB_SELECT_CONFIGURATION& request = urb->UrbSelectConfiguration;
  request.Hdr.Length = static_cast<USHORT>(length);
  request.Hdr.Function = URB_FUNCTION_SELECT_CONFIGURATION;
  request.ConfigurationDescriptor = configuration;
  auto* place = reinterpret_cast<std::uint8_t*>(&request.Interface);
  for (auto* entry = list; entry->InterfaceDescriptor != nullptr; ++entry) {
    const USB_INTERFACE_DESCRIPTOR& descriptor = *entry->InterfaceDescriptor;
    auto* const information = reinterpret_cast<PUSBD_INTERFACE_INFORMATION>(place);
    information->Length = static_cast<USHORT>(InterfaceInformationSize(descriptor.bNumEndpoints));
    information->InterfaceNumber = descriptor.bInterfaceNumber;
    information->AlternateSetting = descriptor.bAlternateSetting;
    information->NumberOfPipes = descriptor.bNumEndpoints;
    for (ULONG i = 0; i < information->NumberOfPipes; ++i) {
      information->Pipes[i].MaximumTransferSize = USBD_DEFAULT_MAXIMUM_TRANSFER_SIZE;
    }
    entry->Interface = information;
    place += information->Length;
  }
  return urb;
}
