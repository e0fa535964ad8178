#include <utility>

#include "bus/passing_bus.h"
#include "driver/sensor/registers/register_access.h"
#include "library/base/command_error.h"
#include "library/camera/controls/register_reading.h"
#include "library/camera/source/camera_source.h"
#include "library/camera/source/plugged_camera.h"
#include "viewer/camera/viewed_camera.h"

namespace lidcam::viewer {
namespace {

/// What a session owns of a bus that the viewer keeps an eye on.
class SessionPort final : public bus::PassingBus {
 public:
  SessionPort(const std::shared_ptr<ViewedBus>& bus, std::function<void()> closed)
      : PassingBus(*bus), bus_(bus), closed_(std::move(closed)) {}
  SessionPort(const SessionPort&) = delete;
  SessionPort& operator=(const SessionPort&) = delete;
  ~SessionPort() override { closed_(); }

 private:
  const std::shared_ptr<ViewedBus> bus_;
  const std::function<void()> closed_;
};

void WriteRegister(CameraContext& camera, RegisterChip chip, RegisterAddress address,
                   std::uint8_t value) {
  const Status status = chip == RegisterChip::Bridge ? WriteBridgeRegister(camera, address, value)
                                                     : WriteSensorRegister(camera, address, value);
  if (status != 0) throw app::CommandError("the register could not be written");
}

std::uint8_t ReadRegister(CameraContext& camera, RegisterChip chip, RegisterAddress address) {
  const auto value = app::ReadRegisterOfStream(
      camera, chip == RegisterChip::Bridge ? Chip::Bridge : Chip::Sensor, address);
  if (!value) throw app::CommandError("the register could not be read");
  return *value;
}

}  // namespace

// On the session's thread.
std::unique_ptr<bus::UsbBus> ViewedCamera::OpenBus(const app::CameraChoice& choice) {
  std::shared_ptr<ViewedBus> viewed;
  if (app::IsPluggedIn(choice.Camera) || isRecording_) {
    viewed = std::make_shared<ViewedBus>(app::OpenCamera(choice), nullptr, telemetry_);
  } else {
    auto simulated = panel_.Open(choice.Camera);
    bus::SimulatedBus* const camera = simulated.get();
    viewed = std::make_shared<ViewedBus>(std::move(simulated), camera, telemetry_);
  }
  {
    const std::lock_guard lock(mutex_);
    bus_ = viewed;
  }
  return std::make_unique<SessionPort>(viewed, [this] { panel_.Close(); });
}

std::shared_ptr<ViewedBus> ViewedCamera::OpenedBus() {
  const std::lock_guard lock(mutex_);
  return bus_.lock();
}

void ViewedCamera::Unplug(Done done) {
  Do(
      [this](app::CameraSession&) {
        const std::shared_ptr<ViewedBus> bus = OpenedBus();
        if (!bus) throw app::CommandError("the camera is not open");
        {
          const std::lock_guard lock(mutex_);
          isHeldAway_ = true;
          isGone_ = true;
          hasNews_ = true;
        }
        telemetry_.NoteEvent("unplugged from the page");
        bus->Unplug();
      },
      std::move(done));
}

void ViewedCamera::Plug(Done done) {
  DoAside(
      [this] {
        {
          const std::lock_guard lock(mutex_);
          if (!isHeldAway_) throw app::CommandError("the camera is plugged in");
          isHeldAway_ = false;
          hasNews_ = true;
        }
        Close();
        telemetry_.NoteEvent("plugged in from the page");
        Enter(CameraPhase::Off);
      },
      std::move(done));
}

void ViewedCamera::BeginFaults(const std::string& script, Done done) {
  Do(
      [this, script](app::CameraSession&) {
        const std::shared_ptr<ViewedBus> bus = OpenedBus();
        if (!bus) throw app::CommandError("the camera is not open");
        bus->BeginFaults(script);
        telemetry_.NoteEvent(script.empty() ? "faults end" : "faults begin: " + script);
      },
      std::move(done));
}

void ViewedCamera::Simulate(std::function<void(SimulationPanel& panel)> change, Done done) {
  DoAside(
      [this, change = std::move(change)] {
        if (!state_.Simulation) throw app::UsageError("only a simulated camera can be changed so");
        change(panel_);
        Enter(state_.Phase, state_.Error);
      },
      std::move(done));
}

void ViewedCamera::AccessRegister(RegisterChip chip, std::uint16_t address,
                                  std::optional<std::uint8_t> value,
                                  std::function<void(std::uint8_t value)> answer, Done done) {
  Do(
      [this, chip, address, value, answer = std::move(answer)](app::CameraSession& session) {
        std::uint8_t stored = 0;
        session.Use([&](app::OpenedCamera& opened) {
          opened.WithContext([&](CameraContext& context) {
            if (value) WriteRegister(context, chip, address, *value);
            stored = ReadRegister(context, chip, address);
          });
        });
        executor_([answer, stored] { answer(stored); });
      },
      std::move(done));
}

void ViewedCamera::AddRecording(const std::shared_ptr<PictureRecording>& recording) {
  const std::lock_guard lock(mutex_);
  recordings_.push_back(recording);
}

void ViewedCamera::RemoveRecording(const std::shared_ptr<PictureRecording>& recording) {
  const std::lock_guard lock(mutex_);
  std::erase(recordings_, recording);
}

}  // namespace lidcam::viewer
