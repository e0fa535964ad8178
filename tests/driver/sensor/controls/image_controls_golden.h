#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/driver/support/register_space.h"

namespace lidcam::test {

struct NamedSensor {
  SensorType Type;
  std::string_view Name;
};

inline constexpr std::array<NamedSensor, 9> kSensors = {{
    {SensorTypeVGA0408, "SensorTypeVGA0408"},
    {SensorTypeReserved3, "SensorTypeReserved3"},
    {SensorTypeVGA7648, "SensorTypeVGA7648"},
    {SensorTypeK82, "SensorTypeK82"},
    {SensorTypeOV7660, "SensorTypeOV7660"},
    {SensorTypeOV7663, "SensorTypeOV7663"},
    {SensorTypeVGA0708, "SensorTypeVGA0708"},
    {SensorTypeMi1318, "SensorTypeMi1318"},
    {SensorTypeOV7670, "SensorTypeOV7670"},
}};

/// A field of the record, or a register as "bridge:FF09" or "sensor:FF06", and its value.
using Assignment = std::pair<std::string, std::int64_t>;

/// One combination of values and the step's writes and reads for it.
struct GoldenCase {
  std::uint32_t Step = 0;
  std::vector<Assignment> Values;
  std::vector<std::string> Traffic;

  /// "step 2 Contrast=16", values in decimal and in the order of the heading.
  [[nodiscard]] std::string Key() const;
};

/// The golden file of a sensor, with sections for several values split into single cases and gamma
/// rows written out.
class GoldenFile {
 public:
  /// Throws std::runtime_error, naming file and line, for a file that it can't read.
  explicit GoldenFile(const NamedSensor& sensor);

  [[nodiscard]] const std::vector<GoldenCase>& Cases() const { return cases_; }

  /// The case of that key; throws if there is none.
  [[nodiscard]] const GoldenCase& Case(std::string_view key) const;

  /// Sets the camera to the file's given values and then to the case's.
  void Prepare(RegisterSpace& camera, const GoldenCase& golden) const;

 private:
  struct ListEntry {
    bool LowLight;
    RegisterSetEntry Entry;
  };

  void TakeGiven(std::string_view line);
  void TakeListEntry(std::string_view line);
  void TakeHeading(std::string_view line);
  void TakeTraffic(const std::string& line);
  void EndSection();

  SensorType type_;
  std::vector<Assignment> given_;
  std::vector<ListEntry> lists_;
  std::vector<GoldenCase> section_;  // the cases of the current heading
  std::vector<GoldenCase> cases_;
};

/// Row `row` of the gamma table, -1 the one ahead of it, computed with floating-point powers,
/// unlike the driver's.
std::array<std::uint8_t, 15> GammaReference(int row);

/// The 45 writes of a gamma row.
std::vector<std::string> GammaTraffic(int row);

}  // namespace lidcam::test
