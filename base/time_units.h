#pragma once

#include <chrono>
#include <cstdint>

namespace lidcam::base {

// A second in the units of times: microseconds in captures and scripts, microframes on the bus, and
// the platform's 100 ns, called units here.

inline constexpr std::int64_t kMicrosecondsPerSecond = 1'000'000;

inline constexpr std::int64_t kMicroframesPerSecond = 8000;
inline constexpr std::int64_t kMicrosecondsPerMicroframe =
    kMicrosecondsPerSecond / kMicroframesPerSecond;

inline constexpr std::int64_t kUnitsPerMicrosecond = 10;
inline constexpr std::int64_t kUnitsPerMillisecond = 1000 * kUnitsPerMicrosecond;
inline constexpr std::int64_t kUnitsPerSecond = 1000 * kUnitsPerMillisecond;

/// @param units  of 100 ns
constexpr double SecondsOfUnits(std::int64_t units) {
  return static_cast<double>(units) / static_cast<double>(kUnitsPerSecond);
}

constexpr double SecondsOfMicroframes(std::uint64_t microframes) {
  return static_cast<double>(microframes) / static_cast<double>(kMicroframesPerSecond);
}

constexpr std::chrono::microseconds TimeOfMicroframes(std::uint64_t microframes) {
  return std::chrono::microseconds(static_cast<std::int64_t>(microframes) *
                                   kMicrosecondsPerMicroframe);
}

}  // namespace lidcam::base
