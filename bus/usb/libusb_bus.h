#pragma once

#include <libusb.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "bus/enumeration.h"
#include "bus/usb/frame_clock.h"
#include "bus/usb/isochronous_ring.h"
#include "bus/usb/pending_transfer.h"
#include "bus/usb/usb_host.h"
#include "bus/usb_bus.h"

namespace lidcam::bus {

/// An opened device with its interfaces claimed.
///
/// Aborts and unplugging only set a flag: all calls of libusb are made by the request's thread. A
/// device that is closed while libusb keeps one of its transfers stays open until the program ends.
class LibusbBus final : public UsbBus {
 public:
  /// @param device   closed by this bus
  /// @param session  what the device's events need; kept as long as the bus
  /// Throws UsbError if an interface can't be claimed or the descriptors can't be read.
  LibusbBus(libusb_device_handle* device, std::shared_ptr<PortState> port,
            std::shared_ptr<void> session, UsbPortOptions options);
  ~LibusbBus() override;

  ControlResult ControlTransfer(const SetupPacket& setup, std::span<std::uint8_t> data) override;
  UsbStatus SelectSetting(std::uint8_t interface, std::uint8_t alternateSetting) override;
  IsochronousResult ReadIsochronous(std::uint8_t endpoint, std::span<std::uint8_t> buffer,
                                    std::span<IsochronousPacket> packets) override;
  [[nodiscard]] bool HasReceived(std::uint8_t endpoint, std::size_t packets) override;
  void Abort(std::uint8_t endpoint) override;
  [[nodiscard]] std::uint32_t FrameNumber() override;
  void Unplug() override;

 private:
  void Claim();
  void ClaimInterface(int interface);
  void ReleaseInterfaces();
  void Close();
  void LoadSettings();
  UsbStatus SelectConfiguration(int configuration);
  UsbStatus ClearHalt(std::uint8_t endpoint);
  ControlResult Send(const SetupPacket& setup, std::span<std::uint8_t> data);
  UsbStatus AwaitControl();
  UsbStatus SetInterface(int interface, int setting);
  UsbStatus Reserve(const AlternateSetting& setting);
  void EndReading();
  [[nodiscard]] const AlternateSetting* FindSetting(int interface, int setting) const;
  [[nodiscard]] bool IsGone() const;
  UsbStatus NoteStatus(UsbStatus status);
  void TellRefusal(const AlternateSetting& setting, SubmitFailure failure);
  void Tell(UsbNotice notice, const std::string& line) const;

  libusb_device_handle* const device_;
  const std::shared_ptr<PortState> port_;
  const std::shared_ptr<void> session_;
  const UsbPortOptions options_;
  std::vector<int> claimed_;
  std::vector<AlternateSetting> settings_;

  std::shared_ptr<PendingTransfer> control_;
  /// libusb has a transfer that it never completed. Set by requests and by reads.
  std::atomic<bool> hasLost_ = false;

  FrameClock clock_;      ///< under the port's mutex
  std::mutex readMutex_;  ///< held over a read, and by the calls that stop the transfers
  std::unique_ptr<IsochronousRing> ring_;
  bool isNarrowed_ = false;  ///< the current walk was refused once, and the user has been told
  bool isMemoryTold_ = false;
};

}  // namespace lidcam::bus
