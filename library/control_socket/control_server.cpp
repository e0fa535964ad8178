#include "library/control_socket/control_server.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <utility>

#include "library/base/notices.h"
#include "library/control_socket/socket_path.h"

namespace lidcam::app {
namespace {

constexpr mode_t kFolderMode = 0700;
constexpr mode_t kSocketMode = 0600;

// For a client that doesn't read its answer.
constexpr timeval kLongestSend{.tv_sec = 2, .tv_usec = 0};

// Signals are the application's.
void BlockSignals() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, nullptr);
}

// A folder of another user's is not used.
bool MakeFolder(const std::string& folder) {
  if (::mkdir(folder.c_str(), kFolderMode) != 0 && errno != EEXIST) return false;
  struct stat state {};
  if (::lstat(folder.c_str(), &state) != 0) return false;
  if (!S_ISDIR(state.st_mode) || state.st_uid != ::geteuid()) {
    errno = EPERM;
    return false;
  }
  return ::chmod(folder.c_str(), kFolderMode) == 0;
}

bool SendAll(int socket, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = ::send(socket, text.data(), text.size(), MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

}  // namespace

ControlServer::ControlServer(const std::string& unit, Handler handler)
    : path_(ControlSocketOf(unit).value_or("")), handler_(std::move(handler)) {
  if (path_.empty()) return;
  if (!Listen()) {
    TellUser("other programs can't reach the camera while it is open: socket '" + path_ +
             "': " + std::strerror(errno));
    if (listening_ >= 0) ::close(listening_);
    listening_ = -1;
    return;
  }
  wake_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  thread_ = std::thread([this] { Run(); });
}

ControlServer::~ControlServer() {
  End();
  if (listening_ >= 0) ::close(listening_);
  if (wake_ >= 0) ::close(wake_);
}

void ControlServer::End() {
  Withdraw();
  if (thread_.joinable()) thread_.join();
}

bool ControlServer::Listen() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path_.size() >= sizeof(address.sun_path)) {
    errno = ENAMETOOLONG;
    return false;
  }
  std::memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
  if (!MakeFolder(std::filesystem::path(path_).parent_path())) return false;
  listening_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (listening_ < 0) return false;
  ::unlink(path_.c_str());
  constexpr int kWaiting = 16;
  return ::bind(listening_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
         ::chmod(path_.c_str(), kSocketMode) == 0 && ::listen(listening_, kWaiting) == 0;
}

void ControlServer::Withdraw() {
  if (listening_ < 0 || isWithdrawn_.exchange(true)) return;
  ::unlink(path_.c_str());
  constexpr std::uint64_t kOne = 1;
  static_cast<void>(::write(wake_, &kOne, sizeof(kOne)) == sizeof(kOne));
}

void ControlServer::Run() {
  BlockSignals();
  while (!isWithdrawn_) {
    std::vector<pollfd> waits = {{wake_, POLLIN, 0}, {listening_, POLLIN, 0}};
    for (const Client& client : clients_) waits.push_back({client.Socket, POLLIN, 0});
    if (::poll(waits.data(), waits.size(), HasRequest() ? 0 : -1) < 0 || isWithdrawn_) continue;
    for (std::size_t i = clients_.size(); i-- > 0;) {
      Client& client = clients_[i];
      if ((waits[i + 2].revents == 0 || Receive(client)) && Answer(client)) continue;
      ::close(clients_[i].Socket);
      clients_.erase(clients_.begin() + static_cast<std::ptrdiff_t>(i));
    }
    if (waits[1].revents != 0) Accept();
  }
  for (const Client& client : clients_) ::close(client.Socket);
}

void ControlServer::Accept() {
  const int socket = ::accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC);
  if (socket < 0) return;
  if (clients_.size() >= kMostClients) {
    ::close(socket);
    return;
  }
  ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &kLongestSend, sizeof(kLongestSend));
  clients_.push_back({socket});
}

// More is received once the lines have their answers.
bool ControlServer::Receive(Client& client) {
  if (client.Received.find('\n') != std::string::npos) return true;
  std::array<char, 4096> bytes;
  const ssize_t count = ::recv(client.Socket, bytes.data(), bytes.size(), MSG_DONTWAIT);
  if (count < 0) return errno == EAGAIN || errno == EINTR;
  if (count == 0) return false;
  client.Received.append(bytes.data(), static_cast<std::size_t>(count));
  return client.Received.size() <= kLongestLine;
}

bool ControlServer::HasRequest() const {
  return std::ranges::any_of(clients_, [](const Client& client) {
    return client.Received.find('\n') != std::string::npos;
  });
}

// One line at a time: the clients take turns.
bool ControlServer::Answer(Client& client) {
  const std::size_t end = client.Received.find('\n');
  if (end == std::string::npos) return true;
  const std::string answer = handler_(client.Received.substr(0, end));
  client.Received.erase(0, end + 1);
  return !answer.empty() && SendAll(client.Socket, answer + "\n");
}

}  // namespace lidcam::app
