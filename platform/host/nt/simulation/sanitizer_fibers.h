#pragma once

#include <cstddef>

// The sanitizers follow the stacks of a process, and have to be told when another one begins to run. Nothing
// here generates code in a build without them. All functions are inline: ThreadSanitizer pairs the begin and
// the end of functions on each stack, and so the one that switches must have no callee that spans the switch.

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define LIDCAM_ADDRESS_SANITIZER
#endif
#if __has_feature(thread_sanitizer)
#define LIDCAM_SANITIZES_THREADS
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define LIDCAM_ADDRESS_SANITIZER
#endif
#if defined(__SANITIZE_THREAD__)
#define LIDCAM_SANITIZES_THREADS
#endif

#ifdef LIDCAM_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#endif
#ifdef LIDCAM_SANITIZES_THREADS
#include <sanitizer/tsan_interface.h>
#endif

namespace lidcam::host {

/// What the sanitizers know about a fiber, or about the stack of a machine thread.
struct SanitizerFiber {
  const void* Bottom = nullptr;
  std::size_t Bytes = 0;
  void* FakeStack = nullptr;  ///< AddressSanitizer's, while the fiber doesn't run
  void* Handle = nullptr;     ///< ThreadSanitizer's
};

/// Frames of an ended fiber have left marks on its stack.
[[gnu::always_inline]] inline void ForgetFramesOn([[maybe_unused]] void* bottom,
                                                  [[maybe_unused]] std::size_t bytes) {
#ifdef LIDCAM_ADDRESS_SANITIZER
  ASAN_UNPOISON_MEMORY_REGION(bottom, bytes);
#endif
}

/// The running stack.
[[gnu::always_inline]] inline void AdoptRunningFiber([[maybe_unused]] SanitizerFiber& fiber) {
#ifdef LIDCAM_SANITIZES_THREADS
  fiber.Handle = __tsan_get_current_fiber();
#endif
}

/// A new fiber, which has Bottom and Bytes.
[[gnu::always_inline]] inline void CreateFiber([[maybe_unused]] SanitizerFiber& fiber) {
#ifdef LIDCAM_SANITIZES_THREADS
  fiber.Handle = __tsan_create_fiber(0);
#endif
}

[[gnu::always_inline]] inline void DestroyFiber([[maybe_unused]] SanitizerFiber& fiber) {
#ifdef LIDCAM_SANITIZES_THREADS
  __tsan_destroy_fiber(fiber.Handle);
#endif
}

/// Immediately before the jump from `from`, which comes back unless it has ended, to `to`.
[[gnu::always_inline]] inline void BeginSwitch([[maybe_unused]] SanitizerFiber& from,
                                               [[maybe_unused]] const SanitizerFiber& to,
                                               [[maybe_unused]] bool hasEnded) {
#ifdef LIDCAM_ADDRESS_SANITIZER
  __sanitizer_start_switch_fiber(hasEnded ? nullptr : &from.FakeStack, to.Bottom, to.Bytes);
#endif
#ifdef LIDCAM_SANITIZES_THREADS
  __tsan_switch_to_fiber(to.Handle, 0);
#endif
}

/// Immediately after the jump from `from` to `to`, on the stack of `to`.
[[gnu::always_inline]] inline void EndSwitch([[maybe_unused]] SanitizerFiber& from,
                                             [[maybe_unused]] SanitizerFiber& to) {
#ifdef LIDCAM_ADDRESS_SANITIZER
  __sanitizer_finish_switch_fiber(to.FakeStack, &from.Bottom, &from.Bytes);
#endif
}

}  // namespace lidcam::host
