#pragma once

#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "platform/host/nt/processor/kernel_guards.h"
#include "scenarios/clients/application.h"
#include "scenarios/stage/stage.h"
#include "testbed/installed_testbed.h"

namespace lidcam::scenarios {

/// One installed camera, the applications that use it, and what plug and play tells it meanwhile.
///
/// Plug and play speaks from the scenario's thread, each application has one of its own. What doesn't
/// hold ends the run by a violation.
class ClientStage final : public StageGuest {
 public:
  /// Makes one that lives with the stage.
  static ClientStage& On(Stage& stage, const ApplicationRules& rules);

  ClientStage(Stage& stage, const ApplicationRules& rules) : stage_(stage), rules_(rules) {}

  [[nodiscard]] Stage& Host() { return stage_; }
  [[nodiscard]] const ApplicationRules& Rules() const { return rules_; }
  [[nodiscard]] const UsbCaptureDevice* Usb() const override;
  [[nodiscard]] PDEVICE_OBJECT TopDevice() const { return installed_->TopDevice(); }

  /// @return false if the kernel had no room for the driver and its device
  bool PlugIn(const PlugOptions& options);

  // What plug and play and the power manager say, each with the driver's status.

  NTSTATUS Start();
  NTSTATUS PowerDown();
  NTSTATUS PowerUp();
  NTSTATUS Remove();
  NTSTATUS SurpriseRemove();
  /// The device is stopped for its resources and started again.
  NTSTATUS Restart();
  /// It is asked whether it may be removed, and may stay.
  NTSTATUS ThinkOfRemoval();
  /// The cable is pulled, and nobody has told the driver yet.
  void PullPlug();

  /// Applications begin, each on its thread; `live` is what each does.
  void BeginApplications(std::uint64_t count, const std::function<void(Application&)>& live);
  /// One that lives on the scenario's thread.
  Application& OwnApplication();
  void WaitForApplications();
  /// The application of a number has nothing open any more.
  [[nodiscard]] bool HasEnded(std::size_t number) const {
    return applications_[number - 1]->Doing().IsOver;
  }

  /// Takes the camera out of the host; nothing may be left of it then.
  void Close();

  /// A removal has begun: whatever is asked may be refused for it from here on.
  [[nodiscard]] bool IsGoing() const { return isGoing_; }
  /// The driver has been told that the device is gone, or been stopped for good.
  [[nodiscard]] bool IsGone() const { return isGone_; }
  [[nodiscard]] bool IsRemoved() const { return isRemoved_; }
  /// A stop for resources is on, or has been: the driver may have no camera for a while.
  [[nodiscard]] bool IsRestarted() const { return isRestarted_; }

 private:
  void RequireSuccess(const char* operation, NTSTATUS status);
  void RequireKnownDepartures();

  Stage& stage_;
  const ApplicationRules rules_;
  std::unique_ptr<testbed::InstalledTestbed> installed_;
  std::vector<std::unique_ptr<Application>> applications_;
  std::vector<std::unique_ptr<host::ServiceThread>> threads_;
  bool isStarted_ = false;
  bool isGoing_ = false;
  bool isGone_ = false;
  bool isRemoved_ = false;
  bool isRestarted_ = false;
};

}  // namespace lidcam::scenarios
