#include "library/settings/environment_turn.h"

#include <condition_variable>
#include <mutex>

namespace lidcam::app {
namespace {

struct Environment {
  std::mutex Mutex;
  std::condition_variable Freed;
  bool IsFree = true;

  // Never destroyed: a camera may be open at the very end of the program.
  static Environment& Instance() {
    static auto* const environment = new Environment;
    return *environment;
  }
};

}  // namespace

EnvironmentTurn::EnvironmentTurn() {
  Environment& environment = Environment::Instance();
  std::unique_lock lock(environment.Mutex);
  environment.Freed.wait(lock, [&] { return environment.IsFree; });
  environment.IsFree = false;
}

void EnvironmentTurn::Release() {
  if (!isHeld_) return;
  isHeld_ = false;
  Environment& environment = Environment::Instance();
  {
    const std::lock_guard lock(environment.Mutex);
    environment.IsFree = true;
  }
  environment.Freed.notify_one();
}

}  // namespace lidcam::app
