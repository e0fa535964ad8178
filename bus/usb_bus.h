#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "bus/usb_types.h"

namespace lidcam::bus {

/// How a request on the bus ended.
enum class UsbStatus {
  Ok,
  Stalled,       ///< the device refused the request
  NoBandwidth,   ///< the bus has no room for the alternate setting
  Disconnected,  ///< the device is gone
  TimedOut,      ///< no answer within the host's limit
  Aborted,       ///< cancelled by the host
  EndOfCapture,  ///< the recorded traffic has ended
  NotRecorded,   ///< the capture doesn't contain the request
  Silent,        ///< the device never answers: the caller must cancel the request
  Failed,        ///< any other failure on the wire
};

[[nodiscard]] std::string_view ToString(UsbStatus status);

struct ControlResult {
  UsbStatus Status = UsbStatus::Ok;
  std::uint32_t Transferred = 0;  ///< bytes transferred in the data stage

  friend bool operator==(const ControlResult&, const ControlResult&) = default;
};

/// The packet of one microframe of an isochronous read. Its data are at `Offset` in the read's
/// buffer; a microframe without data has length 0.
struct IsochronousPacket {
  std::uint32_t Offset = 0;
  std::uint32_t Length = 0;
  UsbStatus Status = UsbStatus::Ok;

  friend bool operator==(const IsochronousPacket&, const IsochronousPacket&) = default;
};

struct IsochronousResult {
  UsbStatus Status = UsbStatus::Ok;
  std::uint32_t StartMicroframe = 0;  ///< bus time of the first packet

  friend bool operator==(const IsochronousResult&, const IsochronousResult&) = default;
};

/// One USB device, as seen by its host controller.
///
/// The implementations are a simulated camera, a recorded capture and, with hardware, a real port.
/// All calls block until the request is completed. Control requests and isochronous reads may come
/// from two threads at once; two requests of one kind may not.
class UsbBus {
 public:
  UsbBus() = default;
  UsbBus(const UsbBus&) = delete;
  UsbBus& operator=(const UsbBus&) = delete;
  virtual ~UsbBus() = default;

  /// Runs one control transfer on endpoint 0.
  ///
  /// @param setup  any request except SET_INTERFACE: see SelectSetting()
  /// @param data   the data stage; at least `setup.Length` bytes. Read or written by direction.
  virtual ControlResult ControlTransfer(const SetupPacket& setup, std::span<std::uint8_t> data) = 0;

  /// Selects an alternate setting of an interface, with the SET_INTERFACE request and the bandwidth
  /// reservation.
  virtual UsbStatus SelectSetting(std::uint8_t interface, std::uint8_t alternateSetting) = 0;

  /// Reads one packet per microframe from an isochronous IN endpoint, in bus order.
  ///
  /// @param endpoint  endpoint address, bit 7 set
  /// @param buffer    cut evenly: packet i has `buffer.size() / packets.size()` bytes at
  ///                  i times that size. That share must hold the endpoint's bytes per microframe.
  /// @param packets   filled for every microframe, also on a status other than Ok (length 0 then)
  virtual IsochronousResult ReadIsochronous(std::uint8_t endpoint, std::span<std::uint8_t> buffer,
                                            std::span<IsochronousPacket> packets) = 0;

  /// Whether a read of so many packets, begun after their time on the bus, ends without waiting for the device: always
  /// where packets are made as they are read. On the thread that reads.
  [[nodiscard]] virtual bool HasReceived(std::uint8_t /*endpoint*/, std::size_t /*packets*/) {
    return true;
  }

  /// Ends the endpoint's read in progress with UsbStatus::Aborted. Any thread.
  virtual void Abort(std::uint8_t endpoint) = 0;

  /// Number of the current 1 ms bus frame.
  [[nodiscard]] virtual std::uint32_t FrameNumber() = 0;

  /// Unplugs the device: from here on every request ends with UsbStatus::Disconnected.
  virtual void Unplug() = 0;
};

}  // namespace lidcam::bus
