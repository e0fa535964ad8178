#pragma once

#include <string>
#include <vector>

namespace lidcam::app {

/// Who gives a camera to this machine's applications by another way: "process 12 through PipeWire", as `lidcam share`
/// writes it into its lock; empty if no process does.
///
/// @param unit  as UnitOf() names it
[[nodiscard]] std::string SharerOf(const std::string& unit);

/// The units that are shared, each with its sharer, to be compared with later ones.
[[nodiscard]] std::vector<std::string> SharedUnits();

}  // namespace lidcam::app
