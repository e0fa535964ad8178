#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "driver/core/record/camera_context.h"
#include "platform/host/nt/system/debug_print.h"
#include "tests/driver/support/register_space.h"
#include "tests/driver/support/shared_exposure.h"

namespace lidcam::test {

/// The variables that all cameras share, as plain numbers.
struct SharedExposure {
  std::uint16_t HoldOff;
  std::int32_t Index;
  std::uint32_t Exposure;
  std::uint8_t CoarseGain;
  std::uint8_t FineGain;
  std::uint32_t Ratio;
  std::uint32_t AppliedLines;
  std::uint8_t LastWritten;
  std::uint32_t AeMode;
  std::uint32_t Mode;

  static SharedExposure Now();
  friend bool operator==(const SharedExposure&, const SharedExposure&) = default;
};

/// Makes `writes` the register list.
void LoadList(RegisterSetTable& table, std::initializer_list<RegisterSetEntry> writes);

/// A camera whose exposure the host steers, freshly created and about to stream; messages and trace
/// lines are collected. The shared variables begin anew with it.
class ExposureBench : public RegisterSpace {
 public:
  ExposureBench();
  ~ExposureBench();

  /// Delivers `frames` frames with these statistics in their headers.
  void Deliver(std::uint8_t luma, std::uint8_t level = 0, int frames = 1);

  /// The same without the exposure loop: the light state machine alone.
  void Light(std::uint8_t exposure, std::uint8_t luma, int frames = 1);

  /// The camera in a state that it has been in for a while.
  void StandIn(LightState state);

  [[nodiscard]] std::vector<std::string> Messages() const { return capture_.Messages(); }

  /// The trace lines so far, joined by line feeds, one at the end.
  [[nodiscard]] static std::string TraceText();
  [[nodiscard]] static const std::vector<std::string>& Trace();

  /// Called with each trace line at the moment it is written.
  std::function<void(const std::string& line)> OnTrace;

 private:
  host::DebugPrintCapture capture_;
};

}  // namespace lidcam::test
