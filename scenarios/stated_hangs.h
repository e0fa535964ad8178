#pragma once

#include <string_view>

#include "scenarios/stage/stage.h"

namespace lidcam::scenarios {

/// A place where the driver's own rules let it wait forever.
struct StatedHang {
  std::string_view Name;
  std::string_view Cause;
  bool (*IsIt)(Stage& stage);  ///< checks the hanging run; makes no kernel calls
};

/// All known ones.
[[nodiscard]] std::span<const StatedHang> StatedHangs();

/// @return null for a hang that is a defect
[[nodiscard]] const StatedHang* RecognizeHang(Stage& stage);

/// The longest operation that no stated hang explains.
[[nodiscard]] const Activity& LongestUnexplained(Stage& stage);

}  // namespace lidcam::scenarios
