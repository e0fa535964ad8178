#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "serve/sockets/listener.h"
#include "serve/sockets/session.h"

namespace lidcam::serve {

/// Serves every client that connects on a thread of its own, up to a limit.
class Server {
 public:
  using Log = std::function<void(const std::string& line)>;
  /// Creates the session of a client. The log is for messages about that client.
  using MakeSession = std::function<std::unique_ptr<Session>(Session::Time now, Log log)>;

  struct Options {
    MakeSession Make;  ///< called on any of the server's threads
    Log Tell;          ///< gets lines that begin with the client's address; one at a time
    std::size_t ConnectionLimit = 256;
  };

  Server(Listener listener, Options options);
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  ~Server();

  [[nodiscard]] const Listener& Door() const { return listener_; }

  /// Serves until `isOver`, which is called ten times a second, or Stop(), and closes all
  /// connections.
  void Run(const std::function<bool()>& isOver);

  /// Callable from any thread.
  void Stop();

 private:
  struct Connection {
    std::thread Thread;
    std::atomic<bool> IsDone = false;
  };

  void AcceptOne();
  void Serve(const Descriptor& socket, const Log& tell);
  void Tell(const std::string& line);
  void ReapConnections();

  Listener listener_;
  const Options options_;
  Descriptor stop_;  ///< readable once the server stops
  std::atomic<bool> isStopped_ = false;
  std::mutex logMutex_;
  std::list<Connection> connections_;
};

}  // namespace lidcam::serve
