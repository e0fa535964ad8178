#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <vector>

#include "bus/usb_types.h"
#include "serve/device/control_queue.h"
#include "serve/device/served_camera.h"
#include "serve/usbip/messages.h"

namespace lidcam::serve::usbip {

/// A transfer as its client submitted it.
struct Request {
  RequestHeader Header;
  std::vector<std::uint8_t> OutData{};
  std::vector<PacketDescriptor> Packets{};

  [[nodiscard]] std::size_t KeptBytes() const {
    return OutData.size() + Packets.size() * sizeof(PacketDescriptor);
  }
};

/// The pending requests of one camera's client.
///
/// Control requests are answered in their order. A stream's transfers follow each other on the bus without
/// a gap, and each is answered once the time has passed that its packets take, however late it was
/// submitted. The camera's interrupt endpoint never sends data: its transfers pend.
class PendingRequests {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// @param camera  outlives this
  explicit PendingRequests(ServedCamera& camera) : camera_(camera) {}

  [[nodiscard]] std::size_t Count() const {
    return controls_.Count() + transfers_.size() + unanswered_.size();
  }
  /// Bytes that were sent with the requests and are kept.
  [[nodiscard]] std::size_t KeptBytes() const { return controls_.KeptBytes() + keptBytes_; }

  /// Takes a request for endpoint 0, of which `request.OutData` holds the whole data stage OUT.
  void AddControl(Request request);
  /// Takes a transfer for an isochronous endpoint IN, with at least one packet.
  void AddTransfer(Request request, Time now);
  /// Takes a transfer that never ends by itself.
  void AddUnanswered(std::uint32_t sequenceNumber) { unanswered_.push_back(sequenceNumber); }

  /// Cancels a request. @return whether it was pending
  bool Unlink(std::uint32_t sequenceNumber);

  /// Answers one request that is due, or marks one that a fault keeps from completing.
  /// @return false if there is none, or the camera is gone
  bool AnswerOne(Time now, std::vector<std::uint8_t>& output);

  [[nodiscard]] std::optional<Time> Deadline() const;

  /// Whether the camera was unplugged.
  [[nodiscard]] bool IsUnplugged() const { return isUnplugged_; }

 private:
  struct Transfer {
    Request Asked;
    Time Due;
  };

  bool UnlinkTransfer(std::uint32_t sequenceNumber);
  bool AnswerControl(Time now, std::vector<std::uint8_t>& output);
  bool AnswerTransfer(Time now, std::vector<std::uint8_t>& output);

  ServedCamera& camera_;
  ControlQueue<RequestHeader> controls_;
  std::deque<Transfer> transfers_;
  std::deque<std::uint32_t> unanswered_;
  std::size_t keptBytes_ = 0;  ///< with the transfers
  Time busTime_{};             ///< at which the last transfer's packets have passed
  bool isUnplugged_ = false;
};

/// The negative errno of Linux's USB stack for a status; 0 for Ok.
[[nodiscard]] std::int32_t ErrorNumber(bus::UsbStatus status);

}  // namespace lidcam::serve::usbip
