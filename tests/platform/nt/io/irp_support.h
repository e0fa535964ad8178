#pragma once

#include <functional>
#include <utility>
#include <vector>

#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/host/nt/io/device_object.h"
#include "platform/host/nt/verifier/irp_tracker.h"
#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::host {

inline constexpr UCHAR kMajor = IRP_MJ_INTERNAL_DEVICE_CONTROL;

/// A driver with one device, whose dispatch routine is a lambda.
class TestDriver {
 public:
  using Dispatch = std::function<NTSTATUS(PDEVICE_OBJECT, PIRP)>;

  explicit TestDriver(Dispatch dispatch) : dispatch_(std::move(dispatch)) {
    InitializeDriverObject(driver_);
    driver_.MajorFunction[kMajor] = Enter;
    device_.DriverObject = &driver_;
    device_.DeviceExtension = this;
  }
  TestDriver(const TestDriver&) = delete;
  TestDriver& operator=(const TestDriver&) = delete;

  [[nodiscard]] PDEVICE_OBJECT Device() { return &device_; }

 private:
  static NTSTATUS NTAPI Enter(PDEVICE_OBJECT device, PIRP irp) {
    return static_cast<TestDriver*>(device->DeviceExtension)->dispatch_(device, irp);
  }

  DRIVER_OBJECT driver_;
  HostDevice device_;
  Dispatch dispatch_;
};

inline NTSTATUS Complete(PIRP irp, NTSTATUS status) {
  irp->IoStatus.Status = status;
  IoCompleteRequest(irp, IO_NO_INCREMENT);
  return status;
}

/// Completes the request at once.
inline TestDriver::Dispatch Answer(NTSTATUS status) {
  return [status](PDEVICE_OBJECT, PIRP irp) { return Complete(irp, status); };
}

/// Keeps the request pending.
inline NTSTATUS NTAPI Pend(PDEVICE_OBJECT, PIRP irp) {
  IoMarkIrpPending(irp);
  return STATUS_PENDING;
}

/// A request whose completion routine is a lambda.
class Request {
 public:
  using Done = std::function<NTSTATUS(PDEVICE_OBJECT, PIRP)>;

  explicit Request(CCHAR locations = 1, Done done = {})
      : irp_(IoAllocateIrp(locations, FALSE)), done_(std::move(done)) {}
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;

  [[nodiscard]] PIRP Irp() const { return irp_; }
  PIRP operator->() const { return irp_; }
  void Free() { IoFreeIrp(irp_); }

  /// Fills the next location, with the routine called in all cases.
  void Arm() {
    IoGetNextIrpStackLocation(irp_)->MajorFunction = kMajor;
    IoSetCompletionRoutine(irp_, Completed, this, TRUE, TRUE, TRUE);
  }
  NTSTATUS Send(PDEVICE_OBJECT device) {
    Arm();
    return IoCallDriver(device, irp_);
  }

  int Completions = 0;

 private:
  static NTSTATUS NTAPI Completed(PDEVICE_OBJECT device, PIRP irp, PVOID context) {
    auto& self = *static_cast<Request*>(context);
    ++self.Completions;
    return self.done_ ? self.done_(device, irp) : STATUS_MORE_PROCESSING_REQUIRED;
  }

  PIRP irp_;
  Done done_;
};

/// A lambda as the completion routine of a driver in between. It must outlive the request.
struct Completion {
  std::function<NTSTATUS(PDEVICE_OBJECT, PIRP)> Body;

  static NTSTATUS NTAPI Run(PDEVICE_OBJECT device, PIRP irp, PVOID context) {
    return static_cast<Completion*>(context)->Body(device, irp);
  }
};

}  // namespace lidcam::host
