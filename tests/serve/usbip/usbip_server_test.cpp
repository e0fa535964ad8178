#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>

#include "serve/sockets/server.h"
#include "serve/usbip/usbip_session.h"
#include "tests/serve/supply.h"
#include "tests/serve/usbip/wire.h"

namespace lidcam::serve::usbip {
namespace {

using wire::Bytes;

/// A connection of a client to a port of this machine.
class Connection {
 public:
  explicit Connection(std::uint16_t port)
      : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(
        connect(socket_.Number(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  }

  /// @return false once the server has closed the connection
  bool Send(const Bytes& bytes) const {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
      const ssize_t count =
          send(socket_.Number(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
      if (count < 0) return false;
      sent += static_cast<std::size_t>(count);
    }
    return true;
  }

  /// Reads `count` bytes, or fewer if the server closes the connection earlier.
  [[nodiscard]] Bytes Receive(std::size_t count) const {
    Bytes bytes(count);
    std::size_t got = 0;
    while (got < count) {
      const ssize_t some = recv(socket_.Number(), bytes.data() + got, count - got, 0);
      if (some <= 0) break;
      got += static_cast<std::size_t>(some);
    }
    bytes.resize(got);
    return bytes;
  }

  [[nodiscard]] Bytes ReceiveReply(bool hasPackets) const {
    Bytes reply = Receive(48);
    if (reply.size() < 48) return reply;
    const std::size_t packets = hasPackets ? wire::Get(reply, 32) : 0;
    const Bytes rest = Receive(wire::Get(reply, 24) + packets * 16);
    reply.insert(reply.end(), rest.begin(), rest.end());
    return reply;
  }

  void EndSending() const { shutdown(socket_.Number(), SHUT_WR); }

 private:
  Descriptor socket_;
};

/// A server on any free port.
class RunningServer {
 public:
  explicit RunningServer(CameraSupply::Options options = Simulated())
      : supply_(std::move(options)),
        server_(Listener::OnAddress("127.0.0.1:0"),
                {.Make =
                     [this](Session::Time now, Server::Log log) {
                       return std::make_unique<UsbipSession>(supply_, now, std::move(log));
                     },
                 .Tell =
                     [this](const std::string& line) {
                       const std::lock_guard lock(mutex_);
                       lines_ += line + "\n";
                     }}),
        thread_([this] { server_.Run([] { return false; }); }) {}
  ~RunningServer() { End(); }

  void End() {
    server_.Stop();
    if (thread_.joinable()) thread_.join();
  }

  [[nodiscard]] std::uint16_t Port() const {
    const std::string& name = server_.Door().Name();
    return static_cast<std::uint16_t>(std::stoi(name.substr(name.rfind(':') + 1)));
  }

  [[nodiscard]] std::string Lines() {
    const std::lock_guard lock(mutex_);
    return lines_;
  }

 private:
  std::mutex mutex_;
  std::string lines_;
  CameraSupply supply_;
  Server server_;
  std::thread thread_;
};

/// Attaches and gives the first `transfers` times 4 ms of setting 7.
Bytes StreamOf(std::uint16_t port, std::uint32_t transfers) {
  constexpr std::uint32_t kQueued = 4;
  const Connection connection(port);
  connection.Send(wire::ImportRequest());
  EXPECT_EQ(connection.Receive(wire::kImportReplySize).size(), wire::kImportReplySize);
  connection.Send(wire::SetConfiguration(1));
  connection.Send(wire::SetInterface(2, 7));
  (void)connection.ReceiveReply(false);
  (void)connection.ReceiveReply(false);
  Bytes data;
  std::uint32_t sent = 0;
  for (; sent < kQueued; ++sent) connection.Send(wire::Stream(100 + sent, 32, 3072));
  for (std::uint32_t got = 0; got < transfers; ++got) {
    const Bytes reply = connection.ReceiveReply(true);
    if (reply.size() < 48) return data;
    EXPECT_EQ(wire::Get(reply, 4), 100 + got);
    const auto length = static_cast<std::ptrdiff_t>(wire::Get(reply, 24));
    data.insert(data.end(), reply.begin() + 48, reply.begin() + 48 + length);
    connection.Send(wire::Stream(100 + sent++, 32, 3072));
  }
  return data;
}

/// The same bytes without a server.
Bytes ExpectedStream(std::uint32_t transfers) {
  const auto bus = bus::MakeSimulatedBus({}, bus::Pacing::FreeRunning);
  (void)bus->ControlTransfer({0x00, 9, 1, 0, 0}, {});
  (void)bus->SelectSetting(0, 7);
  Bytes data;
  Bytes buffer(std::size_t{32} * 3072);
  std::vector<bus::IsochronousPacket> packets(32);
  for (std::uint32_t i = 0; i < transfers; ++i) {
    (void)bus->ReadIsochronous(0x82, buffer, packets);
    for (const auto& packet : packets) {
      const auto at = buffer.begin() + packet.Offset;
      data.insert(data.end(), at, at + packet.Length);
    }
  }
  return data;
}

TEST(UsbipServer, AStreamIsTheCamerasByteForByte) {
  RunningServer server;
  const Bytes data = StreamOf(server.Port(), 40);
  EXPECT_GT(data.size(), 600'000U);
  EXPECT_EQ(data, ExpectedStream(40));
}

TEST(UsbipServer, EveryClientHasACameraOfItsOwn) {
  RunningServer server;
  const Bytes expected = ExpectedStream(20);
  std::vector<Bytes> streams(3);
  std::vector<std::thread> clients;
  clients.reserve(streams.size());
  for (Bytes& stream : streams) {
    clients.emplace_back([&] { stream = StreamOf(server.Port(), 20); });
  }
  for (std::thread& client : clients) client.join();
  for (const Bytes& stream : streams) EXPECT_EQ(stream, expected);
}

TEST(UsbipServer, AHundredConnectionsOfRubbishDisturbNoClient) {
  RunningServer server;
  std::atomic<bool> isStreaming = true;
  Bytes stream;
  std::thread client([&] {
    stream = StreamOf(server.Port(), 40);
    isStreaming = false;
  });
  std::mt19937_64 random(20);
  std::uniform_int_distribution<unsigned> byte(0, 255);
  std::vector<Connection> open;
  for (int i = 0; i < 100; ++i) {
    Connection connection(server.Port());
    Bytes rubbish(1 + random() % 5000);
    for (std::uint8_t& each : rubbish) each = static_cast<std::uint8_t>(byte(random));
    // A third sends invalid bytes before the import, a third after it, and a third is cut off and
    // stays open.
    if (i % 3 == 1) connection.Send(wire::ImportRequest());
    if (i % 3 == 2) rubbish = {0x01, 0x11, 0x80};
    connection.Send(rubbish);
    if (i % 3 == 2) {
      open.push_back(std::move(connection));
    } else {
      connection.EndSending();
      const std::size_t reply = connection.Receive(1000).size();
      EXPECT_TRUE(reply == 0 || reply == wire::kImportReplySize) << reply;
    }
  }
  client.join();
  EXPECT_EQ(stream, ExpectedStream(40));
  EXPECT_EQ(StreamOf(server.Port(), 2).size(), ExpectedStream(2).size());
}

TEST(UsbipServer, AClientThatGoesGivesItsCameraBack) {
  CameraSupply::Options options = Simulated();
  options.Limit = 1;
  RunningServer server(options);
  for (int i = 0; i < 5; ++i) {
    // The server notices within a moment that the one before has gone.
    Bytes reply;
    while (reply.size() < wire::kImportReplySize) {
      const Connection connection(server.Port());
      connection.Send(wire::ImportRequest());
      reply = connection.Receive(wire::kImportReplySize);
      ASSERT_TRUE(reply.size() == 8 || reply.size() == wire::kImportReplySize);
    }
  }
}

TEST(UsbipServer, ItsEndClosesAllConnections) {
  RunningServer server;
  const Connection idle(server.Port());
  const Connection attached(server.Port());
  attached.Send(wire::ImportRequest());
  (void)attached.Receive(wire::kImportReplySize);
  attached.Send(wire::Submit({.Endpoint = 1, .Length = 1}));
  server.End();
  EXPECT_TRUE(idle.Receive(1).empty());
  EXPECT_TRUE(attached.Receive(1).empty());
}

TEST(UsbipServer, ItTellsWhyAConnectionEnded) {
  RunningServer server;
  {
    const Connection connection(server.Port());
    connection.Send(Bytes(8, 0xFF));
    EXPECT_TRUE(connection.Receive(1).empty());
  }
  server.End();
  EXPECT_THAT(server.Lines(),
              testing::MatchesRegex("127\\.0\\.0\\.1:[0-9]+: malformed: version 65535\n"));
}

}  // namespace
}  // namespace lidcam::serve::usbip
