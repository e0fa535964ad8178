#include "library/control_socket/socket_path.h"

#include <cstdlib>

namespace lidcam::app {

std::optional<std::string> ControlSocketOf(const std::string& unit) {
  const char* const folder = std::getenv("XDG_RUNTIME_DIR");
  if (folder == nullptr || *folder != '/' || unit.empty()) return std::nullopt;
  return std::string(folder) + "/lidcam/" + unit + ".sock";
}

}  // namespace lidcam::app
