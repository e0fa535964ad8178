#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <optional>

#include "driver/core/base/camera_trace.h"
#include "driver/core/base/reference_counted_memory.h"
#include "driver/frame/delivery/frame_delivery.h"
#include "tests/driver/avstream/support/surface_world.h"
#include "tests/driver/support/register_space.h"

namespace lidcam::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;

constexpr auto kPending = static_cast<NTSTATUS>(0x103);
constexpr auto kNothing = static_cast<NTSTATUS>(0xC0000001);
constexpr auto kCancelled = static_cast<NTSTATUS>(0xC0000120);
constexpr ULONG kPicture = 640 * 480 * 2;
constexpr std::uint32_t kRawBytes = 64 + kPicture;

std::optional<Status> g_deliveryResult;  // returned after the delivery's work, in place of its own

/// A running pin with a camera of native size behind it, whose raw frame is published.
class ProcessWorld {
 public:
  explicit ProcessWorld(SurfaceWorld& world, bool hasClock = true, LONG width = 640,
                        LONG height = 480)
      : world_(world), pin_(world, MakeFormat(width, height)) {
    CameraContext& camera = space_.Context();
    camera.RawSizeMode = 1;
    camera.RequestedWidth = width;
    camera.RequestedHeight = height;
    camera.RequestedCompression = kClientYuy2;
    world.Device.Camera = &camera;
    if (hasClock) world.Ks.Clock = &Clock;
    raw_ = AllocateReferenceCountedMemory(kRawBytes);
    auto* const bytes = static_cast<std::uint8_t*>(raw_->Block);
    for (std::size_t i = 64; i < kRawBytes; ++i) bytes[i] = static_cast<std::uint8_t>(i % 251);
    world.Device.SetFrameMemory(raw_);
    world.Device.PublishRawFrame(bytes, kRawBytes);
    EXPECT_EQ(pin_.Create(), STATUS_SUCCESS);
    pin_.SetState(1, 0);
    pin_.SetState(2, 1);
    pin_.SetState(3, 2);
    world.Ks.Calls.clear();
  }
  ~ProcessWorld() {
    pin_.SetState(0, 1);
    world_.Device.SetFrameMemory(nullptr);
    if (raw_ != nullptr) GiveUp(*raw_);
    world_.Device.Camera = nullptr;
  }
  ProcessWorld(const ProcessWorld&) = delete;
  ProcessWorld& operator=(const ProcessWorld&) = delete;

  void Queue(FakeFrame& frame) { world_.Ks.Frames.push_back(&frame); }
  NTSTATUS Deliver(FakeFrame& frame) {
    Queue(frame);
    return pin_.Process();
  }
  void SkipTwo() {
    EXPECT_EQ(pin_.Process(), kNothing);
    EXPECT_EQ(pin_.Process(), kNothing);
  }
  CapturePin& Object() { return pin_.Object(); }
  WorldPin& Pin() { return pin_; }
  SurfaceWorld& World() { return world_; }
  CameraContext& Camera() { return space_.Context(); }
  std::uint8_t* Raw() { return static_cast<std::uint8_t*>(raw_->Block); }
  ReferenceCountedMemory& RawMemory() { return *raw_; }

  FakeClock Clock;

 private:
  SurfaceWorld& world_;
  RegisterSpace space_;
  WorldPin pin_;
  ReferenceCountedMemory* raw_ = nullptr;
};

TEST(PinProcess, TheFirstTwoCallsTouchNothingButTheCounter) {
  InSurface([](SurfaceWorld& world) {
    ProcessWorld stream(world);
    FakeFrame frame(kPicture);
    stream.Queue(frame);
    for (LONGLONG call = 1; call <= 2; ++call) {
      EXPECT_EQ(stream.Pin().Process(), kNothing);
      EXPECT_EQ(*stream.Object().FrameCounter, call);
    }
    EXPECT_EQ(stream.Clock.Reads, 0);
    EXPECT_EQ(stream.Object().PublishedFrameSize, 0U);
    EXPECT_EQ(stream.Object().ExpectedFrameTime, 0);
    EXPECT_TRUE(world.Ks.Calls.empty());
    EXPECT_EQ(stream.Pin().Process(), kPending);
    EXPECT_EQ(*stream.Object().FrameCounter, 3);
    EXPECT_TRUE(frame.IsEjected);
  });
}

// The counter is compared in all 64 bits.
TEST(PinProcess, CountersBeyond32BitsSkipNothingAndNegativeOnesDo) {
  InSurface([](SurfaceWorld& world) {
    ProcessWorld stream(world);
    FakeFrame frame(kPicture);
    *stream.Object().FrameCounter = -3;
    EXPECT_EQ(stream.Pin().Process(), kNothing);
    EXPECT_EQ(*stream.Object().FrameCounter, -2);
    *stream.Object().FrameCounter = 0x100000000;
    EXPECT_EQ(stream.Deliver(frame), kPending);
  });
}

TEST(PinProcess, ADeliveredFrameHasPicturesHeaderAndNumbers) {
  InSurface([](SurfaceWorld& world) {
    ProcessWorld stream(world);
    stream.SkipTwo();
    stream.Clock.Times = {900000, 1000000};
    FakeFrame frame(kPicture);
    EXPECT_EQ(stream.Deliver(frame), kPending);
    EXPECT_TRUE(std::equal(frame.Picture().begin(), frame.Picture().end(), stream.Raw() + 64));
    const KSSTREAM_HEADER& header = frame.Header();
    EXPECT_EQ(header.PresentationTime.Time, 1000000) << "of the second reading";
    EXPECT_EQ(header.PresentationTime.Numerator, 1U);
    EXPECT_EQ(header.PresentationTime.Denominator, 1U);
    EXPECT_EQ(header.Duration, 333333);
    EXPECT_EQ(header.DataUsed, kPicture);
    EXPECT_EQ(header.OptionsFlags, 0x111U);
    EXPECT_EQ(header.Size, 128U);
    EXPECT_EQ(header.TypeSpecificFlags, 0x1234U);
    EXPECT_EQ(header.FrameExtent, kPicture);
    EXPECT_EQ(stream.Clock.Reads, 2);
    EXPECT_EQ(stream.Object().LastClockTime, 900000);
    EXPECT_EQ(stream.Object().LastPresentationTime, 1000000);
    EXPECT_EQ(stream.Object().PublishedFrameSize, kRawBytes);
    const KS_FRAME_INFO info = frame.Info();
    EXPECT_EQ(info.ExtendedHeaderSize, 72U) << "as the platform set it";
    EXPECT_EQ(info.dwFrameFlags, 0U);
    EXPECT_EQ(info.DropCount, 1);  // 3 intervals at counter 2
    EXPECT_EQ(info.PictureNumber, 3);
    EXPECT_EQ(info.hDirectDraw, nullptr);
    EXPECT_EQ(info.hSurfaceHandle, nullptr);
    EXPECT_EQ(info.DirectDrawRect.bottom, 0);
    EXPECT_EQ(info.Reserved1, 0U);
    EXPECT_EQ(info.Reserved4, 0U);
    EXPECT_THAT(world.Ks.Calls, ElementsAre("edge", "unlock"));
  });
}

// A resampled picture takes a while: the stamp is of its end.
TEST(PinProcess, TheClockIsReadAheadOfThePictureAndAgainBehindIt) {
  InSurface([](SurfaceWorld& world) {
    ProcessWorld stream(world);
    stream.SkipTwo();
    FakeFrame frame(kPicture);
    std::vector<bool> isUntouched;
    stream.Clock.OnRead = [&] { isUntouched.push_back(frame.IsUntouched()); };
    EXPECT_EQ(stream.Deliver(frame), kPending);
    EXPECT_THAT(isUntouched, ElementsAre(true, false));
  });
}

TEST(PinProcess, FlagsOfAFrameBeforeAreNotDelivered) {
  InSurface([](SurfaceWorld& world) {
    ProcessWorld stream(world);
    stream.SkipTwo();
    stream.Object().FrameInfo.dwFrameFlags = 7;
    FakeFrame frame(kPicture);
    EXPECT_EQ(stream.Deliver(frame), kPending);
    EXPECT_EQ(frame.Info().dwFrameFlags, 0U);
  });
}

TEST(PinProcess, AClockThatStandsStillStampsTimesAnIntervalApart) {
  InSurface([](SurfaceWorld& world) {
    ProcessWorld stream(world);
    stream.SkipTwo();
    stream.Clock.Times = {1000};
    std::vector<LONGLONG> times;
    std::vector<LONGLONG> numbers;
    for (int i = 0; i < 3; ++i) {
      FakeFrame frame(kPicture);
      EXPECT_EQ(stream.Deliver(frame), kPending);
      times.push_back(frame.Header().PresentationTime.Time);
      numbers.push_back(frame.Info().PictureNumber);
    }
    EXPECT_THAT(times, ElementsAre(1000, 334333, 667666));
    EXPECT_THAT(numbers, ElementsAre(2, 3, 4));
  });
}

struct StampRow {
  LONGLONG Counter;
  LONGLONG Drop;
  LONGLONG Picture;
};

TEST(PinProcess, DropsAreWhatTheStreamTimeHasAndTheClientHasNot) {
  for (const StampRow& row : {StampRow{4, 6, 10}, StampRow{12, 0, 12}}) {
    InSurface([&row](SurfaceWorld& world) {
      ProcessWorld stream(world);
      *stream.Object().FrameCounter = row.Counter;
      stream.Clock.Times = {3333330};
      FakeFrame frame(kPicture);
      EXPECT_EQ(stream.Deliver(frame), kPending);
      EXPECT_EQ(frame.Info().DropCount, row.Drop);
      EXPECT_EQ(frame.Info().PictureNumber, row.Picture);
    });
  }
}

TEST(PinProcess, WithoutAClockAFrameHasNoTimeButCountsOn) {
  InSurface([](SurfaceWorld& world) {
    ProcessWorld stream(world, false);
    stream.SkipTwo();
    FakeFrame frame(kPicture);
    EXPECT_EQ(stream.Deliver(frame), kPending);
    EXPECT_EQ(frame.Header().OptionsFlags, 1U);
    EXPECT_EQ(frame.Header().PresentationTime.Time, 0);
    EXPECT_EQ(frame.Header().PresentationTime.Numerator, 1U);
    EXPECT_EQ(frame.Header().Duration, 333333);
    EXPECT_EQ(frame.Info().PictureNumber, 0);
    EXPECT_EQ(frame.Info().DropCount, 0);
    EXPECT_EQ(*stream.Object().FrameCounter, 3);
    EXPECT_EQ(stream.Object().ExpectedFrameTime, 0);
  });
}

TEST(PinProcess, ACallWithNothingToDeliverLeavesNoGapInTheCount) {
  InSurface([](SurfaceWorld& world) {
    ProcessWorld stream(world);
    stream.SkipTwo();
    FakeFrame frame(kPicture);
    stream.Queue(frame);
    world.Device.PublishRawFrame(nullptr, 0);
    EXPECT_EQ(stream.Pin().Process(), kNothing);
    world.Device.PublishRawFrame(stream.Raw(), 0);
    EXPECT_EQ(stream.Pin().Process(), kNothing);
    EXPECT_EQ(stream.Object().PublishedFrameSize, 0U);
    EXPECT_TRUE(world.Ks.Calls.empty()) << "no buffer is requested";
    EXPECT_EQ(*stream.Object().FrameCounter, 2);
    EXPECT_EQ(stream.Object().ProcessingCount, 0);
    EXPECT_EQ(stream.RawMemory().Holds, 1);
    world.Device.PublishRawFrame(stream.Raw(), kRawBytes);
    EXPECT_EQ(stream.Pin().Process(), kPending);
    EXPECT_EQ(frame.Header().PresentationTime.Time, 0) << "still the first frame";
  });
}

TEST(PinProcess, WithoutABufferTheRawFrameIsDroppedAndOnlyTheExpectedTimeMoves) {
  InSurface([](SurfaceWorld& world) {
    ProcessWorld stream(world);
    stream.SkipTwo();
    stream.Clock.Times = {5000};
    EXPECT_EQ(stream.Pin().Process(), kNothing);
    EXPECT_EQ(stream.Object().ExpectedFrameTime, 338333);
    EXPECT_EQ(stream.Pin().Process(), kNothing);
    EXPECT_EQ(stream.Object().ExpectedFrameTime, 671666);
    EXPECT_THAT(world.Ks.Calls, ElementsAre("edge", "edge"));
    EXPECT_EQ(*stream.Object().FrameCounter, 2);
    EXPECT_EQ(stream.Object().LastPresentationTime, 0);
    EXPECT_EQ(stream.RawMemory().Holds, 1);
  });
}

// No camera causes such a result.
TEST(PinProcess, ADeliveryThatEndsWithMinusOneKeepsItsBufferAndIsNotCounted) {
  InSurface([](SurfaceWorld& world) {
    ProcessWorld stream(world);
    stream.SkipTwo();
    FakeFrame first(kPicture);
    g_deliveryResult = 1;
    EXPECT_EQ(stream.Deliver(first), kPending) << "other results don't count";
    FakeFrame second(kPicture);
    g_deliveryResult = -1;
    EXPECT_EQ(stream.Deliver(second), kCancelled);
    g_deliveryResult.reset();
    EXPECT_TRUE(second.IsLocked);
    EXPECT_FALSE(second.IsEjected);
    EXPECT_EQ(second.Header().DataUsed, 0xEEEEEEEEU);
    EXPECT_EQ(*stream.Object().FrameCounter, 3);
    EXPECT_EQ(stream.Object().ProcessingCount, 0);
    EXPECT_EQ(stream.Clock.Reads, 3);
  });
}

TEST(PinProcess, TheSameRawFrameIsDeliveredTwiceIfNoOtherComes) {
  InSurface([](SurfaceWorld& world) {
    ProcessWorld stream(world);
    stream.SkipTwo();
    FakeFrame first(kPicture);
    FakeFrame second(kPicture);
    EXPECT_EQ(stream.Deliver(first), kPending);
    EXPECT_EQ(stream.Deliver(second), kPending);
    EXPECT_EQ(first.Picture(), second.Picture());
  });
}

TEST(PinProcess, ThePinIsBusyExactlyWhileTheRawFrameIsRead) {
  InSurface([](SurfaceWorld& world) {
    ProcessWorld stream(world);
    stream.SkipTwo();
    PKSPIN const pin = &stream.Pin().Pin;
    int looks = 0;
    world.Ks.OnEdge = [&] {
      ++looks;
      EXPECT_EQ(kPinOperations.IsProcessing(pin), 1);
      EXPECT_EQ(stream.RawMemory().Holds, 2);
    };
    world.Ks.OnUnlock = [&] {
      ++looks;
      EXPECT_EQ(kPinOperations.IsProcessing(pin), 0);
      EXPECT_EQ(stream.RawMemory().Holds, 1);
    };
    EXPECT_EQ(kPinOperations.IsProcessing(pin), 0);
    FakeFrame frame(kPicture);
    EXPECT_EQ(stream.Deliver(frame), kPending);
    EXPECT_EQ(looks, 2);
  });
}

// A frame that is fetched first could be filled anew before the frame thread sees the pin busy.
TEST(PinProcess, ThePinIsBusyBeforeItFetchesTheRawFrame) {
  ProcessWorld* watched = nullptr;
  int fetches = 0;
  const auto look = [&](const host::SwitchPlace& place) -> LONGLONG {
    if (watched == nullptr) return 0;
    const PublishedFrame& published = watched->World().Device.Published;
    if (place.Subject.Object != &published.PublishedRawFrame) return 0;
    ++fetches;
    EXPECT_EQ(watched->Object().ProcessingCount, 1);
    return 0;
  };
  host::Simulate({.HasPreemptionPoints = true, .AtSwitchPoint = look}, [&] {
    SurfaceWorld world;
    ProcessWorld stream(world);
    stream.SkipTwo();
    FakeFrame frame(kPicture);
    watched = &stream;
    EXPECT_EQ(stream.Deliver(frame), kPending);
    watched = nullptr;
  });
  EXPECT_EQ(fetches, 1);
}

// Taking the hardware down waits for the frame that is being delivered, and no other begins.
TEST(PinProcess, TheCamerasRecordStaysUntilTheFrameIsDelivered) {
  InSurface([](SurfaceWorld& world) {
    ProcessWorld stream(world);
    stream.SkipTwo();
    bool isTaken = false;
    std::unique_ptr<host::TestThread> taker;
    world.Ks.OnEdge = [&] {
      taker = std::make_unique<host::TestThread>([&] {
        world.Device.TakeCamera();
        isTaken = true;
      });
      host::Sleep(5 * host::kMillisecond);
      EXPECT_FALSE(isTaken);
      EXPECT_EQ(world.Device.HoldCamera(), nullptr);
    };
    FakeFrame frame(kPicture);
    EXPECT_EQ(stream.Deliver(frame), kPending);
    taker->Join();
    EXPECT_TRUE(isTaken);
  });
}

TEST(PinProcess, AResumedStreamSkipsNothingAndItsTimesRise) {
  InSurface([](SurfaceWorld& world) {
    ProcessWorld stream(world);
    stream.SkipTwo();
    stream.Clock.Times = {9000000};
    FakeFrame first(kPicture);
    EXPECT_EQ(stream.Deliver(first), kPending);
    stream.Pin().SetState(2, 3);
    stream.Pin().SetState(3, 2);
    EXPECT_EQ(stream.Object().ExpectedFrameTime, 0);
    stream.Clock.Times = {100};
    FakeFrame second(kPicture);
    EXPECT_EQ(stream.Deliver(second), kPending);
    EXPECT_EQ(second.Header().PresentationTime.Time, 9333333);
  });
}

TEST(PinProcess, OutsideOfRunTheLastClockTimeStays) {
  InSurface([](SurfaceWorld& world) {
    ProcessWorld stream(world);
    stream.SkipTwo();
    stream.Clock.Times = {4000};
    stream.Pin().SetState(2, 3);
    EXPECT_EQ(stream.Pin().Process(), kNothing);
    EXPECT_EQ(stream.Object().LastClockTime, 0);
    EXPECT_EQ(stream.Object().ExpectedFrameTime, 337333);
  });
}

TEST(PinProcess, DataUsedIsTheFormatsSizeEvenIfNothingIsWritten) {
  InSurface([](SurfaceWorld& world) {
    ProcessWorld stream(world);
    stream.Camera().RequestedCompression = 0x30323449;
    stream.SkipTwo();
    FakeFrame frame(kPicture);
    EXPECT_EQ(stream.Deliver(frame), kPending);
    EXPECT_TRUE(frame.IsUntouched());
    EXPECT_EQ(frame.Header().DataUsed, kPicture);
  });
}

TEST(PinProcess, ASmallerFormatIsResampledFromTheNativeSize) {
  InSurface([](SurfaceWorld& world) {
    ProcessWorld stream(world, true, 352, 288);
    stream.SkipTwo();
    std::fill(stream.Raw() + 64, stream.Raw() + kRawBytes, std::uint8_t{0x55});
    FakeFrame frame(202752);
    EXPECT_EQ(stream.Deliver(frame), kPending);
    EXPECT_THAT(frame.Picture(), Each(0x55));
    EXPECT_EQ(frame.Header().DataUsed, 202752U);
  });
}

// An application chooses biSizeImage and the extent of its buffers; only the picture's own size
// bounds the bytes written.
TEST(PinProcess, APictureLargerThanItsBufferIsNotWritten) {
  for (const ULONG extent : {0U, 1U, 614398U, 614399U, 614400U}) {
    InSurface([extent](SurfaceWorld& world) {
      ProcessWorld stream(world);
      stream.SkipTwo();
      FakeFrame frame(extent);
      EXPECT_EQ(stream.Deliver(frame), kPending);
      EXPECT_EQ(frame.IsUntouched(), extent < kPicture) << extent;
      EXPECT_EQ(stream.Camera().LastRawFrame, stream.Raw()) << "the exposure control ran on it";
      EXPECT_EQ(frame.Header().DataUsed, kPicture);
      EXPECT_EQ(frame.Header().OptionsFlags, 0x111U);
      EXPECT_EQ(frame.Info().PictureNumber, 2);
      EXPECT_TRUE(frame.IsEjected);
    });
  }
}

// An application's header may lack the room; then only the counts are missing.
TEST(PinProcess, AHeaderWithoutRoomForTheFrameInfoGetsNone) {
  for (const ULONG size : {56U, 64U, 127U}) {
    InSurface([size](SurfaceWorld& world) {
      ProcessWorld stream(world);
      stream.SkipTwo();
      FakeFrame frame(kPicture, size);
      EXPECT_EQ(stream.Deliver(frame), kPending);
      EXPECT_EQ(frame.Header().DataUsed, kPicture);
      EXPECT_EQ(stream.Object().FrameInfo.PictureNumber, 2);
      EXPECT_EQ(stream.Object().FrameInfo.ExtendedHeaderSize, 0U);
      EXPECT_EQ(frame.Pointer.StreamHeader->Size, size);
    });
  }
}

TEST(PinProcess, AnIntervalOfZeroDropsNothing) {
  InSurface([](SurfaceWorld& world) {
    ProcessWorld stream(world);
    static_cast<PKS_VIDEOINFOHEADER>(stream.Object().VideoInfo)->AvgTimePerFrame = 0;
    stream.SkipTwo();
    stream.Clock.Times = {7000};
    FakeFrame frame(kPicture);
    EXPECT_EQ(stream.Deliver(frame), kPending);
    EXPECT_EQ(frame.Info().DropCount, 0);
    EXPECT_EQ(frame.Info().PictureNumber, 2);
    EXPECT_EQ(frame.Header().Duration, 0);
  });
}

TEST(PinProcess, AnExpectedTimeBeyond64BitsWraps) {
  InSurface([](SurfaceWorld& world) {
    ProcessWorld stream(world);
    stream.SkipTwo();
    stream.Object().ExpectedFrameTime = 0x7FFFFFFFFFFFFFFF;
    EXPECT_EQ(stream.Pin().Process(), kNothing);
    EXPECT_EQ(stream.Object().ExpectedFrameTime,
              static_cast<LONGLONG>(0x7FFFFFFFFFFFFFFFU + 333333U));
  });
}

TEST(PinProcess, ACameraThatHasGoneDeliversNothing) {
  InSurface([](SurfaceWorld& world) {
    ProcessWorld stream(world);
    stream.SkipTwo();
    FakeFrame frame(kPicture);
    stream.Queue(frame);
    CameraContext* const camera = world.Device.TakeCamera();
    EXPECT_EQ(stream.Pin().Process(), kNothing);
    EXPECT_FALSE(frame.IsLocked);
    EXPECT_EQ(stream.Object().ProcessingCount, 0);
    world.Device.Camera = camera;
    EXPECT_EQ(stream.Pin().Process(), kPending);
  });
}

// The result must not depend on whether the new record has the old one's address.
TEST(PinProcess, ADeviceThatWasStartedAnewDeliversFromItsNewRecord) {
  InSurface([](SurfaceWorld& world) {
    ProcessWorld stream(world);
    stream.SkipTwo();
    RegisterSpace other;
    CameraContext& another = other.Context();
    another.RawSizeMode = 1;
    another.RequestedWidth = 640;
    another.RequestedHeight = 480;
    another.RequestedCompression = kClientYuy2;
    world.Device.Camera = &another;
    FakeFrame frame(kPicture);
    EXPECT_EQ(stream.Deliver(frame), kPending);
    EXPECT_EQ(stream.Object().Camera, &another);
    EXPECT_EQ(another.LastRawFrame, stream.Raw());
    EXPECT_EQ(stream.Camera().LastRawFrame, nullptr);
  });
}

// A stop meanwhile waits for it. A frame may be delivered at dispatch level, where a clock's
// references may not be counted.
TEST(PinProcess, AFrameKeepsItsClockForAsLongAsItTakes) {
  InSurface([](SurfaceWorld& world) {
    ProcessWorld stream(world);
    stream.SkipTwo();
    FakeFrame frame(kPicture);
    std::unique_ptr<host::TestThread> client;
    bool isStopped = false;
    world.Ks.OnEdge = [&] {
      client = std::make_unique<host::TestThread>([&] {
        stream.Pin().SetState(0, 1);
        isStopped = true;
      });
      host::Sleep(100 * host::kMillisecond);
      EXPECT_FALSE(isStopped);
      EXPECT_EQ(stream.Clock.References, 1);
    };
    stream.Clock.Times = {1000000};
    EXPECT_EQ(stream.Deliver(frame), kPending);
    client->Join();
    EXPECT_TRUE(isStopped);
    EXPECT_EQ(frame.Header().PresentationTime.Time, 1000000);
    EXPECT_EQ(stream.Clock.References, 0);
    EXPECT_EQ(stream.Clock.MostReferences, 1);
  });
}

std::vector<std::string>* g_trace = nullptr;

[[gnu::format(printf, 2, 0)]] void KeepTraceLine(const CameraContext*, const char* format,
                                                 std::va_list arguments) {
  char line[200];
  std::vsnprintf(line, sizeof(line), format, arguments);
  g_trace->emplace_back(line);
}

TEST(PinProcess, TheTraceTellsStatesAndWhatBecameOfEachFrame) {
  std::vector<std::string> lines;
  g_trace = &lines;
  InSurface([](SurfaceWorld& world) {
    ProcessWorld stream(world);
    SetCameraTraceSink(KeepTraceLine);
    stream.SkipTwo();
    EXPECT_EQ(stream.Pin().Process(), kNothing);
    stream.Clock.Times = {1000000};
    FakeFrame frame(kPicture);
    EXPECT_EQ(stream.Deliver(frame), kPending);
    FakeFrame small(7);
    EXPECT_EQ(stream.Deliver(small), kPending);
    world.Device.PublishRawFrame(nullptr, 0);
    EXPECT_EQ(stream.Pin().Process(), kNothing);
    world.Device.Pause = kRefused;
    stream.Pin().SetState(2, 3);
    EXPECT_EQ(kPinOperations.ApplyFormat(&stream.Pin().Pin), STATUS_SUCCESS);
    SetCameraTraceSink(nullptr);
  });
  EXPECT_THAT(lines,
              ElementsAre("pin frame skipped", "pin frame skipped", "pin frame no buffer",
                          "pin frame picture=3 drop=1 bytes=614464",
                          "frame too large for its buffer size=640x480 room=7",
                          "pin frame picture=4 drop=1 bytes=614464", "pin frame none",
                          "pin state 3 -> 2 status=C00000B5", "pin format change -> 00000000"));
}

}  // namespace
}  // namespace lidcam::test

// The linker redirects the delivery to here (--wrap).
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" lidcam::Status
__real__ZN6lidcam18DeliverFrameWithinERNS_13CameraContextERKNS_14DeliveryBufferEPhRj(
    lidcam::CameraContext& context, const lidcam::DeliveryBuffer& destination,
    std::uint8_t* rawFrame, std::uint32_t& bytesWritten);
extern "C" lidcam::Status
__wrap__ZN6lidcam18DeliverFrameWithinERNS_13CameraContextERKNS_14DeliveryBufferEPhRj(
    lidcam::CameraContext& context, const lidcam::DeliveryBuffer& destination,
    std::uint8_t* rawFrame, std::uint32_t& bytesWritten);
extern "C" lidcam::Status
__wrap__ZN6lidcam18DeliverFrameWithinERNS_13CameraContextERKNS_14DeliveryBufferEPhRj(
    lidcam::CameraContext& context, const lidcam::DeliveryBuffer& destination,
    std::uint8_t* rawFrame, std::uint32_t& bytesWritten) {
  const lidcam::Status status =
      __real__ZN6lidcam18DeliverFrameWithinERNS_13CameraContextERKNS_14DeliveryBufferEPhRj(
          context, destination, rawFrame, bytesWritten);
  return lidcam::test::g_deliveryResult.value_or(status);
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
