#include "serve/usbip/usbip_session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tests/serve/supply.h"
#include "tests/serve/usbip/wire.h"

namespace lidcam::serve::usbip {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using wire::Bytes;

/// A client of one session, in a time of its own.
class Client {
 public:
  explicit Client(CameraSupply::Options options = Simulated())
      : supply_(std::move(options)), session_(supply_, now_, [](const std::string&) {}) {}

  void Send(const Bytes& bytes) {
    session_.Receive(bytes);
    session_.Advance(now_);
  }

  void Pass(std::chrono::microseconds time) {
    now_ += time;
    session_.Advance(now_);
  }

  /// All that the server has sent since.
  Bytes Take() { return std::exchange(session_.Output(), {}); }

  Bytes Ask(const Bytes& bytes) {
    Send(bytes);
    return Take();
  }

  void Attach() {
    const Bytes reply = Ask(wire::ImportRequest());
    ASSERT_EQ(reply.size(), wire::kImportReplySize);
  }

  void StartStream(std::uint8_t setting = 1) {
    Attach();
    (void)Ask(wire::SetConfiguration(1));
    (void)Ask(wire::SetInterface(2, setting));
    // From power-up on the sensor runs. The first millisecond carries nothing.
    Send(wire::Stream(3, 8, 128));
    Pass(std::chrono::milliseconds(1));
    (void)Take();
  }

  [[nodiscard]] Session& Server() { return session_; }
  [[nodiscard]] Session::Time Now() const { return now_; }

 private:
  Session::Time now_{1h};
  CameraSupply supply_;
  UsbipSession session_;
};

std::int32_t StatusOf(const Bytes& reply) {
  return static_cast<std::int32_t>(wire::Get(reply, 20));
}

TEST(UsbipSession, AListIsSentAndTheConnectionEnds) {
  Client client;
  const Bytes reply = client.Ask(wire::ListRequest());
  ASSERT_EQ(reply.size(), 8U + 4 + 312 + 4);
  EXPECT_EQ(wire::Get(reply, 0), 0x01110005U);
  EXPECT_EQ(wire::Get(reply, 4), 0U);
  EXPECT_TRUE(client.Server().IsOver());
}

TEST(UsbipSession, AnImportNamesTheDeviceThatWasAskedFor) {
  Client client;
  const Bytes reply = client.Ask(wire::ImportRequest());
  ASSERT_EQ(reply.size(), wire::kImportReplySize);
  EXPECT_EQ(wire::Get(reply, 0), 0x01110003U);
  EXPECT_EQ(wire::Get(reply, 4), 0U);
  EXPECT_EQ(std::string(reply.begin() + 8 + 256, reply.begin() + 8 + 260), std::string("1-1\0", 4));
  EXPECT_FALSE(client.Server().IsOver());
}

TEST(UsbipSession, ADeviceThatIsNotThereIsRefusedInEightBytes) {
  for (const std::string name : {"1-2", "", "1-11", "1"}) {
    Client client;
    EXPECT_THAT(client.Ask(wire::ImportRequest(name)), ElementsAre(1, 0x11, 0, 3, 0, 0, 0, 4));
    EXPECT_TRUE(client.Server().IsOver());
  }
}

TEST(UsbipSession, OnceAllCamerasAreTakenAnImportIsToldBusy) {
  CameraSupply::Options options = Simulated();
  options.Limit = 1;
  CameraSupply supply(options);
  const auto import = [&supply] {
    auto session = std::make_unique<UsbipSession>(supply, Session::Time{}, [](const auto&) {});
    session->Receive(wire::ImportRequest());
    session->Advance(Session::Time{});
    return session;
  };
  auto first = import();
  EXPECT_EQ(first->Output().size(), wire::kImportReplySize);
  EXPECT_THAT(import()->Output(), ElementsAre(1, 0x11, 0, 3, 0, 0, 0, 2));
  first.reset();
  EXPECT_EQ(import()->Output().size(), wire::kImportReplySize);
}

TEST(UsbipSession, ARequestMayComeByteByByte) {
  Client client;
  Bytes reply;
  for (const std::uint8_t byte : wire::ImportRequest()) {
    EXPECT_TRUE(client.Take().empty());
    client.Send({byte});
  }
  EXPECT_EQ(client.Take().size(), wire::kImportReplySize);
}

TEST(UsbipSession, AClientThatAsksForNothingIsLeftAfterFiveSeconds) {
  Client client;
  EXPECT_EQ(client.Server().Deadline(), client.Now() + 5s);
  client.Send({1, 0x11});
  client.Pass(4999ms);
  EXPECT_FALSE(client.Server().IsOver());
  client.Pass(1ms);
  EXPECT_TRUE(client.Server().IsOver());
}

TEST(UsbipSession, TheDeviceDescriptorIsAnswered) {
  Client client;
  client.Attach();
  const Bytes reply = client.Ask(wire::ControlIn(7, {0x80, 6, 0, 1, 0, 0, 64, 0}));
  ASSERT_EQ(reply.size(), 48U + 18);
  EXPECT_EQ(wire::Get(reply, 0), 3U);
  EXPECT_EQ(wire::Get(reply, 4), 7U);
  EXPECT_EQ(StatusOf(reply), 0);
  EXPECT_EQ(wire::Get(reply, 24), 18U);
  EXPECT_EQ(reply[48 + 8], 0xF0);
  EXPECT_EQ(reply[48 + 9], 0x1A);
}

TEST(UsbipSession, AnAnswerIsNoLongerThanTheClientsBuffer) {
  Client client;
  client.Attach();
  const Bytes reply =
      client.Ask(wire::Submit({.Length = 8, .Setup = {0x80, 6, 0, 1, 0, 0, 18, 0}}));
  EXPECT_EQ(reply.size(), 48U + 8);
  EXPECT_EQ(wire::Get(reply, 24), 8U);
}

TEST(UsbipSession, TheNumberOfPacketsOfOtherTransfersIsEchoed) {
  for (const std::uint32_t packets : {0U, 0xFFFFFFFFU}) {
    Client client;
    client.Attach();
    const Bytes reply = client.Ask(
        wire::Submit({.Length = 18, .Packets = packets, .Setup = {0x80, 6, 0, 1, 0, 0, 18, 0}}));
    EXPECT_EQ(wire::Get(reply, 32), packets);
  }
}

TEST(UsbipSession, WhatTheCameraRefusesIsABrokenPipe) {
  Client client;
  client.Attach();
  EXPECT_EQ(StatusOf(client.Ask(wire::ControlIn(1, {0x80, 6, 0, 6, 0, 0, 10, 0}))), -32);
}

TEST(UsbipSession, ASettingThatTheCameraHasNotIsRefused) {
  Client client;
  client.Attach();
  (void)client.Ask(wire::SetConfiguration(1));
  EXPECT_EQ(StatusOf(client.Ask(wire::SetInterface(2, 7))), 0);
  EXPECT_EQ(StatusOf(client.Ask(wire::SetInterface(3, 8))), -32);
  EXPECT_EQ(StatusOf(client.Ask(wire::ControlOut(4, {0x01, 11, 1, 0, 1, 0, 0, 0}))), -32);
}

TEST(UsbipSession, ABusWithoutRoomIsToldSo) {
  Client client(Simulated("sim", "setting 7 refuse"));
  client.Attach();
  (void)client.Ask(wire::SetConfiguration(1));
  EXPECT_EQ(StatusOf(client.Ask(wire::SetInterface(2, 7))), -28);
  EXPECT_EQ(StatusOf(client.Ask(wire::SetInterface(2, 6))), 0);
}

TEST(UsbipSession, RegistersAreWrittenAndRead) {
  Client client;
  client.Attach();
  (void)client.Ask(wire::SetConfiguration(1));
  EXPECT_EQ(StatusOf(client.Ask(wire::ControlOut(2, {0x40, 0xA0, 1, 0, 0xFF, 0xFF, 0, 0}))), 0);
  EXPECT_EQ(StatusOf(client.Ask(wire::ControlOut(3, {0x40, 0xA0, 0x5A, 0, 0x77, 0xFF, 0, 0}))), 0);
  const Bytes reply = client.Ask(wire::ControlIn(4, {0xC0, 0xA1, 0, 0, 0x77, 0xFF, 1, 0}));
  ASSERT_EQ(reply.size(), 49U);
  EXPECT_EQ(reply[48], 0x5A);
}

TEST(UsbipSession, ATransferOfTheStreamIsAnsweredWhenItsPacketsHavePassed) {
  Client client;
  client.StartStream();
  EXPECT_TRUE(client.Ask(wire::Stream(3, 32, 128)).empty());
  EXPECT_EQ(client.Server().Deadline(), client.Now() + 4ms);
  client.Pass(3999us);
  EXPECT_TRUE(client.Take().empty());
  client.Pass(1us);
  const Bytes reply = client.Take();
  ASSERT_GE(reply.size(), 48U + 32 * 16);
  EXPECT_EQ(wire::Get(reply, 4), 3U);
  EXPECT_EQ(StatusOf(reply), 0);
  EXPECT_EQ(wire::Get(reply, 32), 32U);
  EXPECT_EQ(wire::Get(reply, 36), 0U);
}

TEST(UsbipSession, DataAreCompactedAndPacketsKeepTheirPlaces) {
  Client client;
  client.StartStream();
  // 200 bytes are requested for each microframe, of which 128 are received.
  client.Send(wire::Stream(3, 8, 200));
  client.Pass(1ms);
  const Bytes reply = client.Take();
  ASSERT_EQ(reply.size(), 48U + 8 * 128 + 8 * 16);
  EXPECT_EQ(wire::Get(reply, 24), 8U * 128);
  EXPECT_EQ(reply[48], 0xFF);
  EXPECT_EQ(reply[49], 0xD8);
  for (std::uint32_t i = 0; i < 8; ++i) {
    const std::size_t at = 48 + 8 * 128 + i * 16;
    EXPECT_EQ(wire::Get(reply, at), i * 200);
    EXPECT_EQ(wire::Get(reply, at + 4), 200U);
    EXPECT_EQ(wire::Get(reply, at + 8), 128U);
    EXPECT_EQ(wire::Get(reply, at + 12), 0U);
  }
}

TEST(UsbipSession, TransfersFollowEachOtherWithoutAGap) {
  const auto stream = [](std::uint32_t transfers, std::uint32_t packets) {
    Client client;
    client.StartStream();
    Bytes data;
    for (std::uint32_t i = 0; i < transfers; ++i) {
      client.Send(wire::Stream(10 + i, packets, 128));
      client.Pass(10ms);
      const Bytes reply = client.Take();
      const auto length = static_cast<std::ptrdiff_t>(wire::Get(reply, 24));
      data.insert(data.end(), reply.begin() + 48, reply.begin() + 48 + length);
    }
    return data;
  };
  const Bytes whole = stream(1, 64);
  EXPECT_EQ(whole.size(), 64U * 128);
  EXPECT_EQ(stream(16, 4), whole);
}

TEST(UsbipSession, QueuedTransfersAreDueOneBehindTheOther) {
  Client client;
  client.StartStream();
  for (std::uint32_t i = 0; i < 3; ++i) client.Send(wire::Stream(10 + i, 8, 128));
  for (std::uint32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(client.Server().Deadline(), client.Now() + 1ms);
    client.Pass(1ms);
    EXPECT_EQ(wire::Get(client.Take(), 4), 10 + i);
  }
  EXPECT_EQ(client.Server().Deadline(), std::nullopt);
}

TEST(UsbipSession, APacketThatIsLongerThanAskedForIsAnOverflow) {
  Client client;
  client.StartStream();
  client.Send(wire::Stream(3, 1, 100));
  client.Pass(1ms);
  const Bytes reply = client.Take();
  ASSERT_EQ(reply.size(), 48U + 100 + 16);
  EXPECT_EQ(wire::Get(reply, 36), 1U);
  EXPECT_EQ(static_cast<std::int32_t>(wire::Get(reply, 48 + 100 + 12)), -75);
}

TEST(UsbipSession, PacketsWithoutASettingAreErrors) {
  Client client;
  client.Attach();
  client.Send(wire::Stream(3, 2, 100));
  client.Pass(1ms);
  const Bytes reply = client.Take();
  ASSERT_EQ(reply.size(), 48U + 2 * 16);
  EXPECT_EQ(wire::Get(reply, 36), 2U);
  EXPECT_EQ(static_cast<std::int32_t>(wire::Get(reply, 48 + 12)), -71);
}

TEST(UsbipSession, TheInterruptEndpointPendsUntilItIsUnlinked) {
  Client client;
  client.Attach();
  client.Send(wire::Submit({.SequenceNumber = 5, .Endpoint = 1, .Length = 1}));
  client.Pass(1h);
  EXPECT_TRUE(client.Take().empty());
  const Bytes reply = client.Ask(wire::Unlink(6, 5));
  ASSERT_EQ(reply.size(), 48U);
  EXPECT_EQ(wire::Get(reply, 0), 4U);
  EXPECT_EQ(wire::Get(reply, 4), 6U);
  EXPECT_EQ(StatusOf(reply), -104);
}

TEST(UsbipSession, AnUnlinkedTransferIsNotAnsweredAndTheNextOneIs) {
  Client client;
  client.StartStream();
  client.Send(wire::Stream(10, 8, 128));
  client.Send(wire::Stream(11, 8, 128));
  EXPECT_EQ(StatusOf(client.Ask(wire::Unlink(12, 10))), -104);
  client.Pass(2ms);
  const Bytes reply = client.Take();
  EXPECT_EQ(wire::Get(reply, 4), 11U);
  EXPECT_EQ(reply.size(), 48U + 8 * 128 + 8 * 16);
}

TEST(UsbipSession, AnUnlinkThatComesTooLateIsToldSo) {
  Client client;
  client.Attach();
  (void)client.Ask(wire::SetConfiguration(1));
  EXPECT_EQ(StatusOf(client.Ask(wire::Unlink(2, 1))), 0);
  EXPECT_EQ(StatusOf(client.Ask(wire::Unlink(3, 999))), 0);
}

TEST(UsbipSession, OtherEndpointsAreBrokenPipes) {
  Client client;
  client.Attach();
  EXPECT_EQ(StatusOf(client.Ask(wire::Submit({.Endpoint = 3, .Length = 64}))), -32);
  Bytes out = wire::Submit({.Direction = wire::kOut, .Endpoint = 2, .Length = 64});
  out.resize(out.size() + 64);
  EXPECT_EQ(StatusOf(client.Ask(out)), -32);
  // A transfer with packets brings their descriptors back.
  Bytes stream = wire::Stream(4, 2, 64);
  stream[19] = 3;
  const Bytes reply = client.Ask(stream);
  ASSERT_EQ(reply.size(), 48U + 2 * 16);
  EXPECT_EQ(StatusOf(reply), -32);
}

TEST(UsbipSession, ALateAnswerHoldsLaterRequestsButNotTheStream) {
  Client client(Simulated("sim", "control 2 late 300ms"));
  client.StartStream();
  EXPECT_TRUE(client.Ask(wire::ControlIn(5, {0x80, 6, 0, 1, 0, 0, 18, 0})).empty());
  EXPECT_TRUE(client.Ask(wire::ControlIn(6, {0x80, 6, 0, 1, 0, 0, 18, 0})).empty());
  client.Send(wire::Stream(7, 8, 128));
  client.Pass(1ms);
  EXPECT_EQ(wire::Get(client.Take(), 4), 7U);
  client.Pass(298ms);
  EXPECT_TRUE(client.Take().empty());
  client.Pass(1ms);
  const Bytes replies = client.Take();
  ASSERT_EQ(replies.size(), 2U * (48 + 18));
  EXPECT_EQ(wire::Get(replies, 4), 5U);
  EXPECT_EQ(wire::Get(replies, 48 + 18 + 4), 6U);
}

TEST(UsbipSession, ASilentRequestPendsUntilItIsUnlinked) {
  Client client(Simulated("sim", "control 1 silent"));
  client.Attach();
  EXPECT_TRUE(client.Ask(wire::ControlIn(5, {0x80, 6, 0, 1, 0, 0, 18, 0})).empty());
  EXPECT_EQ(client.Server().Deadline(), std::nullopt);
  client.Pass(1h);
  EXPECT_TRUE(client.Take().empty());
  EXPECT_EQ(StatusOf(client.Ask(wire::Unlink(6, 5))), -104);
  EXPECT_EQ(client.Ask(wire::ControlIn(7, {0x80, 6, 0, 1, 0, 0, 18, 0})).size(), 48U + 18);
}

TEST(UsbipSession, ASilentReadPendsUntilItIsUnlinkedAndTheNextOneIsAnswered) {
  Client client(Simulated("sim", "at 1ms silent"));
  client.StartStream();
  client.Send(wire::Stream(5, 8, 128));
  client.Send(wire::Stream(6, 8, 128));
  client.Pass(2ms);
  EXPECT_EQ(wire::Get(client.Take(), 4), 6U);
  EXPECT_EQ(StatusOf(client.Ask(wire::Unlink(7, 5))), -104);
}

TEST(UsbipSession, AnUnpluggedCameraEndsTheConnection) {
  Client client(Simulated("sim", "at 3ms unplug"));
  client.StartStream();
  client.Send(wire::Stream(5, 8, 128));
  client.Send(wire::Stream(6, 32, 128));
  client.Pass(1ms);
  EXPECT_EQ(wire::Get(client.Take(), 4), 5U);
  client.Pass(4ms);
  EXPECT_TRUE(client.Take().empty());
  EXPECT_TRUE(client.Server().IsOver());
  EXPECT_EQ(client.Server().End(), "the camera was unplugged");
}

struct MalformedCase {
  const char* What;
  Bytes Message;
  const char* Told;
};

void PrintTo(const MalformedCase& one, std::ostream* to) {
  *to << one.What;
}

Bytes WithPacket(std::uint32_t offset, std::uint32_t length) {
  Bytes bytes = wire::Submit({.Endpoint = 2, .Length = 1000, .Packets = 1});
  for (const std::uint32_t number : {offset, length, 0U, 0U}) wire::Put(bytes, number);
  return bytes;
}

class MalformedRequest : public testing::TestWithParam<MalformedCase> {};

TEST_P(MalformedRequest, EndsTheConnection) {
  Client client;
  client.Attach();
  try {
    client.Send(GetParam().Message);
    FAIL() << "nothing was thrown";
  } catch (const ProtocolError& error) {
    EXPECT_THAT(error.what(), HasSubstr(GetParam().Told));
  }
}

INSTANTIATE_TEST_SUITE_P(
    UsbipSession, MalformedRequest,
    testing::Values(
        MalformedCase{"command 0", wire::Submit({.Command = 0}), "command 0"},
        MalformedCase{"a reply", wire::Submit({.Command = 3}), "command 3"},
        MalformedCase{"another device", wire::Submit({.Device = 0x10003}), "device 65539"},
        MalformedCase{"direction 2", wire::Submit({.Direction = 2}), "direction 2"},
        MalformedCase{"endpoint 16", wire::Submit({.Endpoint = 16}), "endpoint 16"},
        MalformedCase{"1025 packets", wire::Submit({.Endpoint = 2, .Packets = 1025}),
                      "number of packets 1025"},
        MalformedCase{"4 GiB IN", wire::Submit({.Endpoint = 2, .Length = 0xFFFFFFFF}),
                      "transfer length 4294967295"},
        MalformedCase{"64 KiB OUT", wire::Submit({.Direction = wire::kOut, .Length = 0x10000}),
                      "transfer length 65536"},
        MalformedCase{
            "IN by OUT",
            wire::Submit({.Direction = wire::kOut, .Setup = {0x80, 6, 0, 1, 0, 0, 18, 0}}),
            "direction of a control request"},
        MalformedCase{"a data stage that is short",
                      wire::Submit({.Direction = wire::kOut, .Setup = {0x40, 1, 0, 0, 0, 0, 9, 0}}),
                      "data stage 0"},
        MalformedCase{"a packet behind the buffer", WithPacket(1001, 0), "packet offset 1001"},
        MalformedCase{"a packet across the end", WithPacket(900, 101), "packet length 101"},
        MalformedCase{"a packet that wraps", WithPacket(900, 0xFFFFFFFF),
                      "packet length 4294967295"}));

TEST(UsbipSession, AnotherVersionOrOperationEndsTheConnection) {
  for (const Bytes& message :
       {Bytes{0x01, 0x10, 0x80, 0x05, 0, 0, 0, 0}, Bytes{0x01, 0x11, 0x80, 0x04, 0, 0, 0, 0},
        Bytes{0x01, 0x11, 0x00, 0x05, 0, 0, 0, 0}, Bytes(8, 0xFF)}) {
    Client client;
    EXPECT_THROW(client.Send(message), ProtocolError);
  }
}

TEST(UsbipSession, TooManyPendingRequestsEndTheConnection) {
  Client client;
  client.Attach();
  for (std::uint32_t i = 0; i < kMostPendingRequests; ++i) {
    client.Send(wire::Submit({.SequenceNumber = i, .Endpoint = 1, .Length = 1}));
  }
  EXPECT_THROW(client.Send(wire::Submit({.Endpoint = 1, .Length = 1})), ProtocolError);
}

TEST(UsbipSession, TooManyPendingBytesEndTheConnection) {
  Client client;
  client.Attach();
  const Bytes stream = wire::Stream(3, 1024, 1);
  for (int i = 0; i < 256; ++i) client.Send(stream);
  EXPECT_THROW(client.Send(stream), ProtocolError);
}

TEST(UsbipSession, UnlinkedTransfersAreNoLongerKept) {
  Client client;
  client.Attach();
  for (std::uint32_t i = 0; i < 1000; ++i) {
    client.Send(wire::Stream(i, 1024, 1));
    EXPECT_EQ(StatusOf(client.Ask(wire::Unlink(i + 5000, i))), -104);
  }
}

// A client that sends and never reads makes the server stop reading rather than keep its answers.
TEST(UsbipSession, AnswersThatAreNotReadStopTheReading) {
  Client client;
  client.Attach();
  Bytes requests;
  for (std::uint32_t i = 0; i < 100; ++i) {
    const Bytes one = wire::ControlIn(i, {0x80, 6, 0, 2, 0, 0, 0xFF, 0xFF});
    requests.insert(requests.end(), one.begin(), one.end());
  }
  while (client.Server().InputRoom() >= requests.size()) client.Send(requests);
  const std::size_t kept = client.Server().Output().size();
  EXPECT_GE(kept, 256U * 1024);
  EXPECT_LT(kept, 512U * 1024);
  std::size_t all = kept;
  for (client.Take();; all += client.Take().size()) {
    client.Pass(0us);
    if (client.Server().Output().empty()) break;
  }
  EXPECT_EQ(client.Server().InputRoom(), 192U * 1024);
  EXPECT_EQ(all % (48 + 193), 0U);
}

}  // namespace
}  // namespace lidcam::serve::usbip
