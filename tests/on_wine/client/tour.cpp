#include "tests/on_wine/client/tour.h"

#include <cstdint>
#include <cstring>
#include <optional>

#include "tests/on_wine/client/bus_port.h"
#include "tests/on_wine/client/camera/camera_stream.h"
#include "tests/on_wine/client/camera/control_trial.h"
#include "tests/on_wine/client/camera/frame_record.h"
#include "tests/on_wine/client/device/device_interface.h"
#include "tests/on_wine/client/device/driver_installation.h"
#include "tests/on_wine/client/device/saved_settings.h"
#include "tests/on_wine/client/report.h"

namespace lidcam::wine {
namespace {

// The default camera, as in the Linux run.
constexpr char kCamera[] = "sim";

// The class of filters for drivers of the streaming class, and the camera's name.
constexpr wchar_t kProxyClass[] = L"{17CCA71B-ECD7-11D0-B908-00A0C9223196}";
constexpr wchar_t kFriendlyName[] = L"USB2.0 Notebook Camera";

constexpr std::size_t kBuffers = 8;
constexpr int kFramesToPause = 20;
constexpr int kFramesFromPause = 20;
constexpr DWORD kPauseMilliseconds = 1500;
constexpr std::int64_t kUnitsPerMillisecond = 10'000;  ///< of presentation times

struct Size {
  LONG Width;
  LONG Height;
};
constexpr Size kSizes[] = {{640, 480}, {352, 288}, {320, 240}, {176, 144}, {160, 120}};

std::string Text(const Size& size) {
  return std::to_string(size.Width) + "x" + std::to_string(size.Height);
}

const KS_BITMAPINFOHEADER& BitmapOf(const KS_DATARANGE_VIDEO& range) {
  return range.VideoInfoHeader.bmiHeader;
}

std::vector<std::byte> FormatOf(const CameraFile& camera, const Size& size) {
  for (const KS_DATARANGE_VIDEO& range : camera.Ranges()) {
    if (BitmapOf(range).biWidth == size.Width && BitmapOf(range).biHeight == size.Height) {
      return camera.Intersect(range);
    }
  }
  throw Failure("no format of " + Text(size));
}

void TryFormats(const CameraFile& camera) {
  Require(camera.PinCount() == 1, "one pin");
  const std::vector<KS_DATARANGE_VIDEO> ranges = camera.Ranges();
  Require(ranges.size() == std::size(kSizes), "five formats");
  for (std::size_t i = 0; i < ranges.size(); ++i) {
    const Size& size = kSizes[i];
    const auto bytes = static_cast<ULONG>(size.Width * size.Height * 2);
    Require(BitmapOf(ranges[i]).biWidth == size.Width &&
                BitmapOf(ranges[i]).biHeight == size.Height &&
                BitmapOf(ranges[i]).biSizeImage == bytes,
            "format " + std::to_string(i) + " isn't " + Text(size));
    KS_DATAFORMAT_VIDEOINFOHEADER format{};
    const std::vector<std::byte> made = camera.Intersect(ranges[i]);
    std::memcpy(&format, made.data(), sizeof(format));
    Require(format.DataFormat.SampleSize == bytes &&
                format.VideoInfoHeader.bmiHeader.biSizeImage == bytes &&
                format.VideoInfoHeader.AvgTimePerFrame == 333'333,
            "the format made of " + Text(size));
    const std::size_t rates = size.Width == 640 ? 4 : 7;
    Require(camera.FrameIntervals(size.Width, size.Height).size() == rates,
            "frame rates of " + Text(size));
    Ok("format " + Text(size) + ", " + std::to_string(bytes) + " bytes, " + std::to_string(rates) +
       " frame rates");
  }
}

void RequireFrame(const ReadFrame& frame, const std::string& what) {
  Require(frame.Error == 0, what + ": error " + std::to_string(frame.Error));
}

/// @return the presentation time of the last one
std::int64_t TakeFrames(CameraStream& stream, FrameRecord& record, int count) {
  std::int64_t time = 0;
  for (int i = 0; i < count; ++i) {
    const ReadFrame frame = stream.Next();
    RequireFrame(frame, "frame " + std::to_string(i));
    record.Add(frame);
    stream.Queue();
    time = frame.Head.PresentationTime;
  }
  return time;
}

// The driver returns all buffers that it hasn't filled.
void TakeBackBuffers(CameraStream& stream) {
  int unfilled = 0;
  while (stream.Queued() != 0) {
    const DWORD error = stream.Next().Error;
    Require(error == 0 || error == ERROR_OPERATION_ABORTED,
            "a buffer comes back with error " + std::to_string(error));
    if (error != 0) ++unfilled;
  }
  Require(unfilled != 0, "of " + std::to_string(kBuffers) + " buffers none comes back unfilled");
}

void Prepare(CameraStream& stream) {
  stream.SetState(KSSTATE_ACQUIRE);
  stream.SetState(KSSTATE_PAUSE);
  for (std::size_t i = 0; i < kBuffers; ++i) stream.Queue();
  stream.SetState(KSSTATE_RUN);
  Require(stream.State() == KSSTATE_RUN, "the pin runs");
}

/// Streams with a pause in the middle.
void RecordStream(const CameraFile& camera, const Size& size, const std::wstring& path) {
  FrameRecord record(path);
  CameraStream stream(camera, FormatOf(camera, size));
  Prepare(stream);
  const std::int64_t before = TakeFrames(stream, record, kFramesToPause);
  stream.SetState(KSSTATE_PAUSE);
  Require(stream.State() == KSSTATE_PAUSE, "the pin pauses");
  record.MarkPause();
  Sleep(kPauseMilliseconds);
  stream.SetState(KSSTATE_RUN);
  // The first one may have been filled before the pause.
  const std::int64_t behind = TakeFrames(stream, record, 2);
  Require(behind - before < kPauseMilliseconds * kUnitsPerMillisecond,
          "the stream's clock goes on in a pause");
  TakeFrames(stream, record, kFramesFromPause - 2);
  stream.SetState(KSSTATE_STOP);
  TakeBackBuffers(stream);
  stream.Close();
  Ok("stream " + Text(size) + ": " + std::to_string(kFramesToPause + kFramesFromPause) +
     " frames, paused after " + std::to_string(kFramesToPause));
}

// Checks the opened interface: the INF's names belong to the one with its reference string.
void CheckInterface(const GUID& category, const std::wstring& path) {
  Ok("interface " + Narrow(path));
  const InterfaceNames names = ReadInterfaceNames(category, path);
  Require(names.Class == kProxyClass, "the interface's class is " + Narrow(names.Class));
  Require(names.Friendly == kFriendlyName, "the interface's name is " + Narrow(names.Friendly));
  Ok("its key tells class " + Narrow(names.Class) + " and name \"" + Narrow(names.Friendly) + "\"");
}

class Tour {
 public:
  explicit Tour(const TourOptions& options) : options_(options) {}

  void Take() {
    Install();
    TryNewCamera();
    StreamAllSizes();
    PullOutWhileStreaming();
    StreamWithChangedSet();
    TrySettings();
    Unload();
  }

 private:
  void Install() {
    InstallCameraDriver(options_.Package);
    InstallBus(options_.Bus);
    bus_.emplace();
    Ok("the bus is open");
  }

  CameraInterfaces PlugIn() {
    CameraInterfaces interfaces = bus_->PlugIn(kCamera);
    Ok("plugged in");
    return interfaces;
  }

  void PullOut() {
    bus_->PullOut();
    Ok("pulled out");
  }

  void PutSet(const wchar_t* name) {
    RequireCall(CopyFileW((options_.Run + name + L"\\system32\\drivers\\S001.set").c_str(),
                          (DriverFolder() + L"S001.set").c_str(), FALSE) != FALSE,
                "put the set file beside the driver");
    Ok("set file '" + Narrow(name) + "' lies beside the driver");
  }

  void TryNewCamera() {
    const CameraInterfaces interfaces = PlugIn();
    CheckInterface(KSCATEGORY_CAPTURE, interfaces.Capture);
    CheckInterface(KSCATEGORY_VIDEO, interfaces.Video);
    {
      const CameraFile camera(interfaces.Capture);
      const CameraFile other(interfaces.Video);
      Ok("opened by both interfaces");
      TryFormats(other);
      TryControls(camera);
      SetFirstControls(camera);
      RecordStream(other, kSizes[0], options_.Run + L"without-set");
    }
    PullOut();
  }

  void PlugInAndRecord(const Size& size, const std::string& name) {
    const CameraInterfaces interfaces = PlugIn();
    RecordStream(CameraFile(interfaces.Capture), size,
                 options_.Run + std::wstring(name.begin(), name.end()));
    PullOut();
  }

  void StreamAllSizes() {
    PutSet(L"usual");
    for (const Size& size : kSizes) PlugInAndRecord(size, Text(size));
  }

  void StreamWithChangedSet() {
    PutSet(L"changed");
    PlugInAndRecord(kSizes[0], "changed-set");
    PutSet(L"usual");
  }

  // The files are closed after the camera was removed.
  void PullOutWhileStreaming() {
    const CameraFile camera(PlugIn().Capture);
    CameraStream stream(camera, FormatOf(camera, kSizes[4]));
    Prepare(stream);
    for (int i = 0; i < kFramesToPause; ++i) {
      RequireFrame(stream.Next(), "a frame before the removal");
      stream.Queue();
    }
    PullOut();
    TakeBackBuffers(stream);
    Ok("the removal in mid-stream gave all buffers back");
    // The driver may still be unloading.
    const auto isRefused = [&] {
      Level level;
      return camera.GetLevel(PROPSETID_VIDCAP_VIDEOPROCAMP, 0, level) < 0;
    };
    Require(WaitUntil(isRefused, kRequestLimit), "a camera that is gone still answers");
    Ok("a camera that is gone refuses requests");
  }

  void TrySettings() {
    SetKeptControls(CameraFile(PlugIn().Capture));
    PullOut();
    CheckKeptControls(CameraFile(PlugIn().Capture));
    CheckSavedSettings();
    Ok("a camera plugged in again has the controls as set");
    PullOut();
  }

  // A driver that was unloaded is loaded again for the next camera.
  void Unload() {
    bus_->UnloadCameraDriver();
    Ok("the driver is unloaded");
    PlugIn();
    PullOut();
    bus_->UnloadCameraDriver();
    Ok("the driver is loaded anew for a camera, and unloaded");
  }

  const TourOptions options_;
  std::optional<BusPort> bus_;
};

}  // namespace

void TakeTour(const TourOptions& options) {
  Tour(options).Take();
}

}  // namespace lidcam::wine
