#include "library/session/camera_session.h"

#include <algorithm>
#include <csignal>
#include <utility>

#include "bus/usb/usb_host.h"
#include "library/base/command_error.h"
#include "library/camera/bring_up/camera_identity.h"
#include "library/camera/gates/faulty_port.h"
#include "library/camera/source/plugged_camera.h"
#include "library/settings/environment_turn.h"
#include "library/settings/settings_copy.h"

namespace lidcam::app {
namespace {

// Over which the faults of a seed are spread.
constexpr std::chrono::minutes kFaultySpan{10};

// How often an open camera that doesn't stream is looked for on its port.
constexpr std::chrono::milliseconds kTick{100};

// Signals are the application's.
void BlockSignals() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, nullptr);
}

}  // namespace

CameraSession::CameraSession(SessionOptions options)
    : options_(std::move(options)), isRealTime_(IsInRealTime(options_.Choice)) {
  thread_ = std::thread([this] { RunThread(); });
  std::unique_lock lock(signal_->Mutex);
  signal_->Changed.wait(lock, [this] { return phase_ != Phase::Opening || openError_ != nullptr; });
  if (openError_ == nullptr) return;
  lock.unlock();
  thread_.join();
  std::rethrow_exception(openError_);
}

CameraSession::~CameraSession() {
  service_->End();  // the camera's thread still answers
  {
    const std::lock_guard lock(signal_->Mutex);
    isClosing_ = true;
  }
  signal_->Changed.notify_all();
  thread_.join();
}

void CameraSession::RunThread() {
  BlockSignals();
  std::exception_ptr error;
  try {
    RunCamera();
  } catch (const std::exception&) {
    error = std::current_exception();
  }
  {
    const std::lock_guard lock(signal_->Mutex);
    if (phase_ == Phase::Opening) {
      openError_ = error;
      signal_->Changed.notify_all();
      return;
    }
  }
  Leave();
}

void CameraSession::RunCamera() {
  CameraChoice choice = options_.Choice;
  const CameraLock lock(choice, options_.Patience);
  EnvironmentTurn turn;
  const SetFiles kind = SetFilesFor(choice);
  UseSystemRoot(kind);
  const SettingsCopy settings;
  settings.Fill({}, settings.DriverKey());
  choice.DriverKey = settings.DriverKey();
  if (IsPluggedIn(choice.Camera)) {
    const bus::PluggedDevice device = FindPluggedCamera(choice.Camera);
    place_ = {device.Path, device.Address};
    hotplug_ = std::make_unique<bus::UsbHost>();
  }
  facts_.Unit = UnitOf(choice).value_or("");
  FaultyPort port(options_.Open ? options_.Open(choice) : OpenCamera(choice), options_.Faults,
                  kFaultySpan);
  const DriverKeyChoice key = [&](const bus::UsbDeviceInfo& device) {
    identityKey_ = DriverKeyOf(device);
    if (!CaptureFileOf(choice.Camera)) settings.Fill(SettingsFileFor(kind), identityKey_);
    return settings.DriverKey();
  };
  RunInTimeOf(choice, [&] {
    WithOpenedCamera(
        port.Bus(),
        [&](OpenedCamera& opened) {
          turn.Release();
          Serve(opened);
        },
        key);
  });
}

void CameraSession::ReadFacts(const OpenedCamera& opened) {
  facts_.Vendor = opened.Device().Vendor;
  facts_.Product = opened.Device().Product;
  facts_.Sensor = SensorName(opened.SensorType());
  for (const KS_DATARANGE_VIDEO& range : opened.Camera().Ranges()) {
    const KS_BITMAPINFOHEADER& bitmap = range.VideoInfoHeader.bmiHeader;
    std::vector<LONGLONG> intervals =
        opened.Camera().FrameIntervals(bitmap.biWidth, bitmap.biHeight);
    std::ranges::sort(intervals);
    facts_.Formats.push_back({.Size = {bitmap.biWidth, bitmap.biHeight},
                              .ImageBytes = bitmap.biSizeImage,
                              .Intervals = {intervals.begin(), intervals.end()},
                              .ShortestInterval = range.ConfigCaps.MinFrameInterval,
                              .LongestInterval = range.ConfigCaps.MaxFrameInterval});
  }
  for (const CameraControl& control : AllControls()) {
    facts_.Controls.push_back({.Control = &control,
                               .Range = RangeOf(opened.Camera(), control),
                               .HasEffect = HasEffect(control.Name, opened.SensorType())});
  }
}

void CameraSession::Serve(OpenedCamera& opened) {
  ReadFacts(opened);
  tasks_.Adopt(&opened);
  Offer();
  {
    const std::lock_guard lock(signal_->Mutex);
    phase_ = Phase::Open;
  }
  signal_->Changed.notify_all();
  while (!IsGone(opened)) {
    tasks_.RunPending();
    std::unique_lock lock(signal_->Mutex);
    if (isClosing_) break;
    if (stream_ == StreamPhase::Starting) {
      lock.unlock();
      RunStream(opened);
      continue;
    }
    signal_->Changed.wait_for(lock, kTick, [this] {
      return tasks_.HasPending() || isClosing_ || stream_ == StreamPhase::Starting;
    });
  }
  service_->Withdraw();
  tasks_.Adopt(nullptr);
  const std::lock_guard lock(signal_->Mutex);
  if (!isClosing_) phase_ = Phase::Gone;
}

// The bus detects it in a stream; without one nothing is sent.
bool CameraSession::IsGone(const OpenedCamera& opened) {
  if (opened.IsUnplugged()) return true;
  if (!place_ || !hotplug_->WaitForChange(std::chrono::milliseconds(0))) return false;
  for (const bus::PluggedDevice& device : hotplug_->Devices()) {
    if (device.Path == place_->first && device.Address == place_->second) return false;
  }
  return true;
}

// The camera is closed, and its lock released.
void CameraSession::Leave() {
  {
    const std::lock_guard lock(signal_->Mutex);
    if (stream_ == StreamPhase::Starting) {
      startError_ = std::make_exception_ptr(
          CommandError("camera '" + Name() + "' was unplugged", Failure::Unplugged));
      stream_ = StreamPhase::Ended;
    }
    if (isClosing_) return;
    phase_ = Phase::Gone;
  }
  signal_->Changed.notify_all();
  tasks_.RunPending();
  Tell({.Kind = SessionEventKind::Unplugged,
        .Camera = Name(),
        .Text = "camera '" + Name() + "' was unplugged"});
  AwaitReturn();
  while (AwaitTick()) {
  }
}

bool CameraSession::AwaitTick() {
  tasks_.RunPending();
  std::unique_lock lock(signal_->Mutex);
  signal_->Changed.wait_for(lock, kTick, [this] { return tasks_.HasPending() || isClosing_; });
  return !isClosing_;
}

// A plugged-in camera has another number when it is back, and possibly another port.
void CameraSession::AwaitReturn() {
  const auto back = [this](const std::string& camera) {
    Tell({.Kind = SessionEventKind::Replugged,
          .Camera = camera,
          .Text = "camera '" + camera + "' is plugged in again"});
  };
  if (!place_) {
    if (AwaitTick() && !CaptureFileOf(Name())) back(Name());
    return;
  }
  std::vector<bus::PluggedDevice> others = hotplug_->Devices();
  std::erase_if(others, [this](const auto& device) { return device.Path == place_->first; });
  do {
    for (const bus::PluggedDevice& device : hotplug_->Devices()) {
      const bool isCamera = device.Vendor == facts_.Vendor && device.Product == facts_.Product;
      const bool isOld = device.Path == place_->first && device.Address == place_->second;
      if (!isCamera || isOld || std::ranges::find(others, device) != others.end()) continue;
      const PluggedName name = ParsePluggedName(NameOf(device));
      if (const auto there = AwaitPluggedCamera(name, [] { return false; })) {
        back(NameOf(*there));
        return;
      }
    }
    static_cast<void>(hotplug_->WaitForChange(std::chrono::milliseconds(0)));
  } while (AwaitTick());
}

void CameraSession::Use(const std::function<void(OpenedCamera& opened)>& use) {
  tasks_.Run([&](OpenedCamera* opened) {
    const CommandError gone("camera '" + Name() + "' was unplugged", Failure::Unplugged);
    if (opened == nullptr) throw gone;
    try {
      use(*opened);
    } catch (const CommandError&) {
      if (opened->IsUnplugged()) throw gone;
      throw;
    }
  });
}

void CameraSession::Tell(const SessionEvent& event) {
  if (events_) events_(event);
}

void CameraSession::SetEventHandler(SessionEventHandler handler) {
  tasks_.Run([&](OpenedCamera* opened) {
    events_ = std::move(handler);
    if (opened != nullptr) return;
    Tell({.Kind = SessionEventKind::Unplugged,
          .Camera = Name(),
          .Text = "camera '" + Name() + "' was unplugged"});
  });
}

void CameraSession::RefuseOwnThread(const char* what) const {
  if (!tasks_.IsOwnThread()) return;
  throw SessionStateError(std::string(what) + " of camera '" + Name() +
                          "' in one of its handlers: another thread must do it");
}

}  // namespace lidcam::app
