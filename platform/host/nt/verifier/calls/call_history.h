#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

#include "base/process_mutex.h"
#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {

/// The last kernel calls of one world.
/// @par Any thread
class CallHistory {
 public:
  struct Entry {
    LONGLONG Time = 0;
    std::uint32_t Thread = 0;
    KIRQL Level = PASSIVE_LEVEL;
    const char* Call = nullptr;
    const void* Object = nullptr;
  };

  void Add(const Entry& entry) {
    const std::lock_guard guard(lock_);
    entries_[next_] = entry;
    if (++next_ == kKept) next_ = 0;
  }

  /// A line for each call, oldest first.
  [[nodiscard]] std::string Text() const;

 private:
  static constexpr std::size_t kKept = 40;

  mutable base::ProcessMutex lock_;
  std::array<Entry, kKept> entries_{};  // without a call before it has one
  std::size_t next_ = 0;                // also the oldest, once all entries are calls
};

}  // namespace lidcam::host
