#pragma once

#include <atomic>
#include <type_traits>

#include "platform/shared_access.h"

namespace lidcam {

/// A field that threads share without a lock.
///
/// The camera's threads read and write such fields at any time, and every interleaving of whole
/// loads and stores is accepted. The accesses are relaxed atomics: plain loads and stores in
/// machine code, but defined ones. Read-modify-write operations are a load and a store, not one
/// atomic step.
///
/// For a field that two contexts touch without a lock in common, and its comment names them, "requests | frame
/// path: ...", in the words of CameraContext; completions are the USB stack's, ticks those of the watchdog.
/// A field that one context uses alone, or that is written before others can reach it, is plain.
///
/// @tparam T  a number of at most the machine's word, a pointer, or a structure of that size
template <typename T>
class Shared {
 public:
  static_assert(std::atomic<T>::is_always_lock_free);

  constexpr Shared() = default;
  constexpr explicit(false) Shared(T value) : value_(value) {}
  Shared(const Shared&) = delete;
  ~Shared() = default;

  explicit(false) operator T() const {
    BeforeSharedLoad(this);
    return value_.load(std::memory_order_relaxed);
  }

  Shared& operator=(T value) {
    BeforeSharedStore(this);
    value_.store(value, std::memory_order_relaxed);
    return *this;
  }
  Shared& operator=(const Shared& other) { return *this = static_cast<T>(other); }

  /// Dereferences the present pointer.
  T operator->() const requires std::is_pointer_v<T> { return *this; }
  decltype(auto) operator*() const requires std::is_pointer_v<T> { return *static_cast<T>(*this); }

 private:
  std::atomic<T> value_{};
};

}  // namespace lidcam
