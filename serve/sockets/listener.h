#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

namespace lidcam::serve {

/// A socket could not be opened. what() names the address and the reason.
class SocketError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A file descriptor; the destructor closes it.
class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept;
  ~Descriptor();

  [[nodiscard]] int Number() const { return number_; }
  [[nodiscard]] bool IsOpen() const { return number_ >= 0; }

 private:
  int number_;
};

/// A socket that clients connect to.
class Listener {
 public:
  /// @param address  "127.0.0.1:3240", "[::1]:3240", "localhost:3240"; port 0 is any free port
  /// Throws std::invalid_argument for an invalid address, and SocketError.
  [[nodiscard]] static Listener OnAddress(const std::string& address);

  /// @param path  of a socket in the file system, which is removed at the end; an existing one
  ///              without a listening process is replaced
  /// Throws SocketError.
  [[nodiscard]] static Listener OnPath(const std::string& path);

  Listener(Listener&& other) noexcept
      : socket_(std::move(other.socket_)),
        name_(std::move(other.name_)),
        path_(std::exchange(other.path_, {})),
        isReachable_(other.isReachable_) {}
  Listener& operator=(Listener&&) = delete;
  ~Listener();

  /// Does not block: returns a closed descriptor if no client is waiting.
  [[nodiscard]] Descriptor Accept(std::string& peer) const;

  [[nodiscard]] int Number() const { return socket_.Number(); }
  /// The address, with the actual port, or the path.
  [[nodiscard]] const std::string& Name() const { return name_; }
  /// Whether other machines can reach it.
  [[nodiscard]] bool IsReachable() const { return isReachable_; }

 private:
  Listener(Descriptor socket, std::string name)
      : socket_(std::move(socket)), name_(std::move(name)) {}

  Descriptor socket_;
  std::string name_;
  std::string path_;  ///< empty for an address
  bool isReachable_ = false;
};

}  // namespace lidcam::serve
