#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace lidcam::serve {

/// A client violated its protocol. what() names the field and the value.
class ProtocolError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One client's protocol: bytes in, bytes out, and the time as a parameter. It uses no sockets and
/// never waits. Not synchronized.
class Session {
 public:
  using Time = std::chrono::steady_clock::time_point;

  Session() = default;
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  virtual ~Session() = default;

  /// Takes what the client sent: at most InputRoom() bytes.
  virtual void Receive(std::span<const std::uint8_t> bytes) = 0;

  /// The most bytes that Receive() accepts; 0 while enough requests are pending.
  [[nodiscard]] virtual std::size_t InputRoom() const = 0;

  /// Processes the input and all work that is due. Throws ProtocolError, after which the connection
  /// must be closed.
  virtual void Advance(Time now) = 0;

  /// When Advance() has work to do even without input or output.
  [[nodiscard]] virtual std::optional<Time> Deadline() const = 0;

  /// Bytes for the client. The sender erases the sent ones from its front.
  [[nodiscard]] std::vector<std::uint8_t>& Output() { return output_; }

  /// Whether the connection is to be closed once the output has gone.
  [[nodiscard]] bool IsOver() const { return !end_.empty(); }
  /// Why; empty while it is not over.
  [[nodiscard]] const std::string& End() const { return end_; }

 protected:
  void Finish(std::string reason) { end_ = std::move(reason); }

 private:
  std::vector<std::uint8_t> output_;
  std::string end_;
};

}  // namespace lidcam::serve
