#include <semaphore>
#include <thread>
#include <utility>

#include "platform/host/nt/simulation/execution_context.h"

namespace lidcam::host {

struct ExecutionContext::State {
  std::binary_semaphore Turn{0};
  std::thread Machine;
};

bool ExecutionContext::ShareOneMachineThread() {
  return false;
}

ExecutionContext::ExecutionContext() : state_(std::make_unique<State>()) {}

ExecutionContext::ExecutionContext(Body body) : state_(std::make_unique<State>()) {
  state_->Machine = std::thread([&state = *state_, run = std::move(body)] {
    state.Turn.acquire();
    run().state_->Turn.release();
  });
}

ExecutionContext::~ExecutionContext() {
  if (state_->Machine.joinable()) state_->Machine.join();
}

void ExecutionContext::SwitchTo(ExecutionContext& next) {
  next.state_->Turn.release();
  state_->Turn.acquire();
}

}  // namespace lidcam::host
