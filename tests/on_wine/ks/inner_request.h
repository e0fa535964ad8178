#pragma once

#include "platform/kernel.h"

namespace lidcam::wine {

/// A request that the stand-in makes of a device by itself, for one of the files that it opens itself.
/// Passive level.
class InnerRequest {
 public:
  InnerRequest(PDEVICE_OBJECT device, FILE_OBJECT& file, UCHAR majorFunction);
  InnerRequest(const InnerRequest&) = delete;
  InnerRequest& operator=(const InnerRequest&) = delete;
  ~InnerRequest();

  /// False without memory: nothing may be put into it then, or started.
  [[nodiscard]] bool IsMade() const { return irp_ != nullptr; }

  [[nodiscard]] IRP& Packet() { return *irp_; }
  /// What the device will see. Only before it is sent.
  [[nodiscard]] IO_STACK_LOCATION& Location() { return *IoGetNextIrpStackLocation(irp_); }

  /// Sends it and waits for its end.
  /// @return its status; STATUS_INSUFFICIENT_RESOURCES without memory
  NTSTATUS Send();

  /// Sends it; the completion routine has to give STATUS_MORE_PROCESSING_REQUIRED, and may end the
  /// life of this object.
  void Start(PIO_COMPLETION_ROUTINE completed, PVOID context);

 private:
  PDEVICE_OBJECT device_;
  PIRP irp_;
};

}  // namespace lidcam::wine
