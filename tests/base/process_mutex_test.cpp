#include "base/process_mutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <mutex>
#include <thread>
#include <vector>

namespace lidcam::base {
namespace {

struct Visits {
  ProcessMutex Lock;
  std::atomic<int> Inside = 0;
  std::atomic<int> Met = 0;  ///< visitors that were inside together with another one
  int Count = 0;

  void Enter() {
    const std::lock_guard guard(Lock);
    if (++Inside != 1) ++Met;
    std::this_thread::yield();
    --Inside;
    ++Count;
  }
};

TEST(ProcessMutex, LetsOneThreadInAtATime) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 25;
  Visits visits;
  visits.Enter();  // possibly without a second thread
  {
    std::latch start(kThreads);
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&] {
        start.arrive_and_wait();
        for (int round = 0; round < kRounds; ++round) visits.Enter();
      });
    }
  }
  visits.Enter();
  EXPECT_EQ(visits.Met, 0);
  EXPECT_EQ(visits.Count, kThreads * kRounds + 2);
}

}  // namespace
}  // namespace lidcam::base
