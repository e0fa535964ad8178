#include "driver/core/record/timed_wait.h"

#include <gtest/gtest.h>

namespace lidcam::test {
namespace {

struct Sleep {
  int Count = 0;
  KPROCESSOR_MODE Mode = -1;
  BOOLEAN Alertable = 2;
  LONGLONG Interval = 0;
};

Sleep* g_sleep = nullptr;

TEST(TimedWait, ARelativeTimeIsNegative) {
  EXPECT_EQ(RelativeTime(80'000'000).QuadPart, -80'000'000);
}

// The driver's threads can't be alerted, and all of them wait in kernel mode.
TEST(TimedWait, APollSleeps2MillisecondsForTheKernel) {
  Sleep sleep;
  g_sleep = &sleep;
  SleepOnePoll();
  g_sleep = nullptr;
  EXPECT_EQ(sleep.Count, 1);
  EXPECT_EQ(sleep.Mode, 0);
  EXPECT_EQ(sleep.Alertable, 0);
  EXPECT_EQ(sleep.Interval, -20'000);
}

}  // namespace
}  // namespace lidcam::test

// The linker makes these names.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" {

NTSTATUS NTAPI __real_KeDelayExecutionThread(KPROCESSOR_MODE mode, BOOLEAN alertable,
                                             PLARGE_INTEGER interval);
NTSTATUS NTAPI __wrap_KeDelayExecutionThread(KPROCESSOR_MODE mode, BOOLEAN alertable,
                                             PLARGE_INTEGER interval);

NTSTATUS NTAPI __wrap_KeDelayExecutionThread(KPROCESSOR_MODE mode, BOOLEAN alertable,
                                             PLARGE_INTEGER interval) {
  lidcam::test::Sleep* const sleep = lidcam::test::g_sleep;
  if (sleep == nullptr) return __real_KeDelayExecutionThread(mode, alertable, interval);
  *sleep = {sleep->Count + 1, mode, alertable, interval->QuadPart};
  return 0;
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
