#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "platform/kernel.h"

namespace lidcam::host {

/// An open endpoint of the configured device.
struct UsbPipe {
  USBD_PIPE_HANDLE Handle = nullptr;  ///< never reused for another pipe of the same device
  std::uint8_t Interface = 0;
  std::uint8_t Endpoint = 0;  ///< address with the direction bit
  USBD_PIPE_TYPE Type = UsbdPipeTypeControl;
  ULONG BytesPerMicroframe = 0;
  LONGLONG NextFrame = 0;   ///< of the frame clock: the first after all queued transfers
  bool HasStalled = false;  ///< an isochronous endpoint that showed a stall must be cleared
};

/// The setting of one interface, as requested by a driver and described by a descriptor.
struct UsbInterfaceSetting {
  USB_INTERFACE_DESCRIPTOR Descriptor{};
  std::vector<USB_ENDPOINT_DESCRIPTOR> Endpoints;
};

/// A driver's configuration: the selected descriptor, and the open pipes. Not synchronized: under
/// the stack's lock.
class UsbConfiguration {
 public:
  struct FoundSetting {
    USBD_STATUS Status = USBD_STATUS_SUCCESS;
    UsbInterfaceSetting Setting{};
  };

  /// Looks up the setting that a URB requests.
  ///
  /// @param wanted  the URB's interface, `room` bytes long
  /// @return the setting, or why it can't be selected
  [[nodiscard]] static FoundSetting FindSetting(const std::vector<std::uint8_t>& descriptor,
                                                const USBD_INTERFACE_INFORMATION& wanted,
                                                std::size_t room);

  /// Closes all pipes and forgets the configuration.
  void Clear();

  /// Takes a new configuration, without pipes yet.
  ///
  /// @return its handle
  USBD_CONFIGURATION_HANDLE Set(std::vector<std::uint8_t> descriptor);

  /// Closes the interface's pipes, opens those of `setting` and fills in their information.
  void Open(const UsbInterfaceSetting& setting, USBD_INTERFACE_INFORMATION& information);

  [[nodiscard]] UsbPipe* FindPipe(USBD_PIPE_HANDLE handle);
  [[nodiscard]] const std::vector<UsbPipe>& Pipes() const { return pipes_; }
  [[nodiscard]] USBD_CONFIGURATION_HANDLE Handle() const { return handle_; }
  [[nodiscard]] const std::vector<std::uint8_t>& Descriptor() const { return descriptor_; }

 private:
  [[nodiscard]] PVOID NewHandle();

  std::uintptr_t lastHandle_ = 0;
  USBD_CONFIGURATION_HANDLE handle_ = nullptr;
  std::vector<std::uint8_t> descriptor_;
  std::vector<UsbPipe> pipes_;
};

}  // namespace lidcam::host
