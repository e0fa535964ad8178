#include "tests/viewer/support/web_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace lidcam::viewer {
RawClient::RawClient(std::uint16_t port)
    : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
    throw std::runtime_error("no connection");
  }
}

RawClient::~RawClient() {
  ::close(socket_);
}

void RawClient::Send(std::string_view bytes) const {
  while (!bytes.empty()) {
    const ssize_t count = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return;  // the server has ended the connection, which the test asks next
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

bool RawClient::Fill() {
  pollfd wait{.fd = socket_, .events = POLLIN, .revents = 0};
  if (::poll(&wait, 1, static_cast<int>(LongestWait.count())) <= 0) {
    throw std::runtime_error("nothing came for " + std::to_string(LongestWait.count()) + " ms");
  }
  std::string bytes(65536, '\0');
  const ssize_t count = ::recv(socket_, bytes.data(), bytes.size(), 0);
  if (count <= 0) return false;
  received_.append(bytes, 0, static_cast<std::size_t>(count));
  return true;
}

std::string RawClient::Read(std::size_t count) {
  while (received_.size() < count && Fill()) {
  }
  const std::string bytes = received_.substr(0, count);
  received_.erase(0, bytes.size());
  return bytes;
}

std::string RawClient::ReadLine() {
  std::size_t end = std::string::npos;
  while ((end = received_.find("\r\n")) == std::string::npos) {
    if (!Fill()) return {};
  }
  const std::string line = received_.substr(0, end);
  received_.erase(0, end + 2);
  return line;
}

std::string RawClient::ReadAll() {
  while (Fill()) {
  }
  return std::exchange(received_, {});
}

bool RawClient::IsClosed() {
  try {
    static_cast<void>(ReadAll());
    return true;
  } catch (const std::runtime_error&) {
    return false;
  }
}

std::string HttpAnswer::Field(const std::string& name) const {
  const std::string begin = "\r\n" + name + ": ";
  const std::size_t at = Head.find(begin);
  if (at == std::string::npos) return {};
  const std::size_t from = at + begin.size();
  return Head.substr(from, Head.find("\r\n", from) - from);
}

HttpAnswer Ask(std::uint16_t port, const std::string& target, const std::string& fields,
               const std::string& method, const std::string& body) {
  RawClient client(port);
  std::string request = method + " " + target +
                        " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                        "\r\nConnection: close\r\n" + fields;
  if (!body.empty()) request += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  client.Send(request + "\r\n" + body);
  const std::string all = client.ReadAll();
  const std::size_t end = all.find("\r\n\r\n");
  if (end == std::string::npos) return {};
  return {.Status = static_cast<unsigned>(std::stoul(all.substr(9, 3))),
          .Head = all.substr(0, end + 2),
          .Body = all.substr(end + 4)};
}

std::uint16_t PortOf(const std::string& address) {
  const std::size_t colon = address.find(':', address.find("//"));
  return static_cast<std::uint16_t>(std::stoul(address.substr(colon + 1)));
}

std::string CookieOf(const std::string& address) {
  const std::string target = address.substr(address.find("/?"));
  const std::string cookie = Ask(PortOf(address), target, {}).Field("Set-Cookie");
  return "Cookie: " + cookie.substr(0, cookie.find(';')) + "\r\n";
}

PageClient::PageClient(const std::string& address) : raw_(PortOf(address)) {
  const std::string host = "127.0.0.1:" + std::to_string(PortOf(address));
  raw_.Send("GET /live HTTP/1.1\r\nHost: " + host + "\r\nOrigin: http://" + host + "\r\n" +
            CookieOf(address) +
            "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
            "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n");
  const std::string status = raw_.ReadLine();
  if (!status.starts_with("HTTP/1.1 101")) throw std::runtime_error("no WebSocket: " + status);
  while (!raw_.ReadLine().empty()) {
  }
}

void PageClient::SendFrame(unsigned kind, const std::string& payload) {
  constexpr std::size_t kShort = 126;
  constexpr std::size_t kMiddle = 65536;
  std::string frame(1, static_cast<char>(0x80 | kind));
  const auto addLength = [&](int bytes) {
    for (int i = bytes - 1; i >= 0; --i) {
      frame.push_back(static_cast<char>(payload.size() >> (8 * i) & 0xFF));
    }
  };
  if (payload.size() < kShort) {
    frame.push_back(static_cast<char>(0x80 | payload.size()));
  } else if (payload.size() < kMiddle) {
    frame.push_back(static_cast<char>(0xFE));
    addLength(2);
  } else {
    frame.push_back(static_cast<char>(0xFF));
    addLength(8);
  }
  // A mask of zeros leaves the bytes as they are.
  raw_.Send(frame + std::string(4, '\0') + payload);
}

std::optional<PageClient::Message> PageClient::HearMessage() {
  const std::string head = raw_.Read(2);
  if (head.size() < 2) return std::nullopt;
  const unsigned kind = static_cast<unsigned char>(head[0]) & 0xFU;
  std::size_t length = static_cast<unsigned char>(head[1]) & 0x7FU;
  if (length >= 126) {
    const std::string bytes = raw_.Read(length == 126 ? 2 : 8);
    length = 0;
    for (const char byte : bytes) length = length << 8 | static_cast<unsigned char>(byte);
  }
  std::string payload = raw_.Read(length);
  if (kind == 8 || payload.size() < length) return std::nullopt;
  return Message{.Kind = kind, .Payload = std::move(payload)};
}

std::string_view PageClient::HeaderOf(std::string_view picture) {
  std::size_t length = 0;
  for (std::size_t i = 4; i > 0; --i) {
    length = length << 8 | static_cast<unsigned char>(picture[i - 1]);
  }
  return picture.substr(4, length);
}

void PageClient::SayShown(const nlohmann::json& header) {
  Say({{"do", "shown"}, {"camera", header["camera"]}, {"number", header["number"]}});
}

std::optional<nlohmann::json> PageClient::Hear() {
  while (const auto message = HearMessage()) {
    if (message->Kind == 1) return nlohmann::json::parse(message->Payload);
    if (message->Kind != 2) continue;
    const std::string_view header = HeaderOf(message->Payload);
    nlohmann::json picture = nlohmann::json::parse(header);
    const std::string_view jpeg = std::string_view(message->Payload).substr(4 + header.size());
    // Not as an array, whose many values would take most of a sanitized test's time.
    picture["jpeg"] = nlohmann::json::binary({jpeg.begin(), jpeg.end()});
    if (Shows) SayShown(picture);
    return picture;
  }
  return std::nullopt;
}

nlohmann::json PageClient::Await(const std::function<bool(const nlohmann::json&)>& fits) {
  const auto end = std::chrono::steady_clock::now() + kLongestWait;
  while (std::chrono::steady_clock::now() < end) {
    const auto message = Hear();
    if (!message) throw std::runtime_error("the connection has ended");
    if (fits(*message)) return *message;
  }
  throw std::runtime_error("no such message came for a minute");
}

nlohmann::json PageClient::AwaitNamed(const std::string& name) {
  return Await([&](const nlohmann::json& message) {
    return message.contains(name) && !message.contains("jpeg");
  })[name];
}

nlohmann::json PageClient::Ask(nlohmann::json message) {
  const int id = ++lastId_;
  message["id"] = id;
  Say(message);
  return Await([&](const nlohmann::json& heard) { return heard.value("answer", 0) == id; });
}

nlohmann::json PageClient::AwaitPicture() {
  return Await([](const nlohmann::json& message) { return message.contains("jpeg"); });
}

nlohmann::json PageClient::AwaitState(const std::string& state) {
  return Await([&](const nlohmann::json& message) {
    return message.contains("camera") && message["camera"].is_object() &&
           message["camera"]["state"] == state;
  })["camera"];
}

}  // namespace lidcam::viewer
