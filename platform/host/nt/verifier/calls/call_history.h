#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {

/// The last kernel calls of one world. Every call adds itself, so that takes no lock: a call that is being added while
/// the text is made is left out of it.
/// @par Any thread
class CallHistory {
 public:
  struct Entry {
    std::uint64_t Time = 0;  ///< of any clock
    std::uint32_t Thread = 0;
    KIRQL Level = PASSIVE_LEVEL;
    const char* Call = nullptr;
    const void* Object = nullptr;
  };

  /// @param isParallel  whether several threads may add calls at the same time
  explicit CallHistory(bool isParallel) : isParallel_(isParallel) {}

  void Add(const Entry& entry) {
    const std::uint32_t number = NextNumber();
    Slot& slot = slots_[number % kKept];
    slot.Number.store(kNoEntry, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
    slot.Caller.store(entry.Thread << kLevelBits | entry.Level, std::memory_order_relaxed);
    slot.Time.store(entry.Time, std::memory_order_relaxed);
    slot.Call.store(entry.Call, std::memory_order_relaxed);
    slot.Object.store(entry.Object, std::memory_order_relaxed);
    slot.Number.store(number, std::memory_order_release);
  }

  /// A line for each call, oldest first.
  /// @param toUnits  of an entry's time: interrupt time in 100 ns
  template <typename ToUnits>
  [[nodiscard]] std::string Text(ToUnits toUnits) const {
    std::string text;
    const std::uint32_t next = next_.load(std::memory_order_relaxed);
    for (std::uint32_t i = 0; i < kKept; ++i) {
      Entry entry;
      if (Read(slots_[(next + i) % kKept], entry)) AddLine(text, entry, toUnits(entry.Time));
    }
    return text;
  }

 private:
  static constexpr std::uint32_t kKept = 40;
  static constexpr std::uint32_t kNoEntry =
      UINT32_MAX;  ///< of an empty slot, and while one is being written
  static constexpr unsigned kLevelBits = 8;

  // Two of them are a line of a processor's cache.
  struct alignas(32) Slot {
    std::atomic<std::uint32_t> Number{kNoEntry};
    std::atomic<std::uint32_t> Caller{0};  ///< thread, and in the lowest bits its level
    std::atomic<std::uint64_t> Time{0};
    std::atomic<const char*> Call{nullptr};
    std::atomic<const void*> Object{nullptr};
  };

  std::uint32_t NextNumber() {
    if (isParallel_) return next_.fetch_add(1, std::memory_order_relaxed);
    const std::uint32_t number = next_.load(std::memory_order_relaxed);
    next_.store(number + 1, std::memory_order_relaxed);
    return number;
  }

  /// @return false if the slot is empty or is being written
  [[nodiscard]] static bool Read(const Slot& slot, Entry& entry);
  static void AddLine(std::string& text, const Entry& entry, LONGLONG time);

  const bool isParallel_;
  std::atomic<std::uint32_t> next_{0};
  std::array<Slot, kKept> slots_;
};

}  // namespace lidcam::host
