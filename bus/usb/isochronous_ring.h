#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>

#include "base/adjacent_copies.h"
#include "bus/usb/frame_clock.h"
#include "bus/usb/pending_transfer.h"
#include "bus/usb_bus.h"

namespace lidcam::bus {

/// Why transfers could not be submitted, as far as libusb reports it.
enum class SubmitFailure {
  None,
  Gone,
  NoBandwidth,  ///< the host controller refuses the reservation
  NoMemory,     ///< the limit of usbfs is reached
  Unclear,      ///< libusb has one error for both
  Failed,
};

/// What an error of libusb_submit_transfer() means.
/// @param systemError  errno as the call left it
[[nodiscard]] SubmitFailure FailureOf(int error, int systemError);

/// The isochronous transfers of one endpoint, 64 ms of the bus in flight: the reading thread reads
/// each one and resubmits it. One thread at a time.
///
/// If the machine's clock, by which the reader runs, is slower than the bus's, unread transfers
/// accumulate. For a reader that is behind, empty microframes are skipped until it has caught up:
/// they have no data, so no picture is damaged.
class IsochronousRing {
 public:
  static constexpr std::uint32_t kTransfers = 16;
  static constexpr std::uint32_t kPackets = 32;

  /// @param packetSize  bytes per microframe of the endpoint in the setting in force
  /// @param clock       under the port's mutex
  /// Throws std::bad_alloc.
  IsochronousRing(libusb_device_handle* device, std::shared_ptr<PortState> port, FrameClock& clock,
                  std::uint8_t endpoint, std::uint32_t packetSize);
  IsochronousRing(const IsochronousRing&) = delete;
  IsochronousRing& operator=(const IsochronousRing&) = delete;
  /// As Stop().
  ~IsochronousRing();

  [[nodiscard]] std::uint8_t Endpoint() const { return endpoint_; }
  [[nodiscard]] std::uint32_t PacketSize() const { return packetSize_; }

  /// Sends one transfer and waits for it: a host controller that reserves bandwidth only then refuses it
  /// here.
  [[nodiscard]] SubmitFailure Try();

  /// Reads as UsbBus::ReadIsochronous() does; the first read starts the transfers.
  IsochronousResult Read(std::span<std::uint8_t> buffer, std::span<IsochronousPacket> packets);

  /// Whether the next read of so many packets finds them all.
  [[nodiscard]] bool HasReceived(std::size_t packets) const;

  /// Cancels all transfers, in bounded time. The next read starts them again.
  void Stop();

  /// How the last start went.
  [[nodiscard]] SubmitFailure LastFailure() const { return lastFailure_; }
  /// Transfers that libusb never completed: the device must not be closed.
  [[nodiscard]] bool HasLost() const { return lost_ != 0; }

 private:
  struct Place {
    std::size_t Count = 0;      ///< packets filled
    std::uint64_t Skipped = 0;  ///< empty microframes left out
  };

  void MakeTransfers();
  [[nodiscard]] PendingTransfer& Current() { return *transfers_[current_]; }
  [[nodiscard]] UsbStatus Start();
  [[nodiscard]] UsbStatus Open();
  [[nodiscard]] UsbStatus Await();
  void CopyPacket(std::span<std::uint8_t> share, IsochronousPacket& packet,
                  base::AdjacentCopies& copies);
  void Advance(base::AdjacentCopies& copies);
  [[nodiscard]] bool IsBehind() const;

  libusb_device_handle* const device_;
  const std::shared_ptr<PortState> port_;
  FrameClock& clock_;
  const std::uint8_t endpoint_;
  const std::uint32_t packetSize_;
  std::shared_ptr<std::uint8_t> memory_;
  std::array<std::shared_ptr<PendingTransfer>, kTransfers> transfers_{};

  bool isRunning_ = false;
  std::uint32_t active_ = 0;  ///< transfers that could be submitted
  std::uint32_t current_ = 0;
  std::uint32_t packet_ = 0;  ///< of the current transfer; those before have been read
  bool isOpen_ = false;       ///< the current transfer has completed and is being read
  bool isBehind_ = false;
  bool isTransferFailed_ = false;
  std::uint64_t microframe_ = 0;  ///< of the current transfer's first packet
  SubmitFailure lastFailure_ = SubmitFailure::None;
  std::size_t lost_ = 0;
};

}  // namespace lidcam::bus
