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

/// A client sent what its protocol doesn't know. what() names the field and the value.
class ProtocolError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One client's protocol: bytes in, bytes out, and time, which comes from outside. It knows no sockets and
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

  /// How much Receive() may be given; 0 while enough is waiting to be carried out.
  [[nodiscard]] virtual std::size_t InputRoom() const = 0;

  /// Carries out what can be and what is due. Throws ProtocolError, after which the connection is to be
  /// closed.
  virtual void Advance(Time now) = 0;

  /// When Advance() has something to do, though nothing comes in or goes out.
  [[nodiscard]] virtual std::optional<Time> Deadline() const = 0;

  /// What goes to the client. The sender erases from its front what has gone.
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
