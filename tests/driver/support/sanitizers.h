#pragma once

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define LIDCAM_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define LIDCAM_SANITIZED 1
#endif
#endif

namespace lidcam::test {

/// A sanitizer watches this build: what it slows down too much takes a sample.
#ifdef LIDCAM_SANITIZED
inline constexpr bool kIsSanitized = true;
#else
inline constexpr bool kIsSanitized = false;
#endif

}  // namespace lidcam::test
