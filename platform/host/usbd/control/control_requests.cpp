#include "platform/host/usbd/control/control_requests.h"

#include <algorithm>
#include <span>

#include "platform/host/usbd/configuration/configuration_descriptor.h"
#include "platform/host/usbd/requests/usb_status.h"

namespace lidcam::host {
namespace {

constexpr std::uint8_t kDeviceIn = 0x80;
constexpr std::uint8_t kDeviceOut = 0x00;
constexpr std::uint8_t kEndpointOut = 0x02;
constexpr std::uint8_t kVendorDevice = 0x40;
constexpr std::uint8_t kClearFeature = 1;
constexpr std::uint8_t kGetDescriptor = 6;
constexpr std::uint8_t kSetConfiguration = 9;
constexpr std::uint16_t kEndpointHalt = 0;
constexpr int kAllInterfaces = -1;

std::span<std::uint8_t> DataStage(PVOID buffer, ULONG length) {
  return {static_cast<std::uint8_t*>(buffer), length};
}

}  // namespace

USBD_STATUS ControlRequests::Execute(URB& urb) {
  switch (urb.UrbHeader.Function) {
    case URB_FUNCTION_GET_DESCRIPTOR_FROM_DEVICE:
      return GetDescriptor(urb.UrbControlDescriptorRequest);
    case URB_FUNCTION_VENDOR_DEVICE:
      return SendVendorRequest(urb.UrbControlVendorClassRequest);
    case URB_FUNCTION_SELECT_CONFIGURATION:
      return SelectConfiguration(urb.UrbSelectConfiguration);
    case URB_FUNCTION_SELECT_INTERFACE:
      return SelectInterface(urb.UrbSelectInterface);
    case URB_FUNCTION_RESET_PIPE:
      return ResetPipe(urb.UrbPipeRequest);
    default:
      return USBD_STATUS_INVALID_URB_FUNCTION;
  }
}

USBD_STATUS ControlRequests::SendSimple(std::uint8_t requestType, std::uint8_t request,
                                        std::uint16_t value, std::uint16_t index) {
  return FromBus(device_.Bus.ControlTransfer({requestType, request, value, index, 0}, {}).Status);
}

USBD_STATUS ControlRequests::GetDescriptor(_URB_CONTROL_DESCRIPTOR_REQUEST& urb) {
  const ULONG length = urb.TransferBufferLength;
  const bus::ControlResult result = device_.Bus.ControlTransfer(
      {kDeviceIn, kGetDescriptor, static_cast<std::uint16_t>(urb.DescriptorType << 8 | urb.Index),
       urb.LanguageId, static_cast<std::uint16_t>(length)},
      DataStage(urb.TransferBuffer, length));
  if (result.Status == bus::UsbStatus::Silent) return USBD_STATUS_PENDING;
  urb.TransferBufferLength = std::min<ULONG>(result.Transferred, length);
  return FromBus(result.Status);
}

USBD_STATUS ControlRequests::SendVendorRequest(_URB_CONTROL_VENDOR_OR_CLASS_REQUEST& urb) {
  const ULONG length = urb.TransferBufferLength;
  const bool isIn = (urb.TransferFlags & USBD_TRANSFER_DIRECTION) == USBD_TRANSFER_DIRECTION_IN;
  const auto requestType = static_cast<std::uint8_t>(kVendorDevice | (isIn ? kDeviceIn : 0));
  const bus::ControlResult result = device_.Bus.ControlTransfer(
      {requestType, urb.Request, urb.Value, urb.Index, static_cast<std::uint16_t>(length)},
      DataStage(urb.TransferBuffer, length));
  if (result.Status == bus::UsbStatus::Silent) return USBD_STATUS_PENDING;
  urb.TransferBufferLength = std::min<ULONG>(result.Transferred, length);
  const bool isShort = isIn && urb.TransferBufferLength < length &&
                       (urb.TransferFlags & USBD_SHORT_TRANSFER_OK) == 0;
  if (result.Status == bus::UsbStatus::Ok && isShort) return USBD_STATUS_ERROR_SHORT_TRANSFER;
  return FromBus(result.Status);
}

void ControlRequests::AbortPipes(int interface) {
  std::vector<std::uint8_t> endpoints;
  {
    const SpinLockGuard guard(device_.Lock);
    for (const UsbPipe& pipe : device_.Configuration.Pipes()) {
      if (interface != kAllInterfaces && pipe.Interface != interface) continue;
      if (schedule_.AbortPipe(pipe.Handle)) endpoints.push_back(pipe.Endpoint);
    }
  }
  for (const std::uint8_t endpoint : endpoints) device_.Bus.Abort(endpoint);
  device_.Wake();
}

USBD_STATUS ControlRequests::Unconfigure() {
  const USBD_STATUS status = SendSimple(kDeviceOut, kSetConfiguration, 0, 0);
  if (status != USBD_STATUS_SUCCESS) return status;
  AbortPipes(kAllInterfaces);
  const SpinLockGuard guard(device_.Lock);
  device_.Configuration.Clear();
  return USBD_STATUS_SUCCESS;
}

USBD_STATUS ControlRequests::SelectConfiguration(_URB_SELECT_CONFIGURATION& urb) {
  if (urb.ConfigurationDescriptor == nullptr) return Unconfigure();
  const USB_CONFIGURATION_DESCRIPTOR& chosen = *urb.ConfigurationDescriptor;
  if (chosen.bDescriptorType != USB_CONFIGURATION_DESCRIPTOR_TYPE ||
      chosen.wTotalLength < sizeof(chosen)) {
    return USBD_STATUS_INAVLID_CONFIGURATION_DESCRIPTOR;
  }
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&chosen);
  std::vector<std::uint8_t> descriptor(bytes, bytes + chosen.wTotalLength);

  std::vector<UsbInterfaceSetting> settings;
  std::size_t offset = offsetof(_URB_SELECT_CONFIGURATION, Interface);
  while (offset + InterfaceInformationSize(0) <= urb.Hdr.Length) {
    const auto& wanted = *reinterpret_cast<const USBD_INTERFACE_INFORMATION*>(
        reinterpret_cast<const std::uint8_t*>(&urb) + offset);
    auto found = UsbConfiguration::FindSetting(descriptor, wanted, urb.Hdr.Length - offset);
    if (found.Status != USBD_STATUS_SUCCESS) return found.Status;
    settings.push_back(std::move(found.Setting));
    offset += wanted.Length;
  }

  const USBD_STATUS status =
      SendSimple(kDeviceOut, kSetConfiguration, chosen.bConfigurationValue, 0);
  if (status == USBD_STATUS_STALL_PID) return USBD_STATUS_SET_CONFIG_FAILED;
  if (status != USBD_STATUS_SUCCESS) return status;
  AbortPipes(kAllInterfaces);
  {
    const SpinLockGuard guard(device_.Lock);
    urb.ConfigurationHandle = device_.Configuration.Set(std::move(descriptor));
  }
  return OpenInterfaces(settings, urb);
}

USBD_STATUS ControlRequests::OpenInterfaces(const std::vector<UsbInterfaceSetting>& settings,
                                            _URB_SELECT_CONFIGURATION& urb) {
  auto* place = reinterpret_cast<std::uint8_t*>(&urb.Interface);
  for (const UsbInterfaceSetting& setting : settings) {
    const USB_INTERFACE_DESCRIPTOR& descriptor = setting.Descriptor;
    // A configured device has setting 0 of every interface selected.
    if (descriptor.bAlternateSetting != 0) {
      const USBD_STATUS status = FromBus(
          device_.Bus.SelectSetting(descriptor.bInterfaceNumber, descriptor.bAlternateSetting));
      if (status != USBD_STATUS_SUCCESS) return status;
    }
    auto& information = *reinterpret_cast<USBD_INTERFACE_INFORMATION*>(place);
    const SpinLockGuard guard(device_.Lock);
    device_.Configuration.Open(setting, information);
    place += information.Length;
  }
  return USBD_STATUS_SUCCESS;
}

USBD_STATUS ControlRequests::SelectInterface(_URB_SELECT_INTERFACE& urb) {
  std::vector<std::uint8_t> descriptor;
  {
    const SpinLockGuard guard(device_.Lock);
    if (urb.ConfigurationHandle == nullptr ||
        urb.ConfigurationHandle != device_.Configuration.Handle()) {
      return USBD_STATUS_INVALID_PARAMETER;
    }
    descriptor = device_.Configuration.Descriptor();
  }
  // Some drivers leave the URB's own length unset: the interface's length is used.
  const auto found = UsbConfiguration::FindSetting(descriptor, urb.Interface, urb.Interface.Length);
  if (found.Status != USBD_STATUS_SUCCESS) return found.Status;
  const USB_INTERFACE_DESCRIPTOR& wanted = found.Setting.Descriptor;
  const USBD_STATUS status =
      FromBus(device_.Bus.SelectSetting(wanted.bInterfaceNumber, wanted.bAlternateSetting));
  if (status != USBD_STATUS_SUCCESS) return status;
  AbortPipes(wanted.bInterfaceNumber);
  const SpinLockGuard guard(device_.Lock);
  device_.Configuration.Open(found.Setting, urb.Interface);
  return USBD_STATUS_SUCCESS;
}

USBD_STATUS ControlRequests::ResetPipe(_URB_PIPE_REQUEST& urb) {
  std::uint8_t endpoint = 0;
  bool canBeHalted = false;
  {
    const SpinLockGuard guard(device_.Lock);
    const UsbPipe* const pipe = device_.Configuration.FindPipe(urb.PipeHandle);
    if (pipe == nullptr) return USBD_STATUS_INVALID_PIPE_HANDLE;
    if (schedule_.HasTransfers(pipe->Handle)) return USBD_STATUS_ERROR_BUSY;
    endpoint = pipe->Endpoint;
    canBeHalted = pipe->Type != UsbdPipeTypeIsochronous || pipe->HasStalled;
  }
  if (canBeHalted) {
    const USBD_STATUS status = SendSimple(kEndpointOut, kClearFeature, kEndpointHalt, endpoint);
    if (status != USBD_STATUS_SUCCESS) return status;
  }
  const SpinLockGuard guard(device_.Lock);
  if (UsbPipe* const pipe = device_.Configuration.FindPipe(urb.PipeHandle)) {
    pipe->HasStalled = false;
    pipe->NextFrame = 0;
  }
  return USBD_STATUS_SUCCESS;
}

}  // namespace lidcam::host
