#include <cxxabi.h>

#include <boost/context/detail/fcontext.hpp>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>

#include "platform/host/nt/simulation/execution_context.h"
#include "platform/host/nt/simulation/fiber_stack.h"
#include "platform/host/nt/simulation/sanitizer_fibers.h"

namespace lidcam::host {
namespace {

using boost::context::detail::fcontext_t;
using boost::context::detail::jump_fcontext;
using boost::context::detail::make_fcontext;
using boost::context::detail::transfer_t;

}  // namespace

struct ExecutionContext::State {
  // What the run-time library keeps for a machine thread: the exceptions that are being handled, and the number
  // of those that unwind.
  class ExceptionsInFlight {
   public:
    void Save() { std::memcpy(words_, ofMachineThread_, sizeof words_); }
    void Restore() const { std::memcpy(ofMachineThread_, words_, sizeof words_); }

   private:
    // All fibers of a world run on the machine thread that makes them.
    void* const ofMachineThread_ = abi::__cxa_get_globals();
    void* words_[2] = {};
  };

  // Lies on the stack that is left.
  struct Switch {
    State& From;
    State& To;
  };

  State() { AdoptRunningFiber(Known); }
  explicit State(Body body);
  State(const State&) = delete;
  State& operator=(const State&) = delete;
  ~State();

  [[noreturn]] static void Enter(transfer_t arrival);
  [[noreturn]] void End(State& next);
  static void Arrive(transfer_t arrival);
  void ReleaseStack();

  Body Run;
  std::optional<FiberStack> Stack;  // nothing: the machine thread's own, or the body has ended
  fcontext_t Suspended = nullptr;   // while it doesn't run
  bool HasEnded = false;
  ExceptionsInFlight Exceptions;  // while it doesn't run
  SanitizerFiber Known;
};

ExecutionContext::State::State(Body body) : Run(std::move(body)), Stack(std::in_place) {
  Suspended = make_fcontext(Stack->Top(), FiberStack::kBytes, &Enter);
  Known.Bottom = Stack->Bottom();
  Known.Bytes = FiberStack::kBytes;
  CreateFiber(Known);
}

ExecutionContext::State::~State() {
  if (Stack) ReleaseStack();
}

void ExecutionContext::State::ReleaseStack() {
  DestroyFiber(Known);
  Stack.reset();
}

// The end of a jump, on the stack that runs now.
void ExecutionContext::State::Arrive(transfer_t arrival) {
  const Switch& done = *static_cast<const Switch*>(arrival.data);
  State& from = done.From;
  done.To.Exceptions.Restore();
  EndSwitch(from.Known, done.To.Known);
  from.Suspended = arrival.fctx;
  if (from.HasEnded) from.ReleaseStack();
}

void ExecutionContext::State::Enter(transfer_t arrival) {
  State& self = static_cast<const Switch*>(arrival.data)->To;
  Arrive(arrival);
  State* next = nullptr;
  {
    const Body run = std::move(self.Run);
    next = run().state_.get();
  }
  self.End(*next);
}

void ExecutionContext::State::End(State& next) {
  HasEnded = true;
  Switch last{*this, next};
  BeginSwitch(Known, next.Known, HasEnded);
  jump_fcontext(next.Suspended, &last);
  std::abort();  // nothing jumps back
}

bool ExecutionContext::ShareOneMachineThread() {
  return true;
}

ExecutionContext::ExecutionContext() : state_(std::make_unique<State>()) {}

ExecutionContext::ExecutionContext(Body body) : state_(std::make_unique<State>(std::move(body))) {}

ExecutionContext::~ExecutionContext() = default;

void ExecutionContext::SwitchTo(ExecutionContext& next) {
  State& to = *next.state_;
  State::Switch turn{*state_, to};
  state_->Exceptions.Save();
  BeginSwitch(state_->Known, to.Known, false);
  State::Arrive(jump_fcontext(to.Suspended, &turn));
}

}  // namespace lidcam::host
