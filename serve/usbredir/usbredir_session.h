#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "serve/device/camera_supply.h"
#include "serve/device/control_queue.h"
#include "serve/sockets/session.h"

struct usbredirparser;

namespace lidcam::serve::usbredir {

/// Limits of the memory that one client can make the server use.
inline constexpr std::uint32_t kMostMessageBytes =
    80 * 1024;  ///< a control request and its data stage
inline constexpr std::size_t kMostPendingRequests = 1024;
inline constexpr std::size_t kMostKeptBytes = std::size_t{4} * 1024 * 1024;

/// One usbredir connection, on the side of the device: what qemu's usb-redir connects to.
///
/// The camera is plugged in when the client has sent hello. Once the client has started the stream,
/// packets are sent by the clock, eight each millisecond; while the client doesn't read them, bus
/// time stands still. The connection of a client that exceeds a limit, or violates the protocol,
/// ends (ProtocolError).
class UsbredirSession final : public Session {
 public:
  using Log = std::function<void(const std::string& line)>;

  /// @param supply  outlives the session
  /// @param log     gets a line when a camera is attached
  UsbredirSession(CameraSupply& supply, Time start, Log log);

  void Receive(std::span<const std::uint8_t> bytes) override;
  [[nodiscard]] std::size_t InputRoom() const override;
  void Advance(Time now) override;
  [[nodiscard]] std::optional<Time> Deadline() const override;

 private:
  friend struct Callbacks;

  enum class Kind : std::uint8_t {
    Control,
    SetConfiguration,
    GetConfiguration,
    SetSetting,
    GetSetting
  };
  /// What an answer repeats.
  struct Asked {
    Kind What = Kind::Control;
    std::uint64_t Id = 0;
    std::uint8_t Endpoint = 0;
    bus::SetupPacket Setup{};
  };
  struct Stream {
    std::uint8_t Endpoint = 0;
    Time Next{};  ///< when the next eight packets have passed
    std::uint64_t Sent = 0;
  };

  // The parser's callbacks.
  int TakeInput(std::span<std::uint8_t> into);
  void Greet();
  void Ask(Asked asked, std::span<const std::uint8_t> data = {});
  void Cancel(std::uint64_t id);
  void StartStream(std::uint64_t id, std::uint8_t endpoint);
  void StopStream(std::uint64_t id, std::uint8_t endpoint);
  void AnswerInterrupt(std::uint64_t id, std::uint8_t endpoint);

  void CheckMessage(std::span<const std::uint8_t> bytes);
  void Parse();
  void AnswerControls(Time now);
  void Answer(const ControlQueue<Asked>::Request& request);
  void AnswerCancelled(const Asked& asked);
  void SendControl(const Asked& asked, std::uint8_t status, std::span<std::uint8_t> data,
                   std::uint32_t length);
  void SendInterfaces();
  void SendEndpoints();
  void SendDevice();
  void SendStreamStatus(std::uint64_t id, std::uint8_t endpoint, std::uint8_t status);
  void PushStream(Time now);
  void PushMillisecond();
  void Unplug();
  void Flush();

  CameraSupply& supply_;
  const Log log_;
  Time now_;
  const Time greetingLimit_;
  std::vector<std::uint8_t> input_;
  std::uint32_t messageLeft_ = 0;     ///< bytes to come of the current message, without header
  std::vector<std::uint8_t> header_;  ///< bytes received of the next message's header
  std::string failure_;               ///< of a callback
  std::unique_ptr<CameraSupply::Lease> camera_;
  ControlQueue<Asked> controls_;
  std::optional<Stream> stream_;
  std::unique_ptr<usbredirparser, void (*)(usbredirparser*)> parser_;
};

}  // namespace lidcam::serve::usbredir
