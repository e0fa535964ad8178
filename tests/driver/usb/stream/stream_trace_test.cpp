// The trace lines of a stream, mostly without the register accesses.

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>

#include "driver/core/base/camera_trace.h"
#include "tests/driver/usb/support/transport_world.h"

namespace lidcam::test {
namespace {

enum class Accesses { Left, Kept };

std::vector<std::string>* g_lines = nullptr;
Accesses g_accesses = Accesses::Left;

[[gnu::format(printf, 2, 0)]] void Note(const CameraContext*, const char* format,
                                        std::va_list arguments) {
  char text[200];
  std::vsnprintf(text, sizeof(text), format, arguments);
  const std::string line = text;
  const bool isLeft = g_accesses == Accesses::Left && line.starts_with("bus ");
  if (g_lines != nullptr && !isLeft) g_lines->push_back(line);
}

class TraceLines {
 public:
  explicit TraceLines(Accesses accesses = Accesses::Left) {
    g_lines = &lines_;
    g_accesses = accesses;
    SetCameraTraceSink(Note);
  }
  TraceLines(const TraceLines&) = delete;
  TraceLines& operator=(const TraceLines&) = delete;
  ~TraceLines() {
    SetCameraTraceSink(nullptr);
    g_lines = nullptr;
  }

  std::size_t Remove(const std::string& line) { return std::erase(lines_, line); }

  // The lines since the last call, a line each.
  std::string Take() {
    std::string text;
    for (const std::string& line : lines_) text += line + "\n";
    lines_.clear();
    return text;
  }

 private:
  std::vector<std::string> lines_;
};

TEST(StreamTrace, TellsEachStepOfAStreamOnce) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    TraceLines trace;
    CameraUsbDevice& device = world.Device();
    EXPECT_EQ(world.Acquire(), STATUS_SUCCESS);
    host::Sleep(host::kMillisecond);
    // The thread may begin at any time.
    EXPECT_EQ(trace.Remove("frame thread runs"), 1U);
    EXPECT_EQ(trace.Take(),
              "usb  setting 7 -> selected\n"
              "stream on\n"
              "stream setting=7 size-mode=1 frame-bytes=614466\n"
              "stream acquire -> 00000000\n");
    EXPECT_EQ(device.RunStream(), STATUS_SUCCESS);
    EXPECT_EQ(trace.Take(),
              "iso start frame=1010 pipe=1\n"
              "iso started status=00000000\n"
              "stream run -> 00000000\n");
    EXPECT_EQ(device.PauseStream(), STATUS_SUCCESS);
    EXPECT_EQ(trace.Take(),
              "drain abort status=00000000\n"
              "watchdog stop idle\n"
              "drain ends status=00000000\n"
              "stream pause -> 00000000\n");
    EXPECT_EQ(device.OnDeviceGone(0), STATUS_SUCCESS);
    EXPECT_EQ(trace.Take(),
              "device gone reason=0\n"
              "frame thread ends dropped=0\n"
              "stream release -> 00000000\n");
    EXPECT_EQ(device.StopHardware(), STATUS_SUCCESS);
    EXPECT_EQ(trace.Take(), "stream hardware stop -> 00000000\n");
  });
}

// Power bits to rest, then the LED off: the sensor is not powered down under a stream.
TEST(StreamTrace, APowerDownPausesTheStreamAndThenLetsTheSensorRest) {
  InWorld([](TransportWorld& world) {
    CameraUsbDevice& device = world.Device();
    ASSERT_EQ(world.Start() | world.Acquire() | device.RunStream(), 0);
    host::Sleep(host::kMillisecond);
    TraceLines trace(Accesses::Kept);
    EXPECT_EQ(device.PowerDown(PowerDeviceD3, PowerDeviceD0), STATUS_SUCCESS);
    EXPECT_EQ(trace.Take(),
              "power off\n"
              "drain abort status=00000000\n"
              "watchdog stop idle\n"
              "drain ends status=00000000\n"
              "stream pause -> 00000000\n"
              "bus  read  bridge FF09 -> 00\n"
              "bus  write bridge FF09=03\n"
              "bus  read  bridge FF09 -> 00\n"
              "bus  write bridge FF09=00\n");
  });
}

const UsbStreamRecord* g_stream = nullptr;
int g_openedAtThreadsEnd = -1;

void NoteThreadsEnd(const CameraContext*, const char* format, std::va_list) {
  if (std::string(format).starts_with("frame thread ends")) g_openedAtThreadsEnd = g_stream->Opened;
}

// A removal that finds the stream closed destroys what the thread uses.
TEST(StreamTrace, AStreamIsOpenUntilItsThreadHasEnded) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    g_stream = &world.Stream();
    g_openedAtThreadsEnd = -1;
    SetCameraTraceSink(NoteThreadsEnd);
    EXPECT_EQ(world.Device().ReleaseStream(), STATUS_SUCCESS);
    SetCameraTraceSink(nullptr);
    EXPECT_EQ(g_openedAtThreadsEnd, 1);
    EXPECT_EQ(world.Stream().Opened, 0);
  });
}

TEST(StreamTrace, TellsEachStepOfARecoveryOnce) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire() | world.Device().RunStream(), 0);
    host::Sleep(host::kMillisecond);
    TraceLines trace;
    world.Stack.CompleteIso(USBD_STATUS_XACT_ERROR);
    host::Sleep(600 * host::kMillisecond);
    EXPECT_EQ(trace.Take(),
              "iso halted transfer=0 urb status=C0000011\n"
              "recovery scheduled\n"
              "recovery abort status=00000000\n"
              "recovery under way\n"
              "watchdog reset idle\n"
              "recovery idle status=00000000\n"
              "recovery reset status=00000000\n"
              "stream off\n"
              "stream setting=7 size-mode=1 frame-bytes=614466\n"
              "iso start frame=1010 pipe=0\n"
              "iso started status=00000000\n"
              "recovery ends status=00000000\n");
  });
}

}  // namespace
}  // namespace lidcam::test
