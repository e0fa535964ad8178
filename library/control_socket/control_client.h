#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <string>

namespace lidcam::app {

/// A connection to the process that has a camera open.
class ControlClient {
 public:
  /// Connects to the process that has this camera open; null if none takes requests.
  ///
  /// @param unit  as UnitOf() names it
  [[nodiscard]] static std::unique_ptr<ControlClient> Connect(const std::string& unit);

  ControlClient(const ControlClient&) = delete;
  ControlClient& operator=(const ControlClient&) = delete;
  ~ControlClient();

  /// Sends a request and waits for its answer. Throws CommandError or UsageError as the process answers, and
  /// CommandError if it doesn't.
  [[nodiscard]] nlohmann::json Ask(const nlohmann::json& request);

 private:
  explicit ControlClient(int socket) : socket_(socket) {}

  [[nodiscard]] std::string ReadLine() const;

  const int socket_;
};

}  // namespace lidcam::app
