// A camera whose packets are disturbed, streamed once and replayed from its recording: both runs
// must come to the same decisions on every frame.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "bus/capture/recording/recording_bus.h"
#include "bus/capture/replay/capture_bus.h"
#include "camera_model/bus_adapter/simulated_bus.h"
#include "library/camera/bring_up/virtual_time.h"
#include "library/camera/streaming/camera_stream.h"
#include "library/settings/host_environment.h"
#include "library/settings/trace_observer.h"
#include "platform/host/nt/registry/registry.h"
#include "platform/host/nt/system/debug_print.h"

namespace lidcam::app {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAreArray;

using Lines = std::vector<std::string>;

constexpr StreamSize kSize{.Delivered = {160, 120}, .Raw = PictureSize{160, 120}};
constexpr std::uint64_t kMicroframes = 3200;  // some twelve frames
constexpr double kLongestRun = 5;             // seconds

/// What one run says of its frames.
struct RunAccount {
  Lines Frames;
  Lines Debug;
  std::vector<std::vector<std::uint8_t>> Pictures;
  bool BrokeOff = false;
};

RunAccount StreamOver(bus::UsbBus& bus) {
  RunAccount account;
  const TraceObserver frameLines([&account](std::string_view line) {
    if (!line.starts_with("frame ") || line.starts_with("frame thread")) return;
    account.Frames.emplace_back(line);
  });
  const host::DebugPrintCapture debug;
  const auto keepPicture = [&account](const StreamFrame& frame) {
    account.Pictures.emplace_back(frame.Yuy2.begin(), frame.Yuy2.end());
  };
  RunInVirtualTime([&] {
    WithStream(bus, {.Size = kSize, .Frames = keepPicture}, [&](CameraStream& stream) {
      while (stream.Counts().Microframes < kMicroframes && stream.Seconds() < kLongestRun &&
             stream.Advance()) {
      }
      account.BrokeOff = stream.Counts().Microframes < kMicroframes;
    });
  });
  account.Debug = debug.Messages();
  return account;
}

/// A fault and its effect on the frames; a frame is 37 packets of 1024 bytes and one of 578.
struct FaultRow {
  std::string Name;
  std::string Faults;      ///< of the fourth frame
  Lines Consequence;       ///< lines from the disturbed frame's end to the next undisturbed frame's
  bool BreaksOff = false;  ///< the transfers that a recovery starts find no pipe for them
};

std::string NameOf(const ::testing::TestParamInfo<FaultRow>& tested) {
  return tested.param.Name;
}

Lines Good() {
  return {"frame end bytes=38466 expected=38466 good", "frame published bytes=38466"};
}

Lines GoodDiscarded() {
  return {"frame end bytes=38466 expected=38466 good", "frame discarded"};
}

Lines Bad(const std::string& bytes) {
  return {"frame end bytes=" + bytes + " expected=38466 bad", "frame published bytes=" + bytes};
}

Lines BadDiscarded(const std::string& bytes) {
  return {"frame end bytes=" + bytes + " expected=38466 bad", "frame discarded"};
}

Lines operator+(Lines left, const Lines& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

class DisturbedCapture : public ::testing::TestWithParam<FaultRow> {
 protected:
  DisturbedCapture() {
    std::string name = (fs::temp_directory_path() / "lidcam-disturbed-XXXXXX").string();
    folder_ = mkdtemp(name.data());
    setenv("LIDCAM_HOME", folder_.c_str(), 1);
    OpenHostEnvironment({}, SetFiles::OfSimulatedCameras);
    static_cast<void>(host::CloseRegistry());
  }
  ~DisturbedCapture() override {
    unsetenv("LIDCAM_HOME");
    fs::remove_all(folder_);
  }

  [[nodiscard]] RunAccount Record(const std::string& faults) const {
    bus::SimulatedBus simulated({});
    simulated.DisturbFrames(bus::ParseFaultScript(faults));
    bus::RecordingBus recording(simulated, CapturePath());
    RunAccount account = StreamOver(recording);
    recording.Finish();
    return account;
  }

  [[nodiscard]] RunAccount Replay() const {
    bus::CaptureBus recorded(bus::CaptureSource{CapturePath()});
    return StreamOver(recorded);
  }

 private:
  [[nodiscard]] std::string CapturePath() const { return (folder_ / "camera.pcap").string(); }

  fs::path folder_;
};

// The stream begins with a settling: frame 0 is lost to it, frames 1 and 2 come undisturbed.
Lines UpToTheDisturbedFrame() {
  return Lines{"frame end bytes=0 expected=38466 settling"} + GoodDiscarded() + Good() + Good();
}

TEST_P(DisturbedCapture, IsReplayedWithTheDecisionsOfTheLiveStream) {
  const FaultRow& row = GetParam();
  const RunAccount live = Record(row.Faults);
  const RunAccount replayed = Replay();

  Lines expected = UpToTheDisturbedFrame() + row.Consequence;
  if (!row.BreaksOff) {
    while (expected.size() < live.Frames.size()) expected = expected + Good();
    EXPECT_GE(live.Frames.size(), 20U) << "frames after the disturbed one are expected";
  }
  EXPECT_THAT(live.Frames, ElementsAreArray(expected));
  EXPECT_THAT(replayed.Frames, ElementsAreArray(live.Frames));
  EXPECT_THAT(replayed.Debug, ElementsAreArray(live.Debug));
  EXPECT_TRUE(replayed.Pictures == live.Pictures);
  EXPECT_EQ(live.BrokeOff, row.BreaksOff);
}

INSTANTIATE_TEST_SUITE_P(
    EveryFault, DisturbedCapture,
    ::testing::Values(
        FaultRow{"Lost", "frame 4 packet 6 lose", Bad("37442") + GoodDiscarded()},
        // The script's bits leave 922 of the packet's 1024 bytes.
        FaultRow{"Short", "frame 4 packet 6 short", Bad("38364") + GoodDiscarded()},
        // Only the last packet has room for more.
        FaultRow{"Oversized", "frame 4 packet 38 oversize", Bad("38912") + GoodDiscarded()},
        FaultRow{"Corrupted", "frame 4 packet 6 corrupt; frame 4 packet 6 error", Good()},
        FaultRow{"MarkerAtHead", "frame 4 packet 6 false-start",
                 Bad("5120") + BadDiscarded("33346") + GoodDiscarded()},
        FaultRow{"MarkerInside", "frame 4 packet 6 marker", Good()},
        FaultRow{"EmptyRun", "frame 4 packet 6 pause 875us", Good()},
        FaultRow{"Silence", "frame 4 packet 6 silence 875us", Bad("31298") + GoodDiscarded()},
        // More than a transfer after the marker: the transfer that halts delivers no packets.
        FaultRow{"Stall", "frame 4 packet 36 stall", {}, true}),
    NameOf);

}  // namespace
}  // namespace lidcam::app
