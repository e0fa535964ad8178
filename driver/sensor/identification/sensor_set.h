#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>

#include "driver/core/record/camera_context.h"

namespace lidcam {

/// Sensor types that share a row of a table.
class SensorSet {
 public:
  constexpr explicit(false) SensorSet(std::same_as<lidcam::SensorType> auto... types)
      : bits_(((1U << types) | ... | 0U)) {}

  [[nodiscard]] constexpr bool Contains(std::int32_t type) const {
    return type >= 0 && type < 32 && ((bits_ >> type) & 1U) != 0;
  }

 private:
  std::uint32_t bits_;
};

/// The sensors that share the OV register layout.
inline constexpr SensorSet kOVFamily{SensorTypeOV7660, SensorTypeOV7663, SensorTypeOV7670};

/// The first row that names a sensor; the last row of a table is for all other sensors, whatever
/// its own set.
template <typename Row, std::size_t Count>
constexpr const Row& RowFor(std::int32_t type, const Row (&table)[Count]) {
  for (std::size_t row = 0; row + 1 < Count; ++row) {
    if (table[row].Sensors.Contains(type)) return table[row];
  }
  return table[Count - 1];
}

}  // namespace lidcam
