#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "serve/device/camera_supply.h"
#include "serve/sockets/session.h"
#include "serve/usbip/messages.h"
#include "serve/usbip/pending_requests.h"

namespace lidcam::serve::usbip {

/// The one device that each client can import; each client gets a camera of its own.
inline constexpr DeviceName kCameraName{"/lidcam/1-1", "1-1", 1, 2};

/// Limits of the memory that one client can make the server use.
inline constexpr std::size_t kMostPackets = 1024;  ///< of a transfer, as Linux has it
inline constexpr std::size_t kMostPendingRequests = 1024;
inline constexpr std::size_t kMostKeptBytes = std::size_t{4} * 1024 * 1024;
inline constexpr std::uint32_t kMostOutBytes = 65535;  ///< the longest data stage
inline constexpr std::uint32_t kMostInBytes = 4 * 1024 * 1024;

/// One USB/IP connection: a device list, or an import and then the requests to the camera.
///
/// Memory is bounded: the connection of a client that exceeds a limit, or violates the
/// protocol, ends (ProtocolError).
class UsbipSession final : public Session {
 public:
  using Log = std::function<void(const std::string& line)>;

  /// @param supply  outlives the session
  /// @param log     gets a line when a camera is attached
  UsbipSession(CameraSupply& supply, Time start, Log log);

  void Receive(std::span<const std::uint8_t> bytes) override;
  [[nodiscard]] std::size_t InputRoom() const override;
  void Advance(Time now) override;
  [[nodiscard]] std::optional<Time> Deadline() const override;

 private:
  [[nodiscard]] bool HasOutputRoom() { return !IsOver() && Output().size() < kOutputEnough; }
  /// Each takes one message from the input's front. @return false if it is not whole yet
  bool TakeOperation();
  bool TakeRequest(Time now);
  void Import(std::span<const std::uint8_t> busId);
  [[nodiscard]] std::size_t SizeOf(const RequestHeader& header) const;
  void Submit(Request request, Time now);
  void SubmitControl(Request request);
  void Unlink(const RequestHeader& header);
  void AnswerStalled(const Request& request);
  [[nodiscard]] std::span<const std::uint8_t> Unread() const;

  static constexpr std::size_t kOutputEnough = std::size_t{256} * 1024;

  CameraSupply& supply_;
  const Time start_;
  const Log log_;
  std::vector<std::uint8_t> input_;
  std::size_t read_ = 0;  ///< of the input
  std::unique_ptr<CameraSupply::Lease> camera_;
  std::optional<PendingRequests> pending_;  ///< once the camera is imported
};

}  // namespace lidcam::serve::usbip
