#pragma once

#include "platform/kernel.h"

namespace lidcam::wine {

/// A request that the test double makes itself, for one of the files that it opens. Passive level.
class InnerRequest {
 public:
  InnerRequest(PDEVICE_OBJECT device, FILE_OBJECT& file, UCHAR majorFunction);
  InnerRequest(const InnerRequest&) = delete;
  InnerRequest& operator=(const InnerRequest&) = delete;
  ~InnerRequest();

  /// False without memory: it must not be filled in or started then.
  [[nodiscard]] bool IsMade() const { return irp_ != nullptr; }

  [[nodiscard]] IRP& Packet() { return *irp_; }
  /// The stack location for the device. Only before it is sent.
  [[nodiscard]] IO_STACK_LOCATION& Location() { return *IoGetNextIrpStackLocation(irp_); }

  /// Sends it and waits for its completion.
  /// @return its status; STATUS_INSUFFICIENT_RESOURCES without memory
  NTSTATUS Send();

  /// Sends it; the completion routine must return STATUS_MORE_PROCESSING_REQUIRED, and may destroy
  /// this object.
  void Start(PIO_COMPLETION_ROUTINE completed, PVOID context);

 private:
  PDEVICE_OBJECT device_;
  PIRP irp_;
};

}  // namespace lidcam::wine
