#include "serve/sockets/listener.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>
#include <system_error>

namespace lidcam::serve {
namespace {

constexpr int kBacklog = 64;

[[noreturn]] void Fail(const std::string& name, int error) {
  throw SocketError("can't listen on '" + name + "': " + std::generic_category().message(error));
}

struct HostAndPort {
  std::string Host;
  std::string Port;
};

HostAndPort Split(const std::string& address) {
  const auto refuse = [&address] {
    throw std::invalid_argument("address '" + address +
                                "' is not of the form ADDRESS:PORT, such as 127.0.0.1:3240");
  };
  const std::size_t colon = address.rfind(':');
  if (colon == std::string::npos || colon == 0) refuse();
  HostAndPort parts{address.substr(0, colon), address.substr(colon + 1)};
  std::uint16_t port = 0;
  const char* const last = parts.Port.data() + parts.Port.size();
  const auto [end, error] = std::from_chars(parts.Port.data(), last, port);
  if (error != std::errc{} || end != last) refuse();
  const bool isBracketed = parts.Host.starts_with('[') && parts.Host.ends_with(']');
  if (isBracketed) parts.Host = parts.Host.substr(1, parts.Host.size() - 2);
  if (!isBracketed && parts.Host.find(':') != std::string::npos) refuse();
  return parts;
}

std::string NameOf(const sockaddr_storage& address, socklen_t length) {
  std::array<char, NI_MAXHOST> host{};
  std::array<char, NI_MAXSERV> port{};
  if (address.ss_family == AF_UNIX) return "a local client";
  if (getnameinfo(reinterpret_cast<const sockaddr*>(&address), length, host.data(), host.size(),
                  port.data(), port.size(), NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
    return "an unknown address";
  }
  const std::string text(host.data());
  const bool isLong = address.ss_family == AF_INET6;
  return (isLong ? "[" + text + "]" : text) + ":" + port.data();
}

bool IsLoopback(const sockaddr_storage& address) {
  if (address.ss_family == AF_INET6) {
    return IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6&>(address).sin6_addr);
  }
  constexpr std::uint32_t kLoopbackNet = 127;
  const std::uint32_t host = ntohl(reinterpret_cast<const sockaddr_in&>(address).sin_addr.s_addr);
  return host >> 24 == kLoopbackNet;
}

/// Whether a process listens at the path.
bool IsServed(const sockaddr_un& address) {
  const Descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const auto* const where = reinterpret_cast<const sockaddr*>(&address);
  return connect(probe.Number(), where, sizeof(address)) == 0 || errno == EAGAIN;
}

bool IsSocket(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
}

}  // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  std::swap(number_, other.number_);
  return *this;
}

Descriptor::~Descriptor() {
  if (number_ >= 0) close(number_);
}

Listener Listener::OnAddress(const std::string& address) {
  const HostAndPort parts = Split(address);
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  addrinfo* found = nullptr;
  const int failure = getaddrinfo(parts.Host.c_str(), parts.Port.c_str(), &hints, &found);
  if (failure != 0) {
    throw SocketError("can't listen on '" + address + "': " + gai_strerror(failure));
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> list(found, freeaddrinfo);
  Descriptor listening(
      socket(list->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, list->ai_protocol));
  if (!listening.IsOpen()) Fail(address, errno);
  const int yes = 1;
  setsockopt(listening.Number(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
  if (bind(listening.Number(), list->ai_addr, list->ai_addrlen) != 0 ||
      listen(listening.Number(), kBacklog) != 0) {
    Fail(address, errno);
  }
  sockaddr_storage bound{};
  socklen_t length = sizeof(bound);
  getsockname(listening.Number(), reinterpret_cast<sockaddr*>(&bound), &length);
  Listener listener(std::move(listening), NameOf(bound, length));
  listener.isReachable_ = !IsLoopback(bound);
  return listener;
}

Listener Listener::OnPath(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof(address.sun_path)) {
    Fail(path, path.empty() ? ENOENT : ENAMETOOLONG);
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  Descriptor listening(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!listening.IsOpen()) Fail(path, errno);
  // Left by a server that was killed.
  if (IsSocket(path) && !IsServed(address)) unlink(path.c_str());
  if (bind(listening.Number(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
      listen(listening.Number(), kBacklog) != 0) {
    Fail(path, errno);
  }
  Listener listener(std::move(listening), path);
  listener.path_ = path;
  return listener;
}

Listener::~Listener() {
  if (!path_.empty()) unlink(path_.c_str());
}

Descriptor Listener::Accept(std::string& peer) const {
  sockaddr_storage address{};
  socklen_t length = sizeof(address);
  Descriptor accepted(accept4(socket_.Number(), reinterpret_cast<sockaddr*>(&address), &length,
                              SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!accepted.IsOpen()) return accepted;
  const int yes = 1;
  if (address.ss_family != AF_UNIX) {
    setsockopt(accepted.Number(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof(yes));
    setsockopt(accepted.Number(), SOL_SOCKET, SO_KEEPALIVE, &yes, sizeof(yes));
  }
  peer = NameOf(address, length);
  return accepted;
}

}  // namespace lidcam::serve
