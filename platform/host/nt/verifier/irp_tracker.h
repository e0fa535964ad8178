#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/host/nt/scheduling/scheduler.h"

namespace lidcam::host {

/// One driver's passage of a request: from the call of its dispatch routine until the request is
/// completed at its stack location. The caller of the dispatch routine keeps it until that returns,
/// when the request may be freed already.
struct IrpPassage {
  CHAR Location = 0;
  PDEVICE_OBJECT Device = nullptr;
  bool WasForwarded = false;  ///< the driver sent the request on
  bool HasReturned = false;
  NTSTATUS Returned = STATUS_SUCCESS;
  bool IsCompleted = false;
  bool WasMarkedPending = false;  ///< at its completion
};

/// The work at one stack location of a request that is being completed.
struct CompletionStep {
  bool IsEnd = false;                        ///< no location is left
  PIO_COMPLETION_ROUTINE Routine = nullptr;  ///< null if none must be called
  PVOID Context = nullptr;
  PDEVICE_OBJECT Device = nullptr;  ///< the routine's; null above the topmost location
};

/// Distinguishes one life of a request from the next at the same address.
struct IrpLife {
  std::uint64_t Serial = 0;
  std::uint64_t Sends = 0;
};

struct IrpUsage {
  std::size_t Known = 0;      ///< allocated or initialised, and not freed
  std::size_t Allocated = 0;  ///< by IoAllocateIrp(), of those
  std::size_t InFlight = 0;   ///< of those known
};

/// The requests of the calling thread's world.
[[nodiscard]] IrpUsage IrpUsageOfWorld();

/// Whether a driver has the request now. It may be freed.
[[nodiscard]] bool IsIrpInFlight(const IRP* irp);

/// The requests that a driver has now, in the calling thread's world.
[[nodiscard]] std::size_t IrpsInFlightAt(PDEVICE_OBJECT device);

// The rest is for the I/O manager. Each call that detects a violation reports it with the request's
// history.

/// A request's life begins, allocated or in memory of the driver.
void RegisterIrp(const char* call, PIRP irp, bool isAllocated);

/// Checks that the request exists, and in this world.
void ExpectIrp(const char* call, PIRP irp);

/// As ExpectIrp(), and that the request is not in flight.
void ExpectIdleIrp(const char* call, PIRP irp);

/// Checks that a request may begin its life: none at this address is in flight.
void CheckIrpIsIdleIfKnown(const char* call, PIRP irp);

/// An allocated request's life ends.
void ForgetIrp(const char* call, PIRP irp);

/// Memory is freed: no request in it may be in flight or allocated from the pool. Forgets those in
/// it.
void CheckFreedIrps(const char* call, const void* memory, std::size_t size);

/// Moves a request down to the next stack location, which is `device`'s from now on.
[[nodiscard]] std::shared_ptr<IrpPassage> BeginPassage(const char* call, PIRP irp,
                                                       PDEVICE_OBJECT device);

/// The dispatch routine of a passage has returned. `irp` may be freed if the passage is completed.
void EndPassage(const char* call, PIRP irp, IrpPassage& passage, NTSTATUS returned);

/// Checks that a request may be completed by the caller.
[[nodiscard]] IrpLife BeginCompletion(const char* call, PIRP irp);

/// Completes it at its present location and moves it up. `irp` may be freed: a completion routine
/// that frees it and lets the completion continue is reported.
[[nodiscard]] CompletionStep CompleteLocation(const char* call, PIRP irp, const IrpLife& life);

/// Adds an event to the request's history, if the request still exists.
void NoteIrp(PIRP irp, const char* what, const void* object);

/// Ends the caller with a report that includes the request's history.
[[noreturn]] void ReportIrpViolation(const char* call, PIRP irp, const std::string& what);

/// A request of this world that was not freed; empty if none.
[[nodiscard]] std::string FindKeptIrp(const Scheduler& world);

/// Forgets all requests of a world that ends.
void ForgetIrpsOfWorld(const Scheduler& world);

}  // namespace lidcam::host
