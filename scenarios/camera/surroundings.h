#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/kernel.h"
#include "scenarios/run/random.h"
#include "scenarios/run/swarm.h"

namespace lidcam::scenarios {

/// Inputs of the exposure loop: settings that enable it, light that changes, and control requests
/// that take time. A function of the seed.
///
/// During its lifetime the registry is the run's own, in memory.
class Surroundings {
 public:
  /// @param swarm  outlives it
  Surroundings(std::uint64_t seed, Swarm& swarm);
  Surroundings(const Surroundings&) = delete;
  Surroundings& operator=(const Surroundings&) = delete;
  ~Surroundings();

  /// Keeps the loop active for any seed: the settings are the defaults, and the light changes
  /// several times a second, also from dark to bright in a run that leaves either out.
  void KeepLoopBusy();

  /// The driver key of the camera; for every fourth seed it has none.
  [[nodiscard]] std::u16string DriverKey() const;

  /// Saves settings for a device as if it had been used before: none, so that the driver uses its
  /// defaults, or, for every fourth seed, arbitrary values.
  /// @par Passive level
  void SaveSettings(PDEVICE_OBJECT physicalDevice);

  /// Duration of the next control request, 100 ns: 100 us to 5 ms.
  [[nodiscard]] LONGLONG NextRequestTime();

  /// Luminance of a frame that begins at a time; times must not decrease.
  /// @param microframe  bus time
  [[nodiscard]] std::uint8_t LumaAt(std::uint64_t microframe);

 private:
  enum class Settings : std::uint8_t { Usual, None, Any };

  Swarm& swarm_;
  Random chance_;
  Random times_;
  Random light_;
  Settings settings_;
  std::uint64_t longestLight_;
  bool hasAllLight_ = false;        ///< whatever the run leaves out
  std::uint64_t lightChanges_ = 0;  ///< microframe
  std::uint8_t luma_ = 0;
};

}  // namespace lidcam::scenarios
