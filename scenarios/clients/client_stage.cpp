#include "scenarios/clients/client_stage.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "driver/usb/stream/usb_capture_device.h"
#include "platform/host/nt/io/plug_and_play.h"
#include "platform/host/nt/verifier/irp_tracker.h"
#include "scenarios/run/status_text.h"
#include "scenarios/run/value_of.h"
#include "testbed/mutex_departures.h"

namespace lidcam::scenarios {

ClientStage& ClientStage::On(Stage& stage, const ApplicationRules& rules) {
  auto made = std::make_unique<ClientStage>(stage, rules);
  ClientStage& clients = *made;
  stage.Receive(std::move(made));
  return clients;
}

const UsbCaptureDevice* ClientStage::Usb() const {
  if (installed_ == nullptr || isRemoved_) return nullptr;
  return static_cast<const UsbCaptureDevice*>(&installed_->Device());
}

bool ClientStage::PlugIn(const PlugOptions& options) {
  stage_.Begin("plug in");
  isStarted_ = isGoing_ = isGone_ = isBeingRemoved_ = isRemoved_ = isRestarted_ = false;
  bus::UsbBus& bus = stage_.LayBus(options);
  try {
    installed_ = std::make_unique<testbed::InstalledTestbed>(
        bus, testbed::InstalledTestbedOptions{.DriverKey = stage_.DriverKey(),
                                              .Filter = &stage_.Between()});
    stage_.SaveSettings(installed_->Device().KsDevice->PhysicalDeviceObject);
  } catch (const std::runtime_error&) {
    stage_.Trace().Add("step plug in -> no room");
    return false;
  }
  return true;
}

NTSTATUS ClientStage::Start() {
  const NTSTATUS status = stage_.Do("start", [this] { return installed_->Start(); });
  stage_.Require(IsBusStatus(status), "start answers " + HexOf(status));
  isStarted_ = NT_SUCCESS(status);
  if (!rules_.HasTrouble) stage_.Require(isStarted_, "the device doesn't start");
  return status;
}

void ClientStage::RequireSuccess(const char* operation, NTSTATUS status) {
  if (rules_.LacksMemory && status == STATUS_INSUFFICIENT_RESOURCES) return;
  stage_.RequireStatus(operation, status, {STATUS_SUCCESS});
}

NTSTATUS ClientStage::PowerDown() {
  const NTSTATUS status = stage_.Do("power down", [this] { return installed_->PowerDown(); });
  RequireSuccess("power down", status);
  return status;
}

NTSTATUS ClientStage::PowerUp() {
  const NTSTATUS status = stage_.Do("power up", [this] { return installed_->PowerUp(); });
  RequireSuccess("power up", status);
  return status;
}

NTSTATUS ClientStage::SurpriseRemove() {
  isGoing_ = true;
  const NTSTATUS status =
      stage_.Do("surprise removal", [this] { return installed_->SurpriseRemove(); });
  stage_.RequireStatus("surprise removal", status, {STATUS_SUCCESS});
  isGone_ = true;
  RequireNoStream();
  return status;
}

NTSTATUS ClientStage::Remove() {
  isGoing_ = isBeingRemoved_ = true;
  const NTSTATUS status = stage_.Do("remove", [this] { return installed_->Remove(); });
  stage_.RequireStatus("remove", status, {STATUS_SUCCESS});
  isGone_ = true;
  isRemoved_ = true;
  return status;
}

NTSTATUS ClientStage::Restart() {
  isRestarted_ = true;
  const NTSTATUS stopped = stage_.Do("stop device", [this] {
    const NTSTATUS asked = host::QueryStopDevice(TopDevice());
    return NT_SUCCESS(asked) ? host::StopDevice(TopDevice()) : asked;
  });
  stage_.RequireStatus("stop device", stopped, {STATUS_SUCCESS});
  const NTSTATUS status = stage_.Do("restart", [this] { return installed_->Start(); });
  stage_.Require(IsBusStatus(status), "restart answers " + HexOf(status));
  return status;
}

NTSTATUS ClientStage::ThinkOfRemoval() {
  const NTSTATUS status =
      stage_.Do("query remove", [this] { return host::QueryRemoveDevice(TopDevice()); });
  stage_.RequireStatus("query remove", status, {STATUS_SUCCESS});
  return status;
}

void ClientStage::PullPlug() {
  isGoing_ = true;
  stage_.Do("pull plug", [this] {
    installed_->PullPlug();
    return STATUS_SUCCESS;
  });
}

Application& ClientStage::OwnApplication() {
  applications_.push_back(std::make_unique<Application>(*this, applications_.size() + 1));
  stage_.Watch(applications_.back()->Doing());
  return *applications_.back();
}

void ClientStage::BeginApplications(std::uint64_t count,
                                    const std::function<void(Application&)>& live) {
  for (std::uint64_t i = 0; i < count; ++i) {
    Application& application = OwnApplication();
    threads_.push_back(std::make_unique<host::ServiceThread>([&application, live] {
      live(application);
      application.End();
    }));
  }
}

void ClientStage::WaitForApplications() {
  stage_.WaitForOthers();
  for (auto& thread : threads_) delete thread.release();  // may throw when the world stops
  threads_.clear();
}

void ClientStage::RequireKnownDepartures() {
  if (isRemoved_ || isGone_) return;
  for (const testbed::SeenDeparture& departure : testbed::DeparturesSeen(TopDevice())) {
    stage_.Require(testbed::IsRequired(departure),
                   "the driver breaks rule " + std::to_string(static_cast<int>(departure.Rule)) +
                       " of the class's mutexes in call " +
                       std::to_string(static_cast<int>(departure.Call)));
  }
}

// A stream whose drain failed can't be released.
void ClientStage::RequireNoStream() {
  const UsbStreamRecord* const stream = Usb() != nullptr ? ValueOf(Usb()->UsbStream) : nullptr;
  if (stream == nullptr || stage_.Trace().HasFailedDrain()) return;
  stage_.RequireAlways(ValueOf(stream->Opened) == 0, "a camera that is gone has a stream");
}

void ClientStage::Close() {
  WaitForApplications();
  if (isGone_) RequireNoStream();
  RequireKnownDepartures();
  stage_.Do("remove", [this] {
    isGoing_ = true;
    installed_->Close();
    return STATUS_SUCCESS;
  });
  isRemoved_ = true;
  installed_.reset();
  const host::IrpUsage usage = host::IrpUsageOfWorld();
  stage_.RequireAlways(usage.Known == 0,
                       "a removed camera has left " + std::to_string(usage.Known) + " request(s)");
}

}  // namespace lidcam::scenarios
