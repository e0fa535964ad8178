#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace lidcam::viewer {

/// Under ThreadSanitizer on a loaded machine a picture can take seconds.
inline constexpr std::chrono::seconds kLongestWait{60};

/// A connection to the server, byte by byte: it also sends what no browser does.
class RawClient {
 public:
  explicit RawClient(std::uint16_t port);
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;
  ~RawClient();

  void Send(std::string_view bytes) const;
  /// Reads so many bytes; fewer if the connection ends.
  [[nodiscard]] std::string Read(std::size_t count);
  [[nodiscard]] std::string ReadLine();
  /// Reads to the end of the connection. As all that read, it throws when nothing came for so long.
  [[nodiscard]] std::string ReadAll();
  /// Whether the server has ended the connection, within a minute; what it sends until then is dropped.
  [[nodiscard]] bool IsClosed();

  /// For the next bytes.
  std::chrono::milliseconds LongestWait = kLongestWait;

 private:
  bool Fill();

  int socket_ = -1;
  std::string received_;
};

/// An answer of HTTP.
struct HttpAnswer {
  unsigned Status = 0;
  std::string Head;
  std::string Body;

  /// Empty without it.
  [[nodiscard]] std::string Field(const std::string& name) const;
};

/// Sends a request of its own connection. `fields` are lines with their ends.
[[nodiscard]] HttpAnswer Ask(std::uint16_t port, const std::string& target,
                             const std::string& fields, const std::string& method = "GET",
                             const std::string& body = {});

/// The cookie that an address with a token gives: a line for requests.
[[nodiscard]] std::string CookieOf(const std::string& address);
[[nodiscard]] std::uint16_t PortOf(const std::string& address);

/// A page's WebSocket.
class PageClient {
 public:
  explicit PageClient(const std::string& address);

  void Say(const nlohmann::json& message) { SendFrame(1, message.dump()); }
  /// @param kind  1 text, 2 binary, 9 ping
  void SendFrame(unsigned kind, const std::string& payload);

  /// A message as it came; of a picture its header's length, the header and the JPEG.
  struct Message {
    unsigned Kind = 0;  ///< 1 text, 2 binary, 10 pong
    std::string Payload;
  };
  /// Nothing when the connection ends.
  [[nodiscard]] std::optional<Message> HearMessage();
  /// The header of a picture's message.
  [[nodiscard]] static std::string_view HeaderOf(std::string_view picture);
  /// Acknowledges a picture, as a page does that has drawn it.
  void SayShown(const nlohmann::json& header);

  /// A message; of a picture its header, with the bytes of the JPEG as the binary "jpeg". Nothing when the connection ends.
  [[nodiscard]] std::optional<nlohmann::json> Hear();
  /// Hears until a message fits. Fails the test after a minute or at the connection's end.
  nlohmann::json Await(const std::function<bool(const nlohmann::json&)>& fits);
  nlohmann::json AwaitNamed(const std::string& name);
  /// Says a message and awaits its answer.
  nlohmann::json Ask(nlohmann::json message);
  nlohmann::json AwaitPicture();
  /// Awaits a camera's state.
  nlohmann::json AwaitState(const std::string& state);

  /// Pictures that are heard are acknowledged at once, as by a page that draws them.
  bool Shows = true;

  [[nodiscard]] RawClient& Raw() { return raw_; }

 private:
  RawClient raw_;
  int lastId_ = 0;
};

}  // namespace lidcam::viewer
