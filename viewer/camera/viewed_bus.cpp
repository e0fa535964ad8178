#include "viewer/camera/viewed_bus.h"

#include <chrono>
#include <thread>
#include <utility>

#include "bus/faults/fault_script.h"
#include "bus/faults/random_faults.h"
#include "library/base/command_error.h"
#include "library/camera/gates/frame_faults.h"

namespace lidcam::viewer {
namespace {

constexpr std::uint8_t kWriteRequest = 0xA0;
constexpr std::uint8_t kReadRequest = 0xA1;
constexpr std::uint8_t kVendorOut = 0x40;
constexpr std::uint8_t kVendorIn = 0xC0;
constexpr std::uint16_t kSelectRegister = 0xFFFF;
constexpr std::uint16_t kSensorBit = 0x02;  // of the select register's value

// Reads and frames count from a begin of their own; requests count from the making of a FaultBus.
bus::FaultScript BegunAt(bus::FaultScript script, std::uint64_t microseconds,
                         std::uint64_t frames) {
  for (bus::BusFault& fault : script.Faults) {
    if (fault.Place == bus::FaultPlace::Time) fault.At += microseconds;
    if (fault.Place == bus::FaultPlace::Frame) {
      fault.At = bus::FramePacket(bus::FrameOf(fault.At) + frames, bus::PacketOf(fault.At));
    }
  }
  return script;
}

}  // namespace

ViewedBus::ViewedBus(std::unique_ptr<bus::UsbBus> camera, bus::SimulatedBus* simulated,
                     CameraTelemetry& telemetry)
    : camera_(std::move(camera)), simulated_(simulated), telemetry_(telemetry) {}

void ViewedBus::BeginFaults(const std::string& script) {
  bus::FaultScript faults;
  try {
    faults = bus::ParseFaultScript(script);
  } catch (const bus::FaultScriptError& error) {
    throw app::UsageError(error.what());
  }
  if (simulated_ == nullptr) app::RefuseFrameFaults(faults);
  const auto tell = [this](const std::string& line) { telemetry_.NoteLine(line); };
  if (simulated_ != nullptr) {
    std::uint64_t frames = 0;
    simulated_->WithCamera(
        [&](camera_model::UsbDevice& device) { frames = device.Stream().FramesBegun(); });
    faults = BegunAt(faults, microframe_ * bus::kMicrosecondsPerMicroframe, frames);
    simulated_->DisturbFrames(faults, tell);
  } else {
    faults = BegunAt(faults, microframe_ * bus::kMicrosecondsPerMicroframe, 0);
  }
  auto begun = std::make_shared<bus::FaultBus>(
      *camera_, bus::FaultBusOptions{.Script = faults,
                                     .Sleep =
                                         [](std::uint64_t microseconds) {
                                           std::this_thread::sleep_for(
                                               std::chrono::microseconds(microseconds));
                                         },
                                     .Observer = tell});
  const std::lock_guard lock(mutex_);
  faults_ = faults.Faults.empty() ? nullptr : std::move(begun);
}

// A request in progress keeps the faults that it began with.
std::shared_ptr<bus::UsbBus> ViewedBus::Target() {
  const std::lock_guard lock(mutex_);
  if (faults_) return faults_;
  return {std::shared_ptr<void>(), camera_.get()};
}

bus::ControlResult ViewedBus::ControlTransfer(const bus::SetupPacket& setup,
                                              std::span<std::uint8_t> data) {
  const bus::ControlResult result = Target()->ControlTransfer(setup, data);
  if (result.Status == bus::UsbStatus::Ok) NoteControl(setup, data.first(result.Transferred));
  return result;
}

void ViewedBus::NoteControl(const bus::SetupPacket& setup, std::span<const std::uint8_t> data) {
  const bool isWrite = setup.RequestType == kVendorOut && setup.Request == kWriteRequest;
  if (isWrite && setup.Index == kSelectRegister) {
    select_ = setup.Value;
    return;
  }
  const RegisterChip chip =
      (select_ & kSensorBit) != 0 ? RegisterChip::Sensor : RegisterChip::Bridge;
  if (isWrite) {
    telemetry_.NoteRegister(chip, setup.Index, static_cast<std::uint8_t>(setup.Value & 0xFF));
  } else if (setup.RequestType == kVendorIn && setup.Request == kReadRequest && !data.empty()) {
    telemetry_.NoteRegister(chip, setup.Index, data[0]);
  }
}

bus::UsbStatus ViewedBus::SelectSetting(std::uint8_t interface, std::uint8_t alternateSetting) {
  return Target()->SelectSetting(interface, alternateSetting);
}

bus::IsochronousResult ViewedBus::ReadIsochronous(std::uint8_t endpoint,
                                                  std::span<std::uint8_t> buffer,
                                                  std::span<bus::IsochronousPacket> packets) {
  const bus::IsochronousResult result = Target()->ReadIsochronous(endpoint, buffer, packets);
  std::uint64_t count = 0;
  std::uint64_t bytes = 0;
  std::uint64_t errors = result.Status == bus::UsbStatus::Ok ? 0 : 1;
  if (result.Status == bus::UsbStatus::Ok) microframe_ = result.StartMicroframe + packets.size();
  for (const bus::IsochronousPacket& packet : packets) {
    count += packet.Length != 0 ? 1 : 0;
    bytes += packet.Length;
    const bool isFault = packet.Status != bus::UsbStatus::Ok && result.Status == bus::UsbStatus::Ok;
    errors += isFault ? 1 : 0;
  }
  // What ends a stream is no error of the bus.
  if (result.Status == bus::UsbStatus::Aborted || result.Status == bus::UsbStatus::EndOfCapture) {
    errors = 0;
  }
  telemetry_.NotePackets(count, bytes, errors);
  return result;
}

bool ViewedBus::HasReceived(std::uint8_t endpoint, std::size_t packets) {
  return Target()->HasReceived(endpoint, packets);
}

void ViewedBus::Abort(std::uint8_t endpoint) {
  Target()->Abort(endpoint);
}

std::uint32_t ViewedBus::FrameNumber() {
  return Target()->FrameNumber();
}

void ViewedBus::Unplug() {
  Target()->Unplug();
}

}  // namespace lidcam::viewer
