#pragma once

#include <string_view>

#include "scenarios/stage/stage.h"

namespace lidcam::scenarios {

/// A place at which the driver's own rules let it wait for ever.
struct StatedHang {
  std::string_view Name;
  std::string_view Cause;
  bool (*IsIt)(Stage& stage);  ///< looks at the run that hangs; calls no kernel
};

/// All of them.
[[nodiscard]] std::span<const StatedHang> StatedHangs();

/// @return null if a run that hangs has no right to
[[nodiscard]] const StatedHang* RecognizeHang(Stage& stage);

/// What takes longest and has no right to.
[[nodiscard]] const Activity& LongestUnexplained(Stage& stage);

}  // namespace lidcam::scenarios
