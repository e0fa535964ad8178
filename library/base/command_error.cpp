#include "library/base/command_error.h"

#include <cstdio>

namespace lidcam::app {

void FailForTroubles(const std::vector<std::string>& troubles) {
  if (troubles.empty()) return;
  for (std::size_t i = 0; i + 1 < troubles.size(); ++i) {
    std::fprintf(stderr, "lidcam: %s\n", troubles[i].c_str());
  }
  throw CommandError(troubles.back());
}

}  // namespace lidcam::app
