#pragma once

#include "platform/kernel.h"

namespace lidcam::host {

struct PinBlock;

/// The thread that runs a pin's process routine, at passive level and never twice at once.
class PinWorker {
 public:
  explicit PinWorker(PinBlock& pin);
  PinWorker(const PinWorker&) = delete;
  PinWorker& operator=(const PinWorker&) = delete;

  /// Starts the thread; processing is forbidden at first. Passive level.
  NTSTATUS Start();
  /// Ends the thread: no process call begins afterwards. Passive level.
  void End();

  /// Asks for processing; without effect while it isn't allowed. Up to DISPATCH_LEVEL.
  void Attempt();

  /// Process calls may begin.
  void Allow();
  /// No process call begins afterwards; one may still be in progress.
  void Forbid();
  /// Waits for a process call in progress. Passive level, without the device's mutex, which the
  /// process routine may need. Not from the process routine.
  void WaitUntilIdle();

 private:
  static void NTAPI Run(PVOID context);
  void Work();
  bool Begin();
  void EndCall();

  PinBlock& pin_;
  KSPIN_LOCK lock_{};
  bool isAllowed_ = false;  ///< under lock_
  volatile LONG isEnding_ = 0;
  KEVENT attempted_{};
  KEVENT idle_{};
  KEVENT ended_{};
  PVOID thread_ = nullptr;
};

}  // namespace lidcam::host
