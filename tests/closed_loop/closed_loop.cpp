#include "tests/closed_loop/closed_loop.h"

#include <stdlib.h>

#include <stdexcept>
#include <utility>

#include "driver/core/control/control_codes.h"
#include "driver/exposure/auto_exposure.h"
#include "library/camera/gates/bus_gates.h"
#include "library/settings/host_environment.h"
#include "library/settings/stream_size.h"
#include "platform/host/nt/io/device_object.h"
#include "platform/host/nt/registry/registry.h"
#include "platform/host/nt/system/status_words.h"
#include "testbed/worlds.h"

namespace lidcam::app {
namespace {

bus::SimulatedBusOptions BusFor(const LoopSetup& setup) {
  bus::SimulatedBusOptions options;
  options.Camera.Light.MainsRate = 2 * setup.MainsHertz;
  options.Camera.Light.Schedule = setup.Light;
  options.Camera.View = setup.View;
  return options;
}

void Require(NTSTATUS status, const char* operation) {
  if (NT_SUCCESS(status)) return;
  throw std::runtime_error(std::string(operation) + ": " + host::StatusText(status));
}

void SetCode(CameraContext& context, std::uint32_t code, std::int32_t value) {
  ControlRecord record{};
  record.Code = code;
  record.Value = value;
  if (SetControl(context, record) == 0) return;
  throw std::runtime_error("the camera refuses control code " + std::to_string(code));
}

}  // namespace

LoopEnvironment::LoopEnvironment() {
  std::string name = (std::filesystem::temp_directory_path() / "lidcam-loop-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
  folder_ = name;
  setenv("LIDCAM_HOME", folder_.c_str(), 1);
  OpenHostEnvironment({}, SetFiles::OfSimulatedCameras);
}

LoopEnvironment::~LoopEnvironment() {
  static_cast<void>(host::CloseRegistry());
  unsetenv("LIDCAM_HOME");
  std::filesystem::remove_all(folder_);
}

ClosedLoop::ClosedLoop(const LoopSetup& setup, PictureHandler pictures)
    : setup_(setup), pictures_(std::move(pictures)), bus_(BusFor(setup)) {
  std::unique_lock lock(mutex_);
  thread_ = std::thread([this] { Live(); });
  try {
    WaitForAnswer(lock);
  } catch (...) {
    lock.unlock();
    thread_.join();
    throw;
  }
}

ClosedLoop::~ClosedLoop() {
  {
    const std::lock_guard lock(mutex_);
    work_ = nullptr;
    isAsked_ = true;
  }
  turn_.notify_all();
  thread_.join();
}

// The thread runs one world from begin to end.
void ClosedLoop::Live() {
  std::exception_ptr error;
  try {
    testbed::RunInVirtualTime({.KeepsFreedPool = false}, [this] {
      SettingGate gate(bus_);
      gate.Allow(
          SettingsFor({.Delivered = setup_.Size, .Raw = setup_.Size}, {SensorTypeVGA0708, true}));
      testbed::WithTransportTestbed(
          gate,
          {.DriverKey = host::ImagingDriverKey(0),
           .Frames = [this](const testbed::HostedFrame& frame) { Take(frame); }},
          [this](testbed::TransportTestbed& camera) { Serve(camera); });
    });
  } catch (...) {
    error = std::current_exception();
  }
  const std::lock_guard lock(mutex_);
  error_ = error;
  isAsked_ = false;
  turn_.notify_all();
}

void ClosedLoop::Serve(testbed::TransportTestbed& camera) {
  constexpr std::uint32_t kFlicker = 40;
  Require(camera.Start(), "start");
  camera.WithCamera([this](CameraContext& context) { SetCode(context, kFlicker, setup_.Flicker); });
  if (setup_.StartIndex) AeIndex = *setup_.StartIndex;
  Require(camera.Acquire({.Width = setup_.Size.Width, .Height = setup_.Size.Height}), "acquire");
  Require(camera.Run(), "run");
  std::unique_lock lock(mutex_);
  for (;;) {
    isAsked_ = false;
    turn_.notify_all();
    turn_.wait(lock, [this] { return isAsked_; });
    if (!work_) return;
    try {
      work_(camera);
    } catch (const std::exception&) {
      error_ = std::current_exception();
    }
  }
}

void ClosedLoop::WaitForAnswer(std::unique_lock<std::mutex>& lock) {
  turn_.wait(lock, [this] { return !isAsked_; });
  if (error_ != nullptr) std::rethrow_exception(std::exchange(error_, nullptr));
}

void ClosedLoop::Ask(Work work) {
  std::unique_lock lock(mutex_);
  work_ = std::move(work);
  isAsked_ = true;
  turn_.notify_all();
  WaitForAnswer(lock);
}

void ClosedLoop::Take(const testbed::HostedFrame& frame) {
  const DeliveredFrame delivered{
      .Yuy2 = frame.Yuy2, .RawFrame = frame.RawFrame, .Microframe = frame.Microframe};
  FrameRow row = ReadFrameRow(frame.Camera, delivered, events_.OfNewestFrame());
  row.Frame = rows_.size() + 1;
  row.Lux = camera_model::LuxAt(setup_.Light, row.Seconds);
  rows_.push_back(row);
  if (pictures_) pictures_(delivered);
}

void ClosedLoop::Set(std::uint32_t code, std::int32_t value) {
  Ask([&](testbed::TransportTestbed& camera) {
    camera.WithCamera([&](CameraContext& context) { SetCode(context, code, value); });
  });
}

void ClosedLoop::RunFrames(std::size_t count) {
  constexpr LONGLONG kLongestFrame = testbed::kSecond;
  const std::size_t wanted = rows_.size() + count;
  Ask([&](testbed::TransportTestbed& camera) {
    if (camera.WaitForFrames(wanted, static_cast<LONGLONG>(count + 10) * kLongestFrame)) return;
    throw std::runtime_error("the camera sends no more frames");
  });
}

}  // namespace lidcam::app
