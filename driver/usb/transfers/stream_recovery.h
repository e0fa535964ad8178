#pragma once

#include <cstdint>

#include "driver/usb/records/usb_records.h"
#include "platform/kernel.h"

namespace lidcam {

inline constexpr Time100ns kWatchdogPeriod = 2'500'000;   ///< 250 ms
inline constexpr Time100ns kDrainTimeLimit = 80'000'000;  ///< 8 s
inline constexpr Time100ns kResetTimeLimit = 80'000'000;  ///< 8 s

/// Deferred routine of the watchdog timer; `context` is the UsbStreamRecord. Acts only when no
/// transfer is in flight: ends the waits of a stop and of a recovery, schedules a recovery after a
/// failure. Arms itself again while WatchdogRunning is set.
void NTAPI TransferWatchdog(PKDPC dpc, PVOID context, PVOID argument1, PVOID argument2);

/// Starts the watchdog's ticks. WatchdogRunning is set already; a last tick of the previous stream
/// that is still to come continues as this stream's first.
_IRQL_requires_max_(DISPATCH_LEVEL)
void ArmWatchdog(UsbStreamRecord& stream);

/// Clears WatchdogRunning and cancels the timer. A tick that is under way meanwhile is the last one;
/// WaitForTicks() waits for it.
_IRQL_requires_max_(PASSIVE_LEVEL)
void DisarmWatchdog(UsbStreamRecord& stream);

/// Queues a recovery unless one is under way.
///
/// @return 0 if one is under way, else 1, also without memory
_IRQL_requires_max_(DISPATCH_LEVEL)
std::uint8_t ScheduleStreamReset(UsbDeviceRecord& device, UsbStreamRecord& stream);

/// Drains a stream whose transfers have failed and restarts it. Takes the device's mutex.
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS RecoverStream(UsbDeviceRecord& device, UsbStreamRecord& stream, void* context1,
                       void* context2);

/// Waits up to kResetTimeLimit for the tick that finds no transfer in flight.
_IRQL_requires_max_(PASSIVE_LEVEL)
void WaitResetIdle(UsbStreamRecord& stream, NTSTATUS& waitResult);

/// Aborts the pipe and waits up to kDrainTimeLimit for the tick that finds no transfer in flight.
/// @return the wait's status; on STATUS_TIMEOUT StopWaitArmed stays set
/// @par Under the device's mutex
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS DrainTransfers(UsbStreamRecord& stream);

/// Waits, without a limit, until no tick of a disarmed watchdog uses the record any more.
_IRQL_requires_max_(PASSIVE_LEVEL)
void WaitForTicks(UsbStreamRecord& stream);

/// Disarms the watchdog, whatever has left it armed, and waits for its last tick: no timer of the
/// record is set from now on.
_IRQL_requires_max_(PASSIVE_LEVEL)
void EndWatchdog(UsbStreamRecord& stream);

/// Waits, without a limit, until no tick of a disarmed watchdog is under way, and no recovery runs
/// or is scheduled. The transfers have been released.
/// @par Without the device's mutex: a recovery may wait for it
_IRQL_requires_max_(PASSIVE_LEVEL)
void WaitForRecovery(UsbDeviceRecord& device);

}  // namespace lidcam
