#include "library/control_socket/socket_path.h"

#include "base/run_time_folder.h"

namespace lidcam::app {

std::optional<std::string> ControlSocketOf(const std::string& unit) {
  if (unit.empty()) return std::nullopt;
  return base::RunTimeFile(unit + ".sock");
}

}  // namespace lidcam::app
