#include "platform/host/nt/verifier/calls/call_history.h"

#include <cstdio>

#include "base/time_units.h"

namespace lidcam::host {

bool CallHistory::Read(const Slot& slot, Entry& entry) {
  const std::uint32_t number = slot.Number.load(std::memory_order_acquire);
  const std::uint32_t caller = slot.Caller.load(std::memory_order_relaxed);
  entry = {.Time = slot.Time.load(std::memory_order_relaxed),
           .Thread = caller >> kLevelBits,
           .Level = static_cast<KIRQL>(caller & ((1U << kLevelBits) - 1)),
           .Call = slot.Call.load(std::memory_order_relaxed),
           .Object = slot.Object.load(std::memory_order_relaxed)};
  std::atomic_thread_fence(std::memory_order_acquire);
  return number != kNoEntry && slot.Number.load(std::memory_order_relaxed) == number;
}

void CallHistory::AddLine(std::string& text, const Entry& entry, LONGLONG time) {
  std::array<char, 160> line{};
  std::snprintf(line.data(), line.size(), "  %14.7f s  thread %-3u level %u  %s %p\n",
                base::SecondsOfUnits(time), entry.Thread, entry.Level, entry.Call, entry.Object);
  text += line.data();
}

}  // namespace lidcam::host
