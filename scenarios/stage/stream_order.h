#pragma once

#include <optional>
#include <string_view>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::scenarios {

/// The order in which a stream may be prepared, started, drained and recovered, by the lines of the driver's trace.
///
/// Each line counted here is printed while the device's mutex is held, except those of the watchdog.
class StreamOrder {
 public:
  /// Takes a line of the driver's trace.
  ///
  /// @param isRecovery  the line is of a recovery's thread
  /// @param now         100 ns
  /// @return the rule that is broken at this line; empty if none is
  [[nodiscard]] std::string_view Look(std::string_view line, bool isRecovery, LONGLONG now);

 private:
  [[nodiscard]] std::string_view LookAtRemoval(std::string_view line);
  [[nodiscard]] std::string_view LookAtDrain(std::string_view line, LONGLONG now);
  [[nodiscard]] bool HasMissedItsEnd(LONGLONG now) const;

  bool isGone_ = false;           ///< the driver has been told, and has passed the device's mutex
  bool isDrained_ = false;        ///< nothing has been started since the last drain
  bool isLastDrainLate_ = false;  ///< a tick of that drain may still be under way
  std::optional<LONGLONG> endedByTick_;  ///< when a tick ended the wait of the present drain
};

}  // namespace lidcam::scenarios
