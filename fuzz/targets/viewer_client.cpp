// A hostile browser: whatever it sends to the viewer's server, with the cookie or without, as HTTP or over the
// WebSocket, the server answers or ends that connection, and stays there for the next one.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "viewer/server/web_server.h"

namespace {

constexpr int kPatience = 20;  // ms without an answer

/// A server whose camera is not plugged in, on a thread of its own, as long as the process.
class Server {
 public:
  Server() {
    lidcam::app::SessionOptions session;
    session.Choice.Camera = "usb:99-9";
    lidcam::viewer::WebServer::Options options;
    options.Cameras.push_back(
        {.Session = session, .State = lidcam::viewer::StateOf(session.Choice.Camera)});
    options.Forms = {"mkv"};
    options.MostConnections = 100000;
    server_ = std::make_unique<lidcam::viewer::WebServer>(
        lidcam::serve::Listener::OnAddress("127.0.0.1:0"), std::move(options));
    const std::string address = server_->Address();
    const std::size_t colon = address.find(':', address.find("//"));
    port_ = static_cast<std::uint16_t>(std::stoul(address.substr(colon + 1)));
    std::thread([this] { server_->Run([] { return false; }); }).detach();
    const std::string answer =
        Talk("GET " + address.substr(address.find("/?")) + " HTTP/1.1\r\n" + Host() + "\r\n");
    const std::size_t at = answer.find("Set-Cookie: ");
    if (at == std::string::npos) std::abort();
    cookie_ = "Cookie: " + answer.substr(at + 12, answer.find(';', at) - at - 12) + "\r\n";
  }

  [[nodiscard]] std::string Host() const {
    return "Host: 127.0.0.1:" + std::to_string(port_) + "\r\n";
  }
  /// Fields of the server's own page.
  [[nodiscard]] std::string Own() const {
    return Host() + cookie_ + "Origin: http://127.0.0.1:" + std::to_string(port_) + "\r\n";
  }

  /// Sends bytes on a connection of their own; what comes back until the server ends it, or falls silent.
  ///
  /// @param upgrade  a request that is sent first and whose answer is awaited: what comes ahead of that is not read as
  ///                 part of the WebSocket
  [[nodiscard]] std::string Talk(std::string_view bytes, const std::string& upgrade = {}) const {
    const int client = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port_);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(client, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0)
      std::abort();
    if (!upgrade.empty()) {
      static_cast<void>(::send(client, upgrade.data(), upgrade.size(), MSG_NOSIGNAL));
      char first = 0;
      static_cast<void>(::recv(client, &first, 1, 0));
    }
    static_cast<void>(::send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL));
    ::shutdown(client, SHUT_WR);
    std::string answer;
    char part[4096];
    pollfd wait{.fd = client, .events = POLLIN, .revents = 0};
    while (::poll(&wait, 1, kPatience) > 0) {
      const ssize_t count = ::recv(client, part, sizeof(part), 0);
      if (count <= 0) break;
      answer.append(part, static_cast<std::size_t>(count));
    }
    ::close(client);
    return answer;
  }

 private:
  std::unique_ptr<lidcam::viewer::WebServer> server_;
  std::uint16_t port_ = 0;
  std::string cookie_;
};

std::string Upgrade(const Server& server) {
  return "GET /live HTTP/1.1\r\n" + server.Own() +
         "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
         "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n";
}

/// One text message, with a mask of zeros.
std::string Frame(std::string_view text) {
  std::string frame = "\x81\xFE";
  frame.push_back(static_cast<char>(text.size() >> 8));
  frame.push_back(static_cast<char>(text.size() & 0xFF));
  return frame.append(4, '\0').append(text);
}

/// Lines of the input as messages.
std::string Frames(std::string_view text) {
  std::string frames;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    frames += Frame(text.substr(0, end));
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
  }
  return frames;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto* const server = new Server;
  if (size == 0 || size > 60000) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0] % 4) {
    case 0:
      static_cast<void>(server->Talk(bytes));
      break;
    case 1: {  // the first line is a request's, others its fields and its body
      const std::size_t end = bytes.find("\r\n");
      const std::string line(bytes.substr(0, end));
      const std::string rest(end == std::string_view::npos ? std::string_view()
                                                           : bytes.substr(end + 2));
      static_cast<void>(server->Talk(line + "\r\n" + server->Own() + rest));
      break;
    }
    case 2:
      static_cast<void>(server->Talk(bytes, Upgrade(*server)));
      break;
    default:
      static_cast<void>(server->Talk(Frames(bytes), Upgrade(*server)));
      break;
  }
  return 0;
}
