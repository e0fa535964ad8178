#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace lidcam::app {

/// Takes requests of other processes for a camera that this one has open: lines of text on a socket that only the
/// user may open, each with one line as its answer. Requests are answered one at a time, on a thread of the server's.
///
/// Only the process that has the camera's lock may have one: it replaces a socket that a killed process left.
/// Without a run-time folder of the user's there is none; one that can't be made is told to the user.
class ControlServer {
 public:
  /// @return the answer, without a line end; empty ends the connection
  using Handler = std::function<std::string(const std::string& line)>;

  /// @param unit  as UnitOf() names the camera
  ControlServer(const std::string& unit, Handler handler);
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;
  ~ControlServer();

  /// Removes the socket, and takes no more requests. Doesn't wait. Any thread.
  void Withdraw();
  /// Withdraws, and waits for the answer in progress. One thread, as the destructor.
  void End();

  static constexpr std::size_t kLongestLine = 64 * 1024;
  static constexpr std::size_t kMostClients = 16;

 private:
  struct Client {
    int Socket;
    std::string Received{};
  };

  bool Listen();
  void Run();
  void Accept();
  static bool Receive(Client& client);
  bool Answer(Client& client);
  [[nodiscard]] bool HasRequest() const;

  const std::string path_;
  const Handler handler_;
  int listening_ = -1;
  int wake_ = -1;
  std::atomic<bool> isWithdrawn_ = false;
  std::vector<Client> clients_;  ///< on the server's thread
  std::thread thread_;
};

}  // namespace lidcam::app
