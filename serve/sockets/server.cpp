#include "serve/sockets/server.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <exception>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

namespace lidcam::serve {
namespace {

constexpr std::size_t kReadAtOnce = std::size_t{64} * 1024;

/// Waits in whole nanoseconds, as packets are due within less than a millisecond.
int WaitFor(std::span<pollfd> descriptors, std::optional<Session::Time> deadline) {
  timespec left{};
  if (deadline) {
    const auto wait = std::max(*deadline - Session::Time::clock::now(), Session::Time::duration{});
    const auto nanoseconds = std::chrono::nanoseconds(wait).count();
    constexpr std::int64_t kSecond = 1'000'000'000;
    left = {nanoseconds / kSecond, nanoseconds % kSecond};
  }
  return ppoll(descriptors.data(), descriptors.size(), deadline ? &left : nullptr, nullptr);
}

/// One client's socket and its session.
class ConnectionLoop {
 public:
  ConnectionLoop(int socket, int stop, Session& session)
      : socket_(socket), stop_(stop), session_(session) {}

  /// @return why it ended
  std::string Run() {
    while (end_.empty()) {
      session_.Advance(Session::Time::clock::now());
      if (session_.IsOver() && session_.Output().empty()) return session_.End();
      Wait();
    }
    return end_;
  }

 private:
  void Wait() {
    const bool hasOutput = !session_.Output().empty();
    const bool takesInput = !session_.IsOver() && session_.InputRoom() > 0;
    const auto events = static_cast<short>((takesInput ? POLLIN : 0) | (hasOutput ? POLLOUT : 0));
    std::array<pollfd, 2> descriptors{{{socket_, events, 0}, {stop_, POLLIN, 0}}};
    // Pending output is sent before the session's next timed work.
    const auto deadline = hasOutput ? std::nullopt : session_.Deadline();
    if (WaitFor(descriptors, deadline) < 0 && errno != EINTR) {
      end_ = std::generic_category().message(errno);
    }
    if (descriptors[1].revents != 0) end_ = "the server ends";
    if (!end_.empty()) return;
    const short happened = descriptors[0].revents;
    if ((happened & POLLOUT) != 0) Send();
    if ((happened & POLLIN) != 0) {
      Read();
    } else if ((happened & (POLLERR | POLLHUP)) != 0) {
      end_ = "the client is gone";
    }
  }

  void Send() {
    std::vector<std::uint8_t>& output = session_.Output();
    const ssize_t sent = send(socket_, output.data(), output.size(), MSG_NOSIGNAL);
    if (sent > 0) output.erase(output.begin(), output.begin() + sent);
    if (sent < 0) NoteFailure(errno);
  }

  void Read() {
    input_.resize(std::min(kReadAtOnce, session_.InputRoom()));
    const ssize_t got = recv(socket_, input_.data(), input_.size(), 0);
    if (got > 0) session_.Receive(std::span(input_).first(static_cast<std::size_t>(got)));
    if (got == 0) end_ = "the client is gone";
    if (got < 0) NoteFailure(errno);
  }

  void NoteFailure(int error) {
    if (error == EAGAIN || error == EINTR) return;
    end_ = "the client is gone: " + std::generic_category().message(error);
  }

  const int socket_;
  const int stop_;
  Session& session_;
  std::vector<std::uint8_t> input_;
  std::string end_;
};

}  // namespace

Server::Server(Listener listener, Options options)
    : listener_(std::move(listener)),
      options_(std::move(options)),
      stop_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!stop_.IsOpen()) throw SocketError("no event: " + std::generic_category().message(errno));
}

Server::~Server() {
  Stop();
  for (Connection& connection : connections_) connection.Thread.join();
}

void Server::Stop() {
  isStopped_ = true;
  const std::uint64_t one = 1;
  // It can only fail if the counter would reach 2 to the 64th.
  (void)!write(stop_.Number(), &one, sizeof(one));
}

void Server::Run(const std::function<bool()>& isOver) {
  constexpr std::chrono::milliseconds kPause{100};
  while (!isStopped_ && !isOver()) {
    std::array<pollfd, 2> descriptors{
        {{listener_.Number(), POLLIN, 0}, {stop_.Number(), POLLIN, 0}}};
    (void)WaitFor(descriptors, Session::Time::clock::now() + kPause);
    ReapConnections();
    if (descriptors[0].revents != 0) AcceptOne();
  }
  Stop();
  for (Connection& connection : connections_) connection.Thread.join();
  connections_.clear();
}

void Server::ReapConnections() {
  std::erase_if(connections_, [](Connection& connection) {
    if (!connection.IsDone) return false;
    connection.Thread.join();
    return true;
  });
}

void Server::AcceptOne() {
  std::string peer;
  Descriptor socket = listener_.Accept(peer);
  if (!socket.IsOpen()) {
    // Without descriptors left the client stays in the queue, and the poll would return at once.
    const bool isFull = errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM;
    if (isFull) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    return;
  }
  const auto tell = [this, peer](const std::string& line) { Tell(peer + ": " + line); };
  if (connections_.size() >= options_.ConnectionLimit) {
    tell("refused: there are " + std::to_string(connections_.size()) + " connections");
    return;
  }
  Connection& connection = connections_.emplace_back();
  try {
    connection.Thread = std::thread([this, &connection, tell, socket = std::move(socket)] {
      Serve(socket, tell);
      connection.IsDone = true;
    });
  } catch (const std::system_error& error) {
    connections_.pop_back();
    tell(std::string("refused: ") + error.what());
  }
}

void Server::Serve(const Descriptor& socket, const Log& tell) {
  try {
    const std::unique_ptr<Session> session = options_.Make(Session::Time::clock::now(), tell);
    tell(ConnectionLoop(socket.Number(), stop_.Number(), *session).Run());
  } catch (const std::exception& error) {
    tell(error.what());
  }
}

void Server::Tell(const std::string& line) {
  const std::lock_guard lock(logMutex_);
  options_.Tell(line);
}

}  // namespace lidcam::serve
