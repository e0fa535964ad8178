#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iterator>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "bus/faults/fault_script.h"
#include "camera_model/bus_adapter/simulated_bus.h"
#include "fuzz/support/input.h"
#include "serve/device/camera_supply.h"
#include "serve/sockets/session.h"

namespace lidcam::fuzz {

/// A recording in which little more was asked for than descriptors.
class SparseRecording final : public bus::UsbBus {
 public:
  bus::ControlResult ControlTransfer(const bus::SetupPacket& setup,
                                     std::span<std::uint8_t> data) override {
    constexpr std::uint8_t kGetDescriptor = 6;
    if (setup.Request == kGetDescriptor || ++others_ == 1) {
      return camera_->ControlTransfer(setup, data);
    }
    return {bus::UsbStatus::NotRecorded, 0};
  }
  bus::UsbStatus SelectSetting(std::uint8_t interface, std::uint8_t setting) override {
    return camera_->SelectSetting(interface, setting);
  }
  bus::IsochronousResult ReadIsochronous(std::uint8_t endpoint, std::span<std::uint8_t> buffer,
                                         std::span<bus::IsochronousPacket> packets) override {
    return camera_->ReadIsochronous(endpoint, buffer, packets);
  }
  void Abort(std::uint8_t endpoint) override { camera_->Abort(endpoint); }
  [[nodiscard]] std::uint32_t FrameNumber() override { return camera_->FrameNumber(); }
  void Unplug() override { camera_->Unplug(); }

 private:
  std::unique_ptr<bus::SimulatedBus> camera_ = bus::MakeSimulatedBus({}, bus::Pacing::FreeRunning);
  unsigned others_ = 0;
};

/// Simulated cameras; the number chooses what goes wrong on their buses.
inline serve::CameraSupply::Options FaultyCameras(std::uint8_t choice) {
  constexpr const char* kFaults[] = {"",
                                     "control 4 late 300ms; control 6 late 2ms",
                                     "control 5 silent; at 2ms silent",
                                     "at 3ms unplug",
                                     "setting 7 refuse; control 6 stall; at 2ms fail",
                                     "control 7 unplug",
                                     "at 1ms oversize 4; at 2ms error 3; control 6 fail"};
  serve::CameraSupply::Options options{
      .Plug = [] { return bus::MakeSimulatedBus({}, bus::Pacing::FreeRunning); }};
  const std::size_t kind = choice % (std::size(kFaults) + 1);
  if (kind == std::size(kFaults)) {
    options.Plug = [] { return std::make_unique<SparseRecording>(); };
    return options;
  }
  const char* const script = kFaults[kind];
  if (*script != '\0') options.Faults = bus::ParseFaultScript(script);
  return options;
}

/// What no client can make the server exceed: answers up to one beyond the bound at which it stops to compose them.
inline constexpr std::size_t kMostOutput = 5 * 1024 * 1024;

/// Plays an input against a session: pieces of bytes, each behind the time that passes before it, and whether the
/// client reads. Nothing but a ProtocolError may be thrown.
inline void PlayClient(Input& input, serve::Session& session, serve::Session::Time now) {
  constexpr std::chrono::microseconds kTick{250};
  try {
    while (!input.IsEmpty() && !session.IsOver()) {
      const auto head = input.Take<std::uint8_t>();
      now += kTick * (head >> 1);
      const bool reads = (head & 1) == 0;
      Input piece = input.Split(input.Take<std::uint16_t>());
      do {
        std::vector<std::uint8_t> bytes(std::min(piece.Left(), session.InputRoom()));
        piece.TakeInto(bytes.data(), bytes.size());
        session.Receive(bytes);
        session.Advance(now);
        Require(session.Output().size() < kMostOutput);
        // Or the server would spin.
        const auto deadline = session.Deadline();
        Require(!deadline || *deadline > now || !session.Output().empty() || session.IsOver());
        if (reads) session.Output().clear();
      } while (!piece.IsEmpty() && session.InputRoom() > 0 && !session.IsOver());
    }
  } catch (const serve::ProtocolError& error) {
    Require(error.what()[0] != '\0');
  }
}

}  // namespace lidcam::fuzz
