#include "base/run_time_folder.h"

#include <cstdlib>

namespace lidcam::base {

std::optional<std::filesystem::path> RunTimeFile(const std::string& name) {
  const char* const folder = std::getenv("XDG_RUNTIME_DIR");
  // The folder's own rules: a relative one is no folder.
  if (folder == nullptr || *folder != '/') return std::nullopt;
  return std::filesystem::path(folder) / "lidcam" / name;
}

}  // namespace lidcam::base
