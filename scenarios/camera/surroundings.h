#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/kernel.h"
#include "scenarios/run/random.h"

namespace lidcam::scenarios {

/// What keeps the exposure loop busy: settings that turn it on, light that changes, and control
/// requests that take time. A function of the seed.
///
/// While it lives the registry is the run's own, in memory.
class Surroundings {
 public:
  explicit Surroundings(std::uint64_t seed);
  Surroundings(const Surroundings&) = delete;
  Surroundings& operator=(const Surroundings&) = delete;
  ~Surroundings();

  /// The loop has something to do all the time, whatever the seed says: the settings are the usual ones,
  /// and the light changes several times a second.
  void KeepLoopBusy();

  /// The driver key of the camera; under every fourth seed it has none.
  [[nodiscard]] std::u16string DriverKey() const;

  /// Saves settings for a device as if it had been used before: none, so that the driver takes its
  /// usual ones, or any values under every fourth seed.
  /// @par Callable at passive level only
  void SaveSettings(PDEVICE_OBJECT physicalDevice);

  /// How long the next control request takes, 100 ns: 100 us to 5 ms.
  [[nodiscard]] LONGLONG NextRequestTime();

  /// Luminance of a frame that begins at a time; times don't fall.
  /// @param microframe  bus time
  [[nodiscard]] std::uint8_t LumaAt(std::uint64_t microframe);

 private:
  enum class Settings : std::uint8_t { Usual, None, Any };

  Random chance_;
  Random times_;
  Random light_;
  Settings settings_;
  std::uint64_t longestLight_;
  std::uint64_t lightChanges_ = 0;  ///< microframe
  std::uint8_t luma_ = 0;
};

}  // namespace lidcam::scenarios
