#include "scenarios/stage/request_checks.h"

#include <utility>

#include "driver/usb/records/usb_records.h"
#include "platform/host/nt/verifier/irp_tracker.h"
#include "scenarios/run/recovery_thread.h"

namespace lidcam::scenarios {
namespace {

// The driver's own location, whose completion routine has the transfer's memory as its context.
LONG InFlightOfSent(PIRP irp) {
  const void* const context = IoGetCurrentIrpStackLocation(irp)->Context;
  const auto& memory = *static_cast<const ReferenceCountedMemory*>(context);
  return static_cast<const IsoTransfer*>(memory.Owner)->InFlight;
}

}  // namespace

std::string RequestChecks::WrongSend(PIRP irp, const URB& urb, bool hasFailedSend) {
  const USHORT function = urb.UrbHeader.Function;
  if (function == URB_FUNCTION_BULK_OR_INTERRUPT_TRANSFER) return {};
  if (function == URB_FUNCTION_ISOCH_TRANSFER) {
    // All other transfers are sent by the frame thread, and by the threads of applications.
    hasRestart_ = hasRestart_ || IsOfRecovery(host::CurrentThread());
    const LONG inFlight = InFlightOfSent(irp);
    if (inFlight == 1 || hasFailedSend) return {};
    return "a transfer is sent that is in flight " + std::to_string(inFlight) + " times";
  }
  const IRP* const before = std::exchange(synchronous_, irp);
  if (before == irp || !host::IsIrpInFlight(before)) return {};
  return "a synchronous request is sent while another one is under way";
}

}  // namespace lidcam::scenarios
