#include "platform/host/usbd/configuration/usb_configuration.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "bus/usb_types.h"
#include "platform/host/usbd/configuration/configuration_descriptor.h"

namespace lidcam::host {

UsbConfiguration::FoundSetting UsbConfiguration::FindSetting(
    const std::vector<std::uint8_t>& descriptor, const USBD_INTERFACE_INFORMATION& wanted,
    std::size_t room) {
  std::vector<std::uint8_t> bytes = descriptor;
  if (bytes.size() < sizeof(USB_CONFIGURATION_DESCRIPTOR)) {
    return {USBD_STATUS_INTERFACE_NOT_FOUND};
  }
  auto* const configuration = reinterpret_cast<PUSB_CONFIGURATION_DESCRIPTOR>(bytes.data());
  const USB_INTERFACE_DESCRIPTOR* const found = USBD_ParseConfigurationDescriptorEx(
      configuration, configuration, wanted.InterfaceNumber, wanted.AlternateSetting, -1, -1, -1);
  if (found == nullptr) return {USBD_STATUS_INTERFACE_NOT_FOUND};
  UsbInterfaceSetting setting{*found, EndpointsOf(bytes, *found)};
  const std::size_t needed = InterfaceInformationSize(setting.Endpoints.size());
  if (wanted.Length < needed || wanted.Length > room) return {USBD_STATUS_BUFFER_TOO_SMALL};
  return {USBD_STATUS_SUCCESS, std::move(setting)};
}

PVOID UsbConfiguration::NewHandle() {
  constexpr std::uintptr_t kHandleStep = 16;
  lastHandle_ += kHandleStep;
  return reinterpret_cast<PVOID>(lastHandle_);
}

void UsbConfiguration::Clear() {
  pipes_.clear();
  descriptor_.clear();
  handle_ = nullptr;
}

USBD_CONFIGURATION_HANDLE UsbConfiguration::Set(std::vector<std::uint8_t> descriptor) {
  pipes_.clear();
  descriptor_ = std::move(descriptor);
  handle_ = NewHandle();
  return handle_;
}

void UsbConfiguration::Open(const UsbInterfaceSetting& setting,
                            USBD_INTERFACE_INFORMATION& information) {
  const std::uint8_t interface = setting.Descriptor.bInterfaceNumber;
  std::erase_if(pipes_, [interface](const UsbPipe& pipe) { return pipe.Interface == interface; });
  information.Class = setting.Descriptor.bInterfaceClass;
  information.SubClass = setting.Descriptor.bInterfaceSubClass;
  information.Protocol = setting.Descriptor.bInterfaceProtocol;
  information.InterfaceHandle = NewHandle();
  information.NumberOfPipes = static_cast<ULONG>(setting.Endpoints.size());
  USBD_PIPE_INFORMATION* shown = information.Pipes;
  for (const USB_ENDPOINT_DESCRIPTOR& endpoint : setting.Endpoints) {
    const UsbPipe& pipe = pipes_.emplace_back(
        UsbPipe{.Handle = NewHandle(),
                .Interface = interface,
                .Endpoint = endpoint.bEndpointAddress,
                .Type = static_cast<USBD_PIPE_TYPE>(endpoint.bmAttributes & USB_ENDPOINT_TYPE_MASK),
                .BytesPerMicroframe = bus::BytesPerMicroframe(endpoint.wMaxPacketSize)});
    // The driver sets MaximumTransferSize and PipeFlags.
    shown->MaximumPacketSize = static_cast<USHORT>(pipe.BytesPerMicroframe);
    shown->EndpointAddress = pipe.Endpoint;
    shown->Interval = endpoint.bInterval;
    shown->PipeType = pipe.Type;
    shown->PipeHandle = pipe.Handle;
    ++shown;
  }
}

UsbPipe* UsbConfiguration::FindPipe(USBD_PIPE_HANDLE handle) {
  const auto found = std::find_if(pipes_.begin(), pipes_.end(),
                                  [handle](const UsbPipe& pipe) { return pipe.Handle == handle; });
  return found == pipes_.end() ? nullptr : &*found;
}

}  // namespace lidcam::host
