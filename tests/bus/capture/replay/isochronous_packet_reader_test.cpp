#include "bus/capture/replay/isochronous_packet_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bus/capture/recording/recording_bus.h"
#include "tests/bus/capture/capture_support.h"

namespace lidcam::bus::test {
namespace {

using testing::ElementsAre;

/// A capture with a stream only.
class RecordedPackets : public testing::Test {
 protected:
  void Record(const std::vector<Bytes>& payloads, std::size_t perTransfer = 4) {
    RecordingBus bus{camera_, path_};
    for (const Bytes& payload : payloads) camera_.Packets.push_back({payload, UsbStatus::Ok});
    Bytes buffer(perTransfer * 64);
    std::vector<IsochronousPacket> packets(perTransfer);
    while (!camera_.Packets.empty()) bus.ReadIsochronous(0x82, buffer, packets);
    bus.Finish();
  }

  std::vector<Bytes> Read() {
    IsochronousPacketReader reader{CaptureSource{path_}};
    std::vector<Bytes> payloads;
    IsochronousPayload payload;
    while (reader.Next(payload)) payloads.emplace_back(payload.Data.begin(), payload.Data.end());
    return payloads;
  }

  std::optional<FrameSizeEstimate> Estimate() {
    IsochronousPacketReader reader{CaptureSource{path_}};
    return EstimateRawFrameSize(reader);
  }

  TemporaryFolder folder_;
  const std::string path_ = folder_.Path("a.pcap");
  ScriptedBus camera_;
};

TEST_F(RecordedPackets, ComeInOrderAcrossTransfersEmptyOnesIncluded) {
  const std::vector<Bytes> payloads = {Hex("FF D8 01"), {}, Hex("02"), Hex("03 04"), {}, Hex("05")};
  Record(payloads, 2);
  EXPECT_EQ(Read(), payloads);
}

TEST_F(RecordedPackets, HaveTheirBusTime) {
  Record({Hex("01"), Hex("02"), Hex("03")}, 1);
  IsochronousPacketReader reader{path_, {1, 2}, 0x82};
  IsochronousPayload payload;
  std::vector<std::uint32_t> times;
  while (reader.Next(payload)) times.push_back(payload.Microframe);
  EXPECT_THAT(times, ElementsAre(8000, 8001, 8002));
}

TEST_F(RecordedPackets, OfOtherDevicesAndEndpointsArePassedOver) {
  Record({Hex("01")});
  IsochronousPayload payload;
  EXPECT_FALSE((IsochronousPacketReader{path_, {1, 3}, 0x82}.Next(payload)));
  EXPECT_FALSE((IsochronousPacketReader{path_, {2, 2}, 0x82}.Next(payload)));
  EXPECT_FALSE((IsochronousPacketReader{path_, {1, 2}, 0x81}.Next(payload)));
  EXPECT_TRUE((IsochronousPacketReader{path_, {1, 2}, 0x82}.Next(payload)));
}

TEST_F(RecordedPackets, WithoutAnyTheReaderIsRefused) {
  RecordingBus bus{camera_, path_};
  WriteRegister(bus, 0, 0x0A, 0x11);
  bus.Finish();
  EXPECT_EQ(ErrorOf([&] { IsochronousPacketReader{CaptureSource{path_}}; }),
            path_ + ": device 1.2 sent no isochronous data; record it while the camera streams");
}

// A host that stops a stream cancels its last transfers and ignores their data.
TEST_F(RecordedPackets, OfATransferThatTheHostTookBackAreLeftOut) {
  const auto transfer = [](const char* status) {
    return Hex(std::string("01 00 00 00 00 00 00 00  43 00 82 05  01 00 2D 00"
                           "01 00 00 00 00 00 00 00  00 00 00 00 ") +
               status +
               "02 00 00 00  12 00 00 00  00 00 00 00 01 00 00 00"
               "01 00 00 00  40 1F 00 00  02 02 00 00  01 00 00 00"
               "00 00 00 00  00 00 00 00  02 00 00 00  00 00 00 00"
               "FF D8");
  };
  PcapImage image{220};
  image.Add(transfer("00 00 00 00"));
  image.Add(transfer("FE FF FF FF"));  // unlinked
  image.Add(transfer("98 FF FF FF"));  // unlinked during a wait for it
  WriteFile(path_, image.Image());
  IsochronousPacketReader reader{CaptureSource{path_}};
  IsochronousPayload payload;
  EXPECT_TRUE(reader.Next(payload));
  EXPECT_FALSE(reader.Next(payload));
}

// A capture with a snap length of 134 bytes: 64 of the header, 48 of descriptors, 22 of data.
TEST_F(RecordedPackets, CutByTheCaptureSystemBringWhatIsLeftAndAreCounted) {
  PcapImage image{220};
  image.Add(Hex("01 00 00 00 00 00 00 00  43 00 82 05  01 00 2D 00"
                "01 00 00 00 00 00 00 00  00 00 00 00  00 00 00 00"
                "30 00 00 00  60 00 00 00  00 00 00 00 03 00 00 00"
                "01 00 00 00  40 1F 00 00  02 02 00 00  03 00 00 00"
                "00 00 00 00  00 00 00 00  10 00 00 00  00 00 00 00"
                "00 00 00 00  10 00 00 00  10 00 00 00  00 00 00 00"
                "00 00 00 00  20 00 00 00  10 00 00 00  00 00 00 00"
                "FF D8 00 00 00 00 00 00 00 00 00 00 00 00 00 00  01 02 03 04 05 06"),
            160);
  WriteFile(path_, image.Image());
  IsochronousPacketReader reader{CaptureSource{path_}};
  IsochronousPayload payload;
  ASSERT_TRUE(reader.Next(payload));
  EXPECT_EQ(payload.Data.size(), 16U);
  EXPECT_EQ(payload.Status, UsbStatus::Ok);
  EXPECT_EQ(reader.MissingBytes(), 0U);
  ASSERT_TRUE(reader.Next(payload));
  EXPECT_THAT(payload.Data, ElementsAre(1, 2, 3, 4, 5, 6));
  EXPECT_EQ(payload.Status, UsbStatus::Failed);
  ASSERT_TRUE(reader.Next(payload));
  EXPECT_EQ(payload.Data.size(), 0U);
  EXPECT_EQ(reader.MissingBytes(), 26U);
  EXPECT_FALSE(reader.Next(payload));
}

TEST_F(RecordedPackets, FrameSizeIsTheMostFrequentDistanceOfMarkers) {
  const Bytes marker = Hex("FF D8 01 02");
  const Bytes more = Hex("03 04 05");
  // The first part and the last frame are incomplete; one frame lost a packet.
  Record({more,
          marker,
          more,
          more,
          marker,
          more,
          marker,
          {},
          more,
          more,
          marker,
          more,
          more,
          marker,
          more});
  EXPECT_EQ(Estimate(), (FrameSizeEstimate{10, 3, 4}));
}

TEST_F(RecordedPackets, OfEquallyFrequentFrameSizesTheLargerCounts) {
  const Bytes marker = Hex("FF D8");
  const Bytes more = Hex("03");
  Record({marker, more, more, marker, more, marker});
  EXPECT_EQ(Estimate(), (FrameSizeEstimate{4, 1, 2}));
}

TEST_F(RecordedPackets, MarkerWithinAPacketOrHalfAMarkerBeginsNoFrame) {
  Record({Hex("FF D8"), Hex("00 FF D8"), Hex("FF"), Hex("D8"), Hex("FF D8")});
  EXPECT_EQ(Estimate(), (FrameSizeEstimate{7, 1, 1}));
}

TEST_F(RecordedPackets, OneMarkerGivesNoFrameSize) {
  Record({Hex("FF D8"), Hex("01")});
  EXPECT_EQ(Estimate(), std::nullopt);
}

}  // namespace
}  // namespace lidcam::bus::test
