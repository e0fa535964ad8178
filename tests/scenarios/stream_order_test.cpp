// The rules of StreamOrder, each with a trace that breaks it and one that doesn't.

#include "scenarios/stage/stream_order.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string_view>

namespace lidcam::scenarios {
namespace {

constexpr LONGLONG kSecond = 10'000'000;

struct Line {
  std::string_view Text;
  bool IsRecovery = false;
  LONGLONG Time = 0;  ///< seconds
};

// The rule that is broken at the last line; the lines before it break none.
std::string_view Last(std::initializer_list<Line> lines) {
  StreamOrder order;
  std::string_view wrong;
  for (const Line& line : lines) {
    EXPECT_EQ(wrong, "") << line.Text;
    wrong = order.Look(line.Text, line.IsRecovery, line.Time * kSecond);
  }
  return wrong;
}

constexpr Line kAcquired{"stream acquire -> 00000000"};
constexpr Line kStarted{"iso start frame=12 pipe=1"};
constexpr Line kDraining{"drain abort status=00000000"};
constexpr Line kDrained{"drain ends status=00000000"};

TEST(StreamOrder, StreamIsNotPreparedAfterItsDeviceHasGone) {
  EXPECT_EQ(Last({{"device gone reason=3"}, {"stream on"}}),
            "a stream is prepared after its device has gone");
  EXPECT_EQ(Last({{"stream on"}, {"device gone reason=3"}, kAcquired}),
            "a stream is prepared after its device has gone");
  EXPECT_EQ(Last({{"stream on"}, kAcquired, {"device gone reason=3"}}), "");
  EXPECT_EQ(Last({{"device gone reason=0"}, {"stream hardware start -> 00000000"}, {"stream on"}}),
            "");
}

TEST(StreamOrder, DrainedStreamIsNotDrainedAgainBeforeItIsStarted) {
  EXPECT_EQ(Last({kAcquired, kStarted, kDraining, kDrained, kDraining}),
            "a drained stream is drained again");
  EXPECT_EQ(Last({kAcquired, kStarted, kDraining, kDrained, kStarted, kDraining}), "");
}

TEST(StreamOrder, RecoveryDoesNotStartADrainedStream) {
  const Line recovery{"iso start frame=12 pipe=0", true};
  EXPECT_EQ(Last({kAcquired, kStarted, kDraining, kDrained, recovery}),
            "a recovery starts the transfers of a drained stream");
  EXPECT_EQ(Last({kAcquired, kStarted, kDraining, kDrained, kStarted, recovery}), "");
}

TEST(StreamOrder, DrainDoesNotMissTheTickThatEndsItsWait) {
  const Line tick{"watchdog stop idle", false, 1};
  EXPECT_EQ(Last({kAcquired, kStarted, tick, kDraining, {"drain ends status=00000102", false, 9}}),
            "a drain has missed the tick that ended its wait");
  EXPECT_EQ(Last({kAcquired, kStarted, kDraining, {"drain ends status=00000102", false, 9}}), "");
  // The tick's processor has stopped between its line and the event.
  EXPECT_EQ(Last({kAcquired, kStarted, kDraining, tick, {"drain ends status=00000102", false, 4}}),
            "");
  // A tick of the drain before, whose time was over.
  const Line late{"drain ends status=00000102"};
  EXPECT_EQ(Last({kAcquired,
                  kStarted,
                  kDraining,
                  late,
                  tick,
                  kDraining,
                  {"drain ends status=00000102", false, 9}}),
            "");
}

}  // namespace
}  // namespace lidcam::scenarios
