// The restart of a running stream with width and height exchanged, over a pin of the test's own.

#include "driver/usb/stream/stream_reconfigure.h"
#include "tests/driver/support/statuses.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/driver/usb/support/transport_world.h"

namespace lidcam::test {
namespace {

// Applied formats: the size in the pin's format, and whether the stream was open then.
struct Applied {
  LONG Width;
  LONG Height;
  int Opened;
  bool operator==(const Applied&) const = default;
};
std::vector<Applied> g_applied;
TransportWorld* g_world = nullptr;

NTSTATUS NoteFormat(PKSPIN pin) {
  void* const format = pin->ConnectionFormat;
  const KS_BITMAPINFOHEADER& bitmap =
      static_cast<KS_DATAFORMAT_VIDEOINFOHEADER*>(format)->VideoInfoHeader.bmiHeader;
  g_applied.push_back({bitmap.biWidth, bitmap.biHeight, g_world->Stream().Opened});
  return STATUS_SUCCESS;
}

constexpr PinOperations kPins = {[](PKSPIN) -> std::uint8_t { return 0; }, NoteFormat};

// A stream of 640x480 on a pin with that format.
class RunningStream {
 public:
  explicit RunningStream(TransportWorld& world) : world_(world) {
    g_applied.clear();
    g_world = &world;
    format_.VideoInfoHeader = VideoInfo(640, 480);
    world.Pin.ConnectionFormat = &format_.DataFormat;
    EXPECT_EQ(world.Start(), STATUS_SUCCESS);
    world.Device().Pins = &kPins;
    EXPECT_EQ(world.Acquire(), STATUS_SUCCESS);
    EXPECT_EQ(world.Device().RunStream(), STATUS_SUCCESS);
    world.Log.Clear();
  }

  Status Reconfigure(std::uint32_t swap) {
    return StreamReconfigure(world_.Device().TransportRecord, &swap);
  }

 private:
  TransportWorld& world_;
  KS_DATAFORMAT_VIDEOINFOHEADER format_{};
};

TEST(StreamReconfigure, ExchangesTheStreamsSizeFor0AndKeepsItOtherwiseButAlwaysExchangesThePins) {
  struct Row {
    std::uint32_t Swap;
    std::int32_t Width;
    std::int32_t Height;
  };
  for (const Row& row : {Row{0, 480, 640}, Row{1, 640, 480}, Row{0x100, 640, 480}}) {
    InWorld([&row](TransportWorld& world) {
      RunningStream stream(world);
      EXPECT_EQ(stream.Reconfigure(row.Swap), 0);
      const FormatRequest& format = world.Stream().StreamFormat;
      EXPECT_EQ(format.Width, row.Width);
      EXPECT_EQ(format.Height, row.Height);
      EXPECT_EQ(format.BitCount, 16U);
      EXPECT_EQ(format.Compression, 0x32595559U);
      EXPECT_EQ(format.ImageSize, 614400U);
      EXPECT_EQ(format.AvgTimePerFrame, 333333);
      EXPECT_EQ(g_applied, (std::vector<Applied>{{480, 640, 0}}));
      EXPECT_EQ(world.Record().Pin, &world.Pin);
      EXPECT_EQ(world.Stream().StreamRunning, 1);
      EXPECT_EQ(world.Stack.IsoOut(), 7U);
    });
  }
}

TEST(StreamReconfigure, PausesReleasesAcquiresAndRuns) {
  InWorld([](TransportWorld& world) {
    RunningStream stream(world);
    EXPECT_EQ(stream.Reconfigure(0), 0);
    std::vector<std::string> requests;
    for (const std::string& line : world.Log.Lines()) {
      if (line.rfind("urb ", 0) == 0 && line.rfind("urb iso", 0) != 0) requests.push_back(line);
    }
    EXPECT_THAT(requests, testing::ElementsAre("urb abort pipe 1", "urb vendor requests",
                                               "urb select setting 0", "urb select setting 7",
                                               "urb vendor requests", "urb reset pipe 1",
                                               "urb get frame number"));
  });
}

TEST(StreamReconfigure, OfAStreamThatDoesNotRunDoesNothing) {
  InWorld([](TransportWorld& world) {
    RunningStream stream(world);
    ASSERT_EQ(world.Device().PauseStream(), STATUS_SUCCESS);
    world.Log.Clear();
    EXPECT_EQ(stream.Reconfigure(0), -1);
    EXPECT_TRUE(world.Log.Lines().empty());
    EXPECT_TRUE(g_applied.empty());
    EXPECT_EQ(world.Stream().RestartPending, 1);
  });
}

TEST(StreamReconfigure, FailsWithTheAcquireOrTheRun) {
  for (const USHORT function : {USHORT{0x01}, USHORT{0x1E}}) {
    InWorld([function](TransportWorld& world) {
      RunningStream stream(world);
      world.Stack.Decide = [function](URB& urb) -> std::optional<Verdict> {
        if (urb.UrbHeader.Function != function) return std::nullopt;
        // The setting of the release is left alone.
        if (function == 1 && urb.UrbSelectInterface.Interface.AlternateSetting == 0) {
          return std::nullopt;
        }
        return Verdict{kUnsuccessful};
      };
      EXPECT_EQ(stream.Reconfigure(0), -1);
      EXPECT_EQ(g_applied.size(), 1U);
      EXPECT_EQ(world.Stream().StreamRunning, 0);
      EXPECT_EQ(world.Stream().Opened, 0);
    });
  }
}

TEST(StreamReconfigure, IsTheCamerasThirdCallback) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    EXPECT_EQ(world.Record().Camera->StreamReconfigure, &StreamReconfigure);
  });
}

}  // namespace
}  // namespace lidcam::test
