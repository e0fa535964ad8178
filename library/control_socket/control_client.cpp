#include "library/control_socket/control_client.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>

#include "library/base/command_error.h"
#include "library/control_socket/socket_path.h"

namespace lidcam::app {
namespace {

// A still of a camera that doesn't stream takes longest.
constexpr timeval kLongestAnswer{.tv_sec = 30, .tv_usec = 0};

constexpr std::size_t kLongestText = 16 << 20;

[[noreturn]] void FailWithoutAnswer() {
  throw CommandError(
      "the process that has the camera open did not answer: it has ended or is stuck; try again");
}

}  // namespace

std::unique_ptr<ControlClient> ControlClient::Connect(const std::string& unit) {
  const std::optional<std::string> path = ControlSocketOf(unit);
  sockaddr_un address{};
  if (!path || path->size() >= sizeof(address.sun_path)) return nullptr;
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path->c_str(), path->size() + 1);
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (socket < 0) return nullptr;
  if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    ::close(socket);
    return nullptr;
  }
  ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &kLongestAnswer, sizeof(kLongestAnswer));
  return std::unique_ptr<ControlClient>(new ControlClient(socket));
}

ControlClient::~ControlClient() {
  ::close(socket_);
}

nlohmann::json ControlClient::Ask(const nlohmann::json& request) {
  const std::string line =
      request.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
  for (std::size_t sent = 0; sent < line.size();) {
    const ssize_t count = ::send(socket_, line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) FailWithoutAnswer();
    sent += static_cast<std::size_t>(count);
  }
  nlohmann::json answer = nlohmann::json::parse(ReadLine(), nullptr, false);
  if (!answer.is_object()) FailWithoutAnswer();
  if (!answer.contains("error")) return answer;
  const std::string error = answer.value("error", "");
  if (answer.value("isUsage", false)) throw UsageError(error);
  throw CommandError(error);
}

std::string ControlClient::ReadLine() const {
  std::string line;
  std::array<char, 65536> bytes;
  while (line.size() < kLongestText) {
    const ssize_t count = ::recv(socket_, bytes.data(), bytes.size(), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) FailWithoutAnswer();
    line.append(bytes.data(), static_cast<std::size_t>(count));
    if (line.back() == '\n') return line;
  }
  FailWithoutAnswer();
}

}  // namespace lidcam::app
