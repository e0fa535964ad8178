#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/host/nt/scheduling/scheduler.h"

namespace lidcam::host {

/// One driver's turn with a request: from the call of its dispatch routine until the request is
/// completed at its stack location. Whoever called the dispatch routine keeps it until that returns,
/// when the request may be gone.
struct IrpPassage {
  CHAR Location = 0;
  PDEVICE_OBJECT Device = nullptr;
  bool WasForwarded = false;  ///< the driver sent the request on
  bool HasReturned = false;
  NTSTATUS Returned = STATUS_SUCCESS;
  bool IsCompleted = false;
  bool WasMarkedPending = false;  ///< as of its completion
};

/// What is to be done at one stack location of a request that is completed.
struct CompletionStep {
  bool IsEnd = false;                        ///< there was no location left
  PIO_COMPLETION_ROUTINE Routine = nullptr;  ///< null if it isn't to be called
  PVOID Context = nullptr;
  PDEVICE_OBJECT Device = nullptr;  ///< the routine's; null above the topmost location
};

/// Tells one life of a request from the next at the same address.
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

/// The requests that stand in a driver's hands now, in the calling thread's world.
[[nodiscard]] std::size_t IrpsInFlightAt(PDEVICE_OBJECT device);

// The rest is for the I/O manager. Each call that finds a violation reports it with what happened to
// the request so far.

/// A request begins its life, as allocated or in memory of the driver's own.
void RegisterIrp(const char* call, PIRP irp, bool isAllocated);

/// Checks that it lives, and in this world.
void ExpectIrp(const char* call, PIRP irp);

/// As ExpectIrp(), and that no driver has it.
void ExpectIdleIrp(const char* call, PIRP irp);

/// Checks that a request may begin its life anew: no driver has one at this address.
void CheckIrpIsIdleIfKnown(const char* call, PIRP irp);

/// An allocated request's life ends.
void ForgetIrp(const char* call, PIRP irp);

/// Memory goes: no request in it may be in flight or be the pool's. Those in it are forgotten.
void CheckFreedIrps(const char* call, const void* memory, std::size_t size);

/// Moves a request down to the next stack location, which is `device`'s from now on.
[[nodiscard]] std::shared_ptr<IrpPassage> BeginPassage(const char* call, PIRP irp,
                                                       PDEVICE_OBJECT device);

/// The dispatch routine of a passage has returned. `irp` may be gone if the passage is completed.
void EndPassage(const char* call, PIRP irp, IrpPassage& passage, NTSTATUS returned);

/// Checks that a request may be completed by the caller.
[[nodiscard]] IrpLife BeginCompletion(const char* call, PIRP irp);

/// Completes it at its present location and moves it up. `irp` may be gone: a completion routine that
/// lets the walk go on after that is reported.
[[nodiscard]] CompletionStep CompleteLocation(const char* call, PIRP irp, const IrpLife& life);

/// Notes an event in the request's history, if it still lives.
void NoteIrp(PIRP irp, const char* what, const void* object);

/// Ends the caller with a report that tells the request's history.
[[noreturn]] void ReportIrpViolation(const char* call, PIRP irp, const std::string& what);

/// A request of this world that nobody freed; empty if none.
[[nodiscard]] std::string FindKeptIrp(const Scheduler& world);

/// All requests of a world that goes.
void ForgetIrpsOfWorld(const Scheduler& world);

}  // namespace lidcam::host
