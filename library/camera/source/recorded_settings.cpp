#include "library/camera/source/recorded_settings.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <numeric>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "bus/capture/replay/control_history.h"
#include "driver/core/control/camera_lifecycle.h"
#include "driver/core/control/stream_modes.h"
#include "driver/sensor/controls/image_controls.h"
#include "library/base/command_error.h"
#include "library/camera/bring_up/started_camera.h"
#include "library/camera/bring_up/virtual_time.h"
#include "library/camera/gates/bus_gates.h"
#include "library/settings/trace_observer.h"
#include "platform/host/nt/system/debug_print.h"

namespace lidcam::app {
namespace {

/// The settings that control the exposure loop and the light states.
struct ExposureSettings {
  std::uint32_t AutoExposure;
  std::int32_t Flicker;
  std::int32_t LightMode;
};

// The usual ones first: of several that fit equally well, the first is used. The two frequencies of
// the mains differ in the exposure times only.
constexpr std::array kChoices = {
    ExposureSettings{1, Flicker50Hz, 0}, ExposureSettings{1, FlickerOff, 0},
    ExposureSettings{0, Flicker50Hz, 0}, ExposureSettings{0, FlickerOff, 0},
    ExposureSettings{1, Flicker50Hz, 1}, ExposureSettings{1, FlickerOff, 1},
    ExposureSettings{0, Flicker50Hz, 1}, ExposureSettings{0, FlickerOff, 1},
};

void Give(CameraContext& camera, const ExposureSettings& settings) {
  camera.AutoExposure = settings.AutoExposure;
  camera.Flicker = settings.Flicker;
  camera.LDMode = settings.LightMode;
}

/// One run of the driver, from plug-in to unplugging, in virtual time of its own.
void Run(bus::UsbBus& bus, const std::u16string& driverKey,
         const std::function<void(CameraContext& camera)>& use) {
  RunInVirtualTime([&] { WithStartedCamera(bus, use, driverKey); });
}

// The driver saves its settings when it stops the hardware.
void Store(bus::UsbBus& bus, const std::u16string& driverKey, const ExposureSettings& settings) {
  Run(bus, driverKey, [&](CameraContext& camera) { Give(camera, settings); });
}

/// The widest setting that the recorded host selected successfully.
std::uint32_t GivenSetting(bus::UsbBus& bus) {
  constexpr std::uint8_t kWidest = 7;
  for (std::uint8_t setting = kWidest; setting > 0; --setting) {
    if (bus.SelectSetting(0, setting) == bus::UsbStatus::Ok) return setting;
  }
  return 0;
}

using Requests = std::vector<bus::SetupPacket>;

/// A host's requests up to a stream.
struct BringUp {
  Requests Creation;  ///< up to the choice of the alternate setting
  Requests Start;     ///< of the stream, behind it
};

/// Records the requests that pass through.
class RequestKeeper final : public bus::PassingBus {
 public:
  using bus::PassingBus::PassingBus;

  bus::ControlResult ControlTransfer(const bus::SetupPacket& setup,
                                     std::span<std::uint8_t> data) override {
    requests_.push_back(setup);
    return PassingBus::ControlTransfer(setup, data);
  }

  [[nodiscard]] Requests Take() { return std::exchange(requests_, {}); }

 private:
  Requests requests_;
};

BringUp RecordedBringUp(const bus::CaptureBus& bus) {
  const Requests requests = bus.RequestsAheadOfStream();
  const auto chosen = std::find_if(requests.rbegin(), requests.rend(), [](const auto& setup) {
    return bus::IsSetInterface(setup) && setup.Value != 0;
  });
  return {.Creation = {requests.begin(), chosen.base()}, .Start = {chosen.base(), requests.end()}};
}

/// Changes the settings as an application does.
void Change(CameraContext& context, const ExposureSettings& to) {
  if (context.AutoExposure != to.AutoExposure) {
    context.AutoExposure = to.AutoExposure;
    ApplyImageControl(ImageControlExposure, context);
  }
  if (context.Flicker != to.Flicker) {
    context.Flicker = to.Flicker;
    ApplyImageControl(ImageControlFlicker, context);
  }
  if (context.LDMode != to.LightMode) {
    context.LDMode = to.LightMode;
    context.LightSwitchKind = 1;
    ApplyImageControl(ImageControlLDMode, context);
  }
}

/// The driver's requests with the settings in the registry, `stored`, and with those that an application
/// changes before the first frame. The registry's stay.
BringUp OwnBringUp(bus::CaptureBus& bus, const std::u16string& driverKey,
                   const ExposureSettings& stored, const ExposureSettings& changed) {
  bus.ForgetRequests();
  RequestKeeper keeper(bus);
  BringUp own;
  Run(keeper, driverKey, [&](CameraContext& camera) {
    own.Creation = keeper.Take();
    MarkStreaming(camera);
    SelectStreamMode(camera, {.Width = 640,
                              .Height = 480,
                              .BitCount = 16,
                              .Compression = kFourccYuy2,
                              .ImageSize = 640 * 480 * 2,
                              .Spare = 0,
                              .AvgTimePerFrame = 0,
                              .AlternateSetting = GivenSetting(bus)});
    Change(camera, changed);
    own.Start = keeper.Take();
    Give(camera, stored);
  });
  return own;
}

/// Edit distance of two hosts' requests: how many would have to be deleted or inserted.
std::size_t Difference(const Requests& one, const Requests& other) {
  std::vector<std::size_t> before(other.size() + 1);
  std::iota(before.begin(), before.end(), std::size_t{0});
  std::vector<std::size_t> now(other.size() + 1);
  for (const bus::SetupPacket& request : one) {
    now[0] = before[0] + 1;
    for (std::size_t i = 0; i < other.size(); ++i) {
      now[i + 1] = request == other[i] ? before[i] : std::min(before[i + 1], now[i]) + 1;
    }
    std::swap(before, now);
  }
  return before.back();
}

/// Only the registers: a value may depend on settings other than those compared here.
Requests WithoutValues(Requests requests) {
  for (bus::SetupPacket& request : requests) request.Value = 0;
  return requests;
}

/// The difference of two hosts: in the registers first, then in the values.
std::pair<std::size_t, std::size_t> Distance(const BringUp& one, const BringUp& other) {
  return {Difference(WithoutValues(one.Creation), WithoutValues(other.Creation)) +
              Difference(WithoutValues(one.Start), WithoutValues(other.Start)),
          Difference(one.Creation, other.Creation) + Difference(one.Start, other.Start)};
}

/// Notes whether the recording lacks the answer to a request with data. A write says nothing: it may
/// have another value with other settings.
class AnswerWatch final : public bus::PassingBus {
 public:
  using bus::PassingBus::PassingBus;

  bus::ControlResult ControlTransfer(const bus::SetupPacket& setup,
                                     std::span<std::uint8_t> data) override {
    const bus::ControlResult result = PassingBus::ControlTransfer(setup, data);
    if (setup.IsDeviceToHost() && result.Status == bus::UsbStatus::NotRecorded) isMissing_ = true;
    return result;
  }

  [[nodiscard]] bool IsMissing() const { return isMissing_; }

 private:
  bool isMissing_ = false;
};

/// The sensor of a recorded camera, as the driver's bring-up identifies it.
struct RecordedSensor {
  bool IsRecorded = true;
  std::optional<std::int32_t> Type{};  ///< nothing if the bring-up failed
};

RecordedSensor SensorOf(bus::CaptureBus& bus, const std::u16string& driverKey) {
  RecordedDevice plugged(bus);
  AnswerWatch watch(plugged);
  RecordedSensor sensor;
  try {
    Run(watch, driverKey, [&](CameraContext& camera) { sensor.Type = camera.SensorType; });
  } catch (const CommandError&) {
    // A bring-up that failed when it was recorded also fails in the stream, which reports it.
  }
  sensor.IsRecorded = !watch.IsMissing();
  return sensor;
}

void Adopt(bus::CaptureBus& bus, const std::u16string& driverKey) {
  const BringUp recorded = RecordedBringUp(bus);
  const ExposureSettings* best = nullptr;
  std::pair<std::size_t, std::size_t> least;
  for (const ExposureSettings& stored : kChoices) {
    Store(bus, driverKey, stored);
    for (const ExposureSettings& changed : kChoices) {
      const auto distance = Distance(OwnBringUp(bus, driverKey, stored, changed), recorded);
      if (best != nullptr && distance >= least) continue;
      best = &changed;
      least = distance;
    }
  }
  Store(bus, driverKey, *best);
}

}  // namespace

bool AdoptRecordedSettings(bus::CaptureBus& bus, const std::u16string& driverKey) {
  const TracePause trace;
  const host::DebugPrintCapture debug;
  RecordedSensor sensor;
  try {
    sensor = SensorOf(bus, driverKey);
    // All others expose by themselves, and discard nothing.
    if (sensor.IsRecorded && sensor.Type == SensorTypeVGA0708) Adopt(bus, driverKey);
  } catch (const CommandError&) {
    // A failed bring-up also fails in the stream, which reports it.
  }
  bus.ForgetRequests();
  return sensor.IsRecorded;
}

}  // namespace lidcam::app
