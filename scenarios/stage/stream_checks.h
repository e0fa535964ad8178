#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "driver/usb/records/usb_records.h"

namespace lidcam::scenarios {

/// Rules of the stream's records that hold whenever no thread can run, and at the ends of its two waits.
///
/// Reads the driver's fields without a switch point.
class StreamChecks {
 public:
  /// Whether a line of the driver's trace says that a stream was acquired.
  [[nodiscard]] static bool IsAcquisition(std::string_view line) {
    return line == "stream acquire -> 00000000";
  }

  /// The stream is watched from now on, until its device stops or goes.
  void Begin(const UsbStreamRecord& stream) { stream_ = &stream; }

  /// Takes a line of the driver's trace.
  ///
  /// @return the rule that is broken at this line; empty if none is
  [[nodiscard]] std::string Look(std::string_view line);

  /// The rule that is broken while all threads wait and none is stalled; empty if none is.
  ///
  /// @param hasFailedSend   a transfer was refused in this run: it is counted wrongly from then on
  /// @param hasFailedDrain  the watchdog's flags may be wrong, which the device's stop allows for
  [[nodiscard]] std::string WrongAtRest(bool hasFailedSend, bool hasFailedDrain) const;

  /// A number for the flags and counts of the stream and its device, and for the field that a thread is about to
  /// access.
  ///
  /// @param object  not accessed
  [[nodiscard]] std::uint64_t StateAt(const void* object) const;

 private:
  const UsbStreamRecord* stream_ = nullptr;  ///< null: not watched
};

}  // namespace lidcam::scenarios
