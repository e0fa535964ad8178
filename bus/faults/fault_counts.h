#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <numeric>
#include <string>

#include "bus/faults/fault_script.h"

namespace lidcam::bus {

/// How often each fault was injected: number of requests, settings, packets or reads affected.
class FaultCounts {
 public:
  void Add(FaultPlace place, FaultKind kind) { ++counts_[Index(place, kind)]; }

  void Add(const FaultCounts& others) {
    std::transform(counts_.begin(), counts_.end(), others.counts_.begin(), counts_.begin(),
                   std::plus());
  }

  [[nodiscard]] std::uint64_t Of(FaultPlace place, FaultKind kind) const {
    return counts_[Index(place, kind)];
  }
  [[nodiscard]] std::uint64_t Total() const {
    return std::accumulate(counts_.begin(), counts_.end(), std::uint64_t{0});
  }

  friend bool operator==(const FaultCounts&, const FaultCounts&) = default;

 private:
  static constexpr std::size_t Index(FaultPlace place, FaultKind kind) {
    return static_cast<std::size_t>(place) * kFaultKindCount + static_cast<std::size_t>(kind);
  }

  std::array<std::uint64_t, kFaultPlaceCount * kFaultKindCount> counts_{};
};

/// "control: 2 stall, 1 late; setting: 1 refuse; stream: 12 lose", or "none".
[[nodiscard]] std::string ToText(const FaultCounts& counts);

}  // namespace lidcam::bus
