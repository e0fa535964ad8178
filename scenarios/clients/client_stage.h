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

/// One installed camera, the applications that use it, and plug and play.
///
/// Plug and play runs on the scenario's thread, each application on one of its own. A failed check
/// ends the run by a violation.
class ClientStage final : public StageGuest {
 public:
  /// Makes one with the lifetime of the stage.
  static ClientStage& On(Stage& stage, const ApplicationRules& rules);

  ClientStage(Stage& stage, const ApplicationRules& rules) : stage_(stage), rules_(rules) {}

  [[nodiscard]] Stage& Host() { return stage_; }
  [[nodiscard]] const ApplicationRules& Rules() const { return rules_; }
  [[nodiscard]] const UsbCaptureDevice* Usb() const override;
  [[nodiscard]] PDEVICE_OBJECT TopDevice() const { return installed_->TopDevice(); }

  /// @return false if the kernel had no memory for the driver and its device
  bool PlugIn(const PlugOptions& options);

  // Requests of plug and play and the power manager, each with the driver's status.

  NTSTATUS Start();
  NTSTATUS PowerDown();
  NTSTATUS PowerUp();
  NTSTATUS Remove();
  NTSTATUS SurpriseRemove();
  /// The device is stopped for its resources and started again.
  NTSTATUS Restart();
  /// A query for removal, followed by its cancellation.
  NTSTATUS ThinkOfRemoval();
  /// Unplugs the device, without a report to the driver.
  void PullPlug();

  /// Starts applications, each on its thread; `live` is the body of each.
  void BeginApplications(std::uint64_t count, const std::function<void(Application&)>& live);
  /// An application on the scenario's thread.
  Application& OwnApplication();
  void WaitForApplications();
  /// The application of a number has closed everything.
  [[nodiscard]] bool HasEnded(std::size_t number) const {
    return applications_[number - 1]->Doing().IsOver;
  }

  /// Removes the camera from the host, and checks that nothing is left of it.
  void Close();

  /// A removal has begun: from here on all requests may be refused.
  [[nodiscard]] bool IsGoing() const { return isGoing_; }
  /// The driver has processed the removal, or the final stop.
  [[nodiscard]] bool IsGone() const { return isGone_; }
  /// The device's removal has begun: the driver's device may be gone already, and the bus's own one answers.
  [[nodiscard]] bool IsBeingRemoved() const { return isBeingRemoved_; }
  [[nodiscard]] bool IsRemoved() const { return isRemoved_; }
  /// A stop for resources has begun: the driver may have no camera for a while.
  [[nodiscard]] bool IsRestarted() const { return isRestarted_; }

 private:
  void RequireSuccess(const char* operation, NTSTATUS status);
  void RequireKnownDepartures();
  void RequireNoStream();

  Stage& stage_;
  const ApplicationRules rules_;
  std::unique_ptr<testbed::InstalledTestbed> installed_;
  std::vector<std::unique_ptr<Application>> applications_;
  std::vector<std::unique_ptr<host::ServiceThread>> threads_;
  bool isStarted_ = false;
  bool isGoing_ = false;
  bool isGone_ = false;
  bool isBeingRemoved_ = false;
  bool isRemoved_ = false;
  bool isRestarted_ = false;
};

}  // namespace lidcam::scenarios
