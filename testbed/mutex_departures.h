#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "platform/host/ks/device/class_rules.h"

namespace lidcam::testbed {

/// A rule of the streaming class's manual that the camera's driver breaks, and why it must.
struct MutexDeparture {
  host::ClassRule Rule;
  host::ClassCall Call;
  std::string_view Reason;
};

/// All departures that the driver needs.
[[nodiscard]] std::span<const MutexDeparture> RequiredDepartures();

/// An observed departure.
struct SeenDeparture {
  host::ClassRule Rule;
  host::ClassCall Call;

  bool operator==(const SeenDeparture&) const = default;
};

/// The departures of a device's driver that the class observed, by rule and call.
/// @param functionalDevice  of the streaming class
[[nodiscard]] std::vector<SeenDeparture> DeparturesSeen(PDEVICE_OBJECT functionalDevice);

/// Whether the driver needs this departure.
[[nodiscard]] bool IsRequired(const SeenDeparture& departure);

}  // namespace lidcam::testbed
