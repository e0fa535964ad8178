#include "tests/driver/support/sanitizers.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define LIDCAM_SANITIZED true
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define LIDCAM_SANITIZED true
#endif
#endif
#if !defined(LIDCAM_SANITIZED)
#define LIDCAM_SANITIZED false
#endif

namespace lidcam::test {

const bool kIsSanitized = LIDCAM_SANITIZED;

}  // namespace lidcam::test
