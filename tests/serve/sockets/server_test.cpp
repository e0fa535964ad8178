#include "serve/sockets/server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

namespace lidcam::serve {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

/// A folder of the test's own.
class Folder {
 public:
  Folder() {
    std::string name = testing::TempDir() + "lidcam-XXXXXX";
    path_ = mkdtemp(name.data());
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  [[nodiscard]] std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

bool CanConnect(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());
  const Descriptor client(socket(AF_UNIX, SOCK_STREAM, 0));
  return connect(client.Number(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) ==
         0;
}

TEST(Listener, TellsThePortThatItHas) {
  EXPECT_THAT(Listener::OnAddress("127.0.0.1:0").Name(),
              MatchesRegex("127\\.0\\.0\\.1:[1-9][0-9]*"));
}

TEST(Listener, OtherMachinesReachOnlyWhatIsNotLoopback) {
  EXPECT_FALSE(Listener::OnAddress("127.0.0.1:0").IsReachable());
  EXPECT_FALSE(Listener::OnAddress("127.1.2.3:0").IsReachable());
  EXPECT_TRUE(Listener::OnAddress("0.0.0.0:0").IsReachable());
}

TEST(Listener, AnAddressHasAHostAndAPort) {
  for (const char* const wrong : {"", "3240", ":3240", "127.0.0.1", "127.0.0.1:", "127.0.0.1:65536",
                                  "127.0.0.1:-1", "127.0.0.1:x", "::1:3240"}) {
    EXPECT_THROW((void)Listener::OnAddress(wrong), std::invalid_argument) << wrong;
  }
}

TEST(Listener, APortThatIsTakenIsToldWithItsAddress) {
  const Listener first = Listener::OnAddress("127.0.0.1:0");
  try {
    (void)Listener::OnAddress(first.Name());
    FAIL();
  } catch (const SocketError& error) {
    EXPECT_EQ(std::string(error.what()),
              "can't listen on '" + first.Name() + "': Address already in use");
  }
}

TEST(Listener, ASocketOfTheFileSystemGoesWithIt) {
  const Folder folder;
  const std::string path = folder / "camera";
  {
    const Listener listener = Listener::OnPath(path);
    EXPECT_FALSE(listener.IsReachable());
    EXPECT_TRUE(CanConnect(path));
  }
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(Listener, ASocketThatAKilledServerLeftIsReplaced) {
  const Folder folder;
  const std::string path = folder / "camera";
  {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    const Descriptor left(socket(AF_UNIX, SOCK_STREAM, 0));
    ASSERT_EQ(bind(left.Number(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  }
  const Listener listener = Listener::OnPath(path);
  EXPECT_TRUE(CanConnect(path));
}

TEST(Listener, ASocketInUseAndAFileAreKept) {
  const Folder folder;
  const std::string path = folder / "camera";
  const Listener listener = Listener::OnPath(path);
  EXPECT_THROW((void)Listener::OnPath(path), SocketError);
  EXPECT_TRUE(CanConnect(path));
  const std::string file = folder / "file";
  std::ofstream(file) << "text";
  EXPECT_THROW((void)Listener::OnPath(file), SocketError);
  EXPECT_EQ(std::filesystem::file_size(file), 4U);
}

TEST(Listener, APathThatIsTooLongIsToldSo) {
  try {
    (void)Listener::OnPath("/tmp/" + std::string(200, 'x'));
    FAIL();
  } catch (const SocketError& error) {
    EXPECT_THAT(error.what(), HasSubstr("File name too long"));
  }
}

/// Echoes its input, and ends after a full stop.
class EchoSession final : public Session {
 public:
  void Receive(std::span<const std::uint8_t> bytes) override {
    Output().insert(Output().end(), bytes.begin(), bytes.end());
    if (bytes.back() == '.') Finish("a full stop");
  }
  [[nodiscard]] std::size_t InputRoom() const override { return 10; }
  void Advance(Time /*now*/) override {}
  [[nodiscard]] std::optional<Time> Deadline() const override { return std::nullopt; }
};

Descriptor Connected(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());
  Descriptor client(socket(AF_UNIX, SOCK_STREAM, 0));
  EXPECT_EQ(connect(client.Number(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
            0);
  return client;
}

TEST(Server, BeyondTheLimitAConnectionIsClosedAtOnce) {
  const Folder folder;
  const std::string path = folder / "echo";
  std::string told;
  Server server(
      Listener::OnPath(path),
      {.Make = [](Session::Time, const Server::Log&) { return std::make_unique<EchoSession>(); },
       .Tell = [&told](const std::string& line) { told += line + "\n"; },
       .ConnectionLimit = 2});
  std::thread thread([&server] { server.Run([] { return false; }); });
  const Descriptor first = Connected(path);
  const Descriptor second = Connected(path);
  const Descriptor third = Connected(path);
  char byte = 0;
  EXPECT_EQ(recv(third.Number(), &byte, 1, 0), 0);
  EXPECT_EQ(send(second.Number(), "x", 1, MSG_NOSIGNAL), 1);
  EXPECT_EQ(recv(second.Number(), &byte, 1, 0), 1);
  server.Stop();
  thread.join();
  EXPECT_THAT(told, HasSubstr("a local client: refused: there are 2 connections\n"));
}

TEST(Server, WhatIsLeftToSendIsSentAheadOfTheEnd) {
  const Folder folder;
  const std::string path = folder / "echo";
  std::string told;
  Server server(
      Listener::OnPath(path),
      {.Make = [](Session::Time, const Server::Log&) { return std::make_unique<EchoSession>(); },
       .Tell = [&told](const std::string& line) { told += line + "\n"; }});
  std::thread thread([&server] { server.Run([] { return false; }); });
  const Descriptor client = Connected(path);
  EXPECT_EQ(send(client.Number(), "hello.", 6, MSG_NOSIGNAL), 6);
  std::array<char, 16> bytes{};
  EXPECT_EQ(recv(client.Number(), bytes.data(), bytes.size(), MSG_WAITALL), 6);
  server.Stop();
  thread.join();
  EXPECT_EQ(told, "a local client: a full stop\n");
}

}  // namespace
}  // namespace lidcam::serve
