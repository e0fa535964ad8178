#include "base/process_mutex.h"

#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <vector>

namespace lidcam::base {
namespace {

struct Counted {
  ProcessMutex Lock;
  int Inside = 0;
  int Met = 0;  ///< threads that were inside together with another one
  int Entries = 0;

  void Enter() {
    const std::lock_guard guard(Lock);
    if (++Inside != 1) ++Met;
    std::this_thread::yield();
    --Inside;
    ++Entries;
  }
};

TEST(ProcessMutex, LetsOneThreadInAtATime) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 2000;
  Counted counted;
  counted.Enter();  // possibly without a second thread
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&counted] {
        for (int round = 0; round < kRounds; ++round) counted.Enter();
      });
    }
  }
  counted.Enter();
  EXPECT_EQ(counted.Met, 0);
  EXPECT_EQ(counted.Entries, kThreads * kRounds + 2);
}

}  // namespace
}  // namespace lidcam::base
