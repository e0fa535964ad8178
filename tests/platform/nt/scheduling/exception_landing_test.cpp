#include <gtest/gtest.h>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {
namespace {

struct Stopped {};

// As a kernel call in a world that stops. Its caller's registers have got other contents by then.
[[gnu::noinline]] LONG NTAPI CallThatStops(LONG number) {
#if defined(__x86_64__)
  asm volatile("mov $77, %%rsi; mov $78, %%rdi" ::: "rsi", "rdi");
#endif
  if (number != 0) throw Stopped{};
  return number;
}

LONG g_sum = 0;

// More values than the convention of Linux preserves in registers.
[[gnu::noinline]] void NTAPI Routine(const LONG* first, LONG a, LONG b, LONG c) {
  const LONG d = a * b;
  const LONG e = c + a;
  const LONG f = a ^ b;
  const LONG g = f * c;
  const LONG h = g * a + 3;
  try {
    CallThatStops(0);
    CallThatStops(1);
  } catch (const Stopped&) {
    g_sum = a * 1000 + b * 100 + c * 10 + d + e + *first + f + g + h;
    throw;
  }
}

TEST(ExceptionLanding, AKernelCallThatThrowsLeavesItsCallersValuesAlone) {
  const LONG first = 5;
  EXPECT_THROW(Routine(&first, 1, 2, 3), Stopped);
  EXPECT_EQ(g_sum, 1000 + 200 + 30 + 2 + 4 + 5 + 3 + 9 + 12);
}

}  // namespace
}  // namespace lidcam::host
