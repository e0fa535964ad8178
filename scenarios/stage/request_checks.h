#pragma once

#include <string>

#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/host/usbd/declarations/usb_declarations.h"

namespace lidcam::scenarios {

/// Rules that the camera's driver keeps with every request to the USB stack, in any run.
class RequestChecks {
 public:
  /// Checks a request that the driver sends: only one synchronous request is under way at a time, and a transfer
  /// that is sent counts as in flight once.
  ///
  /// @param hasFailedSend  a transfer was refused in this run: it is counted wrongly from then on
  /// @return the broken rule; empty if none is
  [[nodiscard]] std::string WrongSend(PIRP irp, const URB& urb, bool hasFailedSend);

  /// A recovery has started the transfers anew. The driver's trace shows it too, and an image has none.
  [[nodiscard]] bool HasRestart() const { return hasRestart_; }

 private:
  const IRP* synchronous_ = nullptr;  ///< the last synchronous request; may be freed
  bool hasRestart_ = false;
};

}  // namespace lidcam::scenarios
