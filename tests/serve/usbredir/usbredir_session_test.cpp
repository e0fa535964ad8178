#include "serve/usbredir/usbredir_session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>

#include "tests/serve/supply.h"
#include "tests/serve/usbredir/guest.h"

namespace lidcam::serve::usbredir {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using Bytes = std::vector<std::uint8_t>;

/// A guest and its session, in a time of their own.
class Connection {
 public:
  explicit Connection(CameraSupply::Options options = Simulated())
      : supply_(std::move(options)), session_(supply_, now_, [](const std::string&) {}) {}

  /// What the guest has sent reaches the session, and its answers the guest.
  std::vector<std::string> Exchange() {
    const Bytes sent = guest_.TakeOutput();
    std::span<const std::uint8_t> left(sent);
    do {
      const std::size_t some = std::min(left.size(), session_.InputRoom());
      session_.Receive(left.first(some));
      left = left.subspan(some);
      session_.Advance(now_);
      guest_.Take(std::exchange(session_.Output(), {}));
    } while (!left.empty());
    return guest_.TakeLines();
  }

  std::vector<std::string> Pass(std::chrono::microseconds time) {
    now_ += time;
    return Exchange();
  }

  std::vector<std::string> Control(std::uint64_t id, const bus::SetupPacket& setup,
                                   Bytes data = {}) {
    usb_redir_control_packet_header header{
        .endpoint = static_cast<std::uint8_t>(setup.RequestType & 0x80),
        .request = setup.Request,
        .requesttype = setup.RequestType,
        .status = 0,
        .value = setup.Value,
        .index = setup.Index,
        .length = setup.Length};
    usbredirparser_send_control_packet(guest_.Parser(), id, &header, data.data(),
                                       static_cast<int>(data.size()));
    return Exchange();
  }

  std::vector<std::string> Configure() {
    usb_redir_set_configuration_header header{1};
    usbredirparser_send_set_configuration(guest_.Parser(), 1, &header);
    return Exchange();
  }

  std::vector<std::string> SelectSetting(std::uint8_t setting) {
    usb_redir_set_alt_setting_header header{0, setting};
    usbredirparser_send_set_alt_setting(guest_.Parser(), 2, &header);
    return Exchange();
  }

  std::vector<std::string> StartStream(std::uint8_t endpoint = 0x82) {
    usb_redir_start_iso_stream_header header{endpoint, 32, 4};
    usbredirparser_send_start_iso_stream(guest_.Parser(), 3, &header);
    return Exchange();
  }

  std::vector<std::string> StopStream() {
    usb_redir_stop_iso_stream_header header{0x82};
    usbredirparser_send_stop_iso_stream(guest_.Parser(), 4, &header);
    return Exchange();
  }

  /// A stream of setting 1, past its first millisecond, which carries nothing.
  void Stream() {
    (void)Exchange();
    (void)Configure();
    (void)SelectSetting(1);
    (void)StartStream();
    EXPECT_THAT(Pass(1ms), SizeIs(8));
  }

  [[nodiscard]] Guest& Client() { return guest_; }
  [[nodiscard]] UsbredirSession& Server() { return session_; }
  [[nodiscard]] Session::Time Now() const { return now_; }
  void Wait(std::chrono::microseconds time) { now_ += time; }

 private:
  Session::Time now_{1h};
  CameraSupply supply_;
  UsbredirSession session_;
  Guest guest_;
};

TEST(UsbredirSession, TheCameraIsPluggedInOnceTheGuestHasSaidHello) {
  Connection connection;
  EXPECT_THAT(connection.Exchange(),
              ElementsAre("hello lidcam", "interfaces 1: 0 class ff", "endpoints",
                          "device 1af0:0511 speed 2 class ff release 0100"));
}

TEST(UsbredirSession, EndpointsAreThoseOfTheSettingInForce) {
  Connection connection;
  (void)connection.Exchange();
  EXPECT_THAT(connection.Configure(),
              ElementsAre("interfaces 1: 0 class ff", "endpoints", "1 configuration 1 status 0"));
  EXPECT_THAT(connection.SelectSetting(4),
              ElementsAre("endpoints", "2 interface 0 setting 4 status 0"));
  const usb_redir_ep_info_header& endpoints = connection.Client().Endpoints;
  for (int place = 0; place < 32; ++place) {
    const bool isControl = place == 0 || place == 16;
    const int type = isControl ? 0 : place == 17 ? 3 : place == 18 ? 1 : 255;
    EXPECT_EQ(endpoints.type[place], type) << place;
  }
  EXPECT_EQ(endpoints.max_packet_size[0], 64);
  EXPECT_EQ(endpoints.max_packet_size[16], 64);
  EXPECT_EQ(endpoints.max_packet_size[17], 1);
  EXPECT_EQ(endpoints.interval[17], 9);
  // 768 bytes and one transaction more.
  EXPECT_EQ(endpoints.max_packet_size[18], 0x0B00);
  EXPECT_EQ(endpoints.interval[18], 1);
}

TEST(UsbredirSession, ASettingThatTheCameraHasNotStalls) {
  Connection connection;
  (void)connection.Exchange();
  (void)connection.Configure();
  EXPECT_THAT(connection.SelectSetting(8),
              ElementsAre("endpoints", "2 interface 0 setting 8 status 4"));
}

TEST(UsbredirSession, ConfigurationAndSettingCanBeAskedFor) {
  Connection connection;
  (void)connection.Exchange();
  (void)connection.Configure();
  (void)connection.SelectSetting(3);
  usbredirparser_send_get_configuration(connection.Client().Parser(), 7);
  usb_redir_get_alt_setting_header header{0};
  usbredirparser_send_get_alt_setting(connection.Client().Parser(), 8, &header);
  EXPECT_THAT(connection.Exchange(),
              ElementsAre("7 configuration 1 status 0", "8 interface 0 setting 3 status 0"));
}

TEST(UsbredirSession, ControlRequestsAreAnswered) {
  Connection connection;
  (void)connection.Exchange();
  EXPECT_THAT(connection.Control(5, {0x80, 6, 0x0100, 0, 8}),
              ElementsAre("5 control 80 status 0 length 8: 12 01 00 02 ff 00 00 40"));
  EXPECT_THAT(connection.Control(6, {0x80, 6, 0x0600, 0, 10}),
              ElementsAre("6 control 80 status 4 length 0:"));
  EXPECT_THAT(connection.Control(7, {0x40, 0xA0, 1, 0xFFFF, 0}),
              ElementsAre("7 control 00 status 0 length 0:"));
  EXPECT_THAT(connection.Control(8, {0x40, 0xA0, 0x5A, 0xFF77, 0}),
              ElementsAre("8 control 00 status 0 length 0:"));
  EXPECT_THAT(connection.Control(9, {0xC0, 0xA1, 0, 0xFF77, 1}),
              ElementsAre("9 control 80 status 0 length 1: 5a"));
}

TEST(UsbredirSession, EightPacketsGoOutEachMillisecondOfTheClock) {
  Connection connection;
  connection.Stream();
  EXPECT_EQ(connection.Server().Deadline(), connection.Now() + 1ms);
  EXPECT_THAT(connection.Pass(999us), IsEmpty());
  const auto lines = connection.Pass(1us);
  ASSERT_THAT(lines, SizeIs(8));
  EXPECT_EQ(lines.front(), "8 packet 82 status 0 length 128");
  EXPECT_EQ(lines.back(), "15 packet 82 status 0 length 128");
  const Bytes stream = connection.Client().TakeStream();
  EXPECT_EQ(stream[0], 0xFF);
  EXPECT_EQ(stream[1], 0xD8);
}

TEST(UsbredirSession, TimeThatABusyMachineLostIsMadeUpForToThirtyMilliseconds) {
  Connection connection;
  connection.Stream();
  EXPECT_THAT(connection.Pass(20ms), SizeIs(160));
  EXPECT_THAT(connection.Pass(1h), SizeIs(testing::Le(32 * 8)));
  EXPECT_THAT(connection.Pass(1ms), SizeIs(8));
}

TEST(UsbredirSession, TheStreamIsTheCamerasByteForByte) {
  Connection connection;
  (void)connection.Exchange();
  (void)connection.Configure();
  (void)connection.SelectSetting(7);
  (void)connection.StartStream();
  for (int i = 0; i < 100; ++i) (void)connection.Pass(1ms);
  const auto bus = bus::MakeSimulatedBus({}, bus::Pacing::FreeRunning);
  (void)bus->ControlTransfer({0x00, 9, 1, 0, 0}, {});
  (void)bus->SelectSetting(0, 7);
  Bytes expected;
  Bytes buffer(800 * 3072);
  std::vector<bus::IsochronousPacket> packets(800);
  (void)bus->ReadIsochronous(0x82, buffer, packets);
  for (const auto& packet : packets) {
    const auto at = buffer.begin() + packet.Offset;
    expected.insert(expected.end(), at, at + packet.Length);
  }
  EXPECT_GT(expected.size(), 1'000'000U);
  EXPECT_EQ(connection.Client().TakeStream(), expected);
}

TEST(UsbredirSession, AStreamEndsWhenItIsStoppedOrTheSettingChanges) {
  Connection connection;
  connection.Stream();
  EXPECT_THAT(connection.StopStream(), ElementsAre("4 stream 82 status 0"));
  EXPECT_THAT(connection.Pass(1s), IsEmpty());
  EXPECT_THAT(connection.StartStream(), ElementsAre("3 stream 82 status 0"));
  EXPECT_THAT(connection.Pass(1ms), SizeIs(8));
  (void)connection.SelectSetting(0);
  EXPECT_THAT(connection.Pass(1s), IsEmpty());
}

TEST(UsbredirSession, AStreamWithoutASettingOrOfAnotherEndpointIsRefused) {
  Connection connection;
  (void)connection.Exchange();
  (void)connection.Configure();
  EXPECT_THAT(connection.StartStream(), ElementsAre("3 stream 82 status 2"));
  (void)connection.SelectSetting(1);
  EXPECT_THAT(connection.StartStream(0x81), ElementsAre("3 stream 81 status 2"));
  EXPECT_THAT(connection.Pass(1s), IsEmpty());
}

TEST(UsbredirSession, TheInterruptEndpointIsReceivedFromAndTellsNothing) {
  Connection connection;
  (void)connection.Exchange();
  usb_redir_start_interrupt_receiving_header header{0x81};
  usbredirparser_send_start_interrupt_receiving(connection.Client().Parser(), 5, &header);
  EXPECT_THAT(connection.Exchange(), ElementsAre("5 interrupt 81 status 0"));
  EXPECT_THAT(connection.Pass(1h), IsEmpty());
  header.endpoint = 0x82;
  usbredirparser_send_start_interrupt_receiving(connection.Client().Parser(), 6, &header);
  EXPECT_THAT(connection.Exchange(), ElementsAre("6 interrupt 82 status 2"));
}

TEST(UsbredirSession, AStalledStreamIsToldAndEnds) {
  CameraSupply::Options options;
  options.Plug = [] {
    auto bus = bus::MakeSimulatedBus({}, bus::Pacing::FreeRunning);
    bus->DisturbFrames(bus::ParseFaultScript("frame 1 packet 10 stall"));
    return bus;
  };
  Connection connection(options);
  connection.Stream();
  std::vector<std::string> lines;
  for (int i = 0; i < 3; ++i) {
    for (std::string& line : connection.Pass(1ms)) lines.push_back(std::move(line));
  }
  ASSERT_FALSE(lines.empty());
  EXPECT_THAT(lines.back(), HasSubstr("stream 82 status 4"));
  EXPECT_THAT(connection.Pass(1s), IsEmpty());
}

TEST(UsbredirSession, ALateAnswerComesLateAndCanBeCancelled) {
  Connection connection(Simulated("sim", "control 1 late 300ms; control 3 silent"));
  (void)connection.Exchange();
  EXPECT_THAT(connection.Control(5, {0x80, 8, 0, 0, 1}), IsEmpty());
  EXPECT_THAT(connection.Pass(299ms), IsEmpty());
  EXPECT_THAT(connection.Pass(1ms), ElementsAre("5 control 80 status 0 length 1: 00"));
  usbredirparser_send_cancel_data_packet(connection.Client().Parser(), 5);
  EXPECT_THAT(connection.Control(6, {0x80, 8, 0, 0, 1}),
              ElementsAre("6 control 80 status 0 length 1: 00"));
  EXPECT_THAT(connection.Control(7, {0x80, 8, 0, 0, 1}), IsEmpty());
  EXPECT_THAT(connection.Pass(1h), IsEmpty());
  usbredirparser_send_cancel_data_packet(connection.Client().Parser(), 7);
  EXPECT_THAT(connection.Exchange(), ElementsAre("7 control 80 status 1 length 0:"));
}

TEST(UsbredirSession, AnUnpluggedCameraIsToldAndTheConnectionEnds) {
  Connection connection(Simulated("sim", "at 3ms unplug"));
  connection.Stream();
  std::vector<std::string> lines;
  for (int i = 0; i < 5; ++i) {
    for (std::string& line : connection.Pass(1ms)) lines.push_back(std::move(line));
  }
  EXPECT_EQ(lines.back(), "unplugged");
  EXPECT_EQ(connection.Server().End(), "the camera was unplugged");
}

TEST(UsbredirSession, OnceAllCamerasAreTakenTheConnectionEnds) {
  CameraSupply::Options options = Simulated();
  options.Limit = 0;
  Connection connection(options);
  EXPECT_THAT(connection.Exchange(), ElementsAre("hello lidcam"));
  EXPECT_EQ(connection.Server().End(), "all cameras are taken");
}

TEST(UsbredirSession, AClientWithoutAHelloIsLeftAfterFiveSeconds) {
  CameraSupply supply(Simulated());
  UsbredirSession session(supply, Session::Time{}, [](const std::string&) {});
  session.Advance(Session::Time{} + 4999ms);
  EXPECT_FALSE(session.IsOver());
  session.Advance(Session::Time{} + 5s);
  EXPECT_TRUE(session.IsOver());
}

TEST(UsbredirSession, BusTimeStandsStillWhileNothingIsRead) {
  Connection connection;
  (void)connection.Exchange();
  (void)connection.Configure();
  (void)connection.SelectSetting(7);
  (void)connection.StartStream();
  UsbredirSession& server = connection.Server();
  for (int i = 0; i < 1000; ++i) {
    connection.Wait(1ms);
    server.Advance(connection.Now());
  }
  EXPECT_GE(server.Output().size(), 256U * 1024);
  EXPECT_LT(server.Output().size(), 320U * 1024);
}

Bytes Hello() {
  Guest guest;
  return guest.TakeOutput();
}

struct MalformedCase {
  const char* What;
  Bytes Message;
};

void PrintTo(const MalformedCase& one, std::ostream* to) {
  *to << one.What;
}

class MalformedMessage : public testing::TestWithParam<MalformedCase> {};

TEST_P(MalformedMessage, EndsTheConnection) {
  CameraSupply supply(Simulated());
  UsbredirSession session(supply, Session::Time{}, [](const std::string&) {});
  session.Receive(Hello());
  session.Advance(Session::Time{});
  session.Receive(GetParam().Message);
  EXPECT_THROW(session.Advance(Session::Time{}), ProtocolError);
}

// Type, length and id, in little-endian order.
INSTANTIATE_TEST_SUITE_P(
    UsbredirSession, MalformedMessage,
    testing::Values(
        MalformedCase{"an unknown type", {200, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        MalformedCase{"a length of 128 MiB", {100, 0, 0, 0, 0, 0, 0, 8, 1, 0, 0, 0}},
        MalformedCase{"a length of 80 KiB and a byte", {100, 0, 0, 0, 1, 0x40, 1, 0, 1, 0, 0, 0}},
        MalformedCase{"a header that is short", {6, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0}},
        MalformedCase{"what only a device sends",
                      {1, 0, 0, 0, 10, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        MalformedCase{"a data stage that is short", {100, 0, 0,    0,    10, 0, 0, 0, 1, 0, 0,
                                                     0,   0, 0xA0, 0x40, 0,  0, 0, 0, 0, 5, 0}}));

TEST(UsbredirSession, RequestsAheadOfTheHelloEndTheConnection) {
  CameraSupply supply(Simulated());
  UsbredirSession session(supply, Session::Time{}, [](const std::string&) {});
  session.Receive(Bytes{7, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0});
  EXPECT_THROW(session.Advance(Session::Time{}), ProtocolError);
}

TEST(UsbredirSession, TooManyPendingRequestsEndTheConnection) {
  Connection connection(Simulated("sim", "control 1 silent"));
  (void)connection.Exchange();
  for (std::uint64_t i = 0; i < kMostPendingRequests; ++i) {
    EXPECT_THAT(connection.Control(i, {0x80, 8, 0, 0, 1}), IsEmpty());
  }
  EXPECT_THROW((void)connection.Control(0, {0x80, 8, 0, 0, 1}), ProtocolError);
}

TEST(UsbredirSession, AGuestThatRefusesTheDeviceEndsTheConnection) {
  CameraSupply supply(Simulated());
  UsbredirSession session(supply, Session::Time{}, [](const std::string&) {});
  Guest guest;
  session.Receive(guest.TakeOutput());
  session.Receive(Bytes{22, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
  session.Advance(Session::Time{});
  EXPECT_TRUE(session.IsOver());
}

}  // namespace
}  // namespace lidcam::serve::usbredir
