#pragma once

#include <atomic>
#include <type_traits>

#include "driver/core/base/shared_value.h"

namespace lidcam::scenarios {

/// The value of a driver's field, read without a switch point: a check doesn't change the run.
template <typename T>
[[nodiscard]] T ValueOf(const Shared<T>& field) {
  // The field's only member is an atomic of its value.
  static_assert(std::is_standard_layout_v<Shared<T>>);
  return reinterpret_cast<const std::atomic<T>&>(field).load(std::memory_order_relaxed);
}

}  // namespace lidcam::scenarios
