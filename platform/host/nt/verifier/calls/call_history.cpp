#include "platform/host/nt/verifier/calls/call_history.h"

#include <cstdio>

#include "base/time_units.h"

namespace lidcam::host {

std::string CallHistory::Text() const {
  const std::lock_guard guard(lock_);
  std::string text;
  for (std::size_t i = 0; i < kKept; ++i) {
    const Entry& entry = entries_[(next_ + i) % kKept];
    if (entry.Call == nullptr) continue;
    std::array<char, 160> line{};
    std::snprintf(line.data(), line.size(), "  %14.7f s  thread %-3u level %u  %s %p\n",
                  base::SecondsOfUnits(entry.Time), entry.Thread, entry.Level, entry.Call,
                  entry.Object);
    text += line.data();
  }
  return text;
}

}  // namespace lidcam::host
