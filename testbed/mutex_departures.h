#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "platform/host/ks/device/class_rules.h"

namespace lidcam::testbed {

/// A rule of the streaming class's manual that the camera's driver does not keep, and why it can't.
struct MutexDeparture {
  host::ClassRule Rule;
  host::ClassCall Call;
  std::string_view Reason;
};

/// All departures that the driver needs. There is no other.
[[nodiscard]] std::span<const MutexDeparture> RequiredDepartures();

/// A departure that was seen.
struct SeenDeparture {
  host::ClassRule Rule;
  host::ClassCall Call;

  bool operator==(const SeenDeparture&) const = default;
};

/// What the class has seen of a device's driver, by rule and call.
/// @param functionalDevice  of the streaming class
[[nodiscard]] std::vector<SeenDeparture> DeparturesSeen(PDEVICE_OBJECT functionalDevice);

/// Whether the driver needs this one.
[[nodiscard]] bool IsRequired(const SeenDeparture& departure);

}  // namespace lidcam::testbed
