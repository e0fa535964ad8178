#pragma once

#include <functional>
#include <memory>

namespace lidcam::host {

/// What runs one thread of a simulated world: a fiber or, in builds without LIDCAM_FIBERS, a machine thread. Of
/// the contexts of a world exactly one runs at a time, until it switches to another.
class ExecutionContext {
 public:
  /// @return the context that runs next, when this one has ended
  using Body = std::function<ExecutionContext&()>;

  /// Whether all contexts run on the machine thread of their world, so that its process can fork.
  [[nodiscard]] static bool ShareOneMachineThread();

  /// The caller, which runs already.
  ExecutionContext();

  /// A context that calls `body` when it is first switched to.
  explicit ExecutionContext(Body body);

  ExecutionContext(const ExecutionContext&) = delete;
  ExecutionContext& operator=(const ExecutionContext&) = delete;

  /// The context hasn't begun, or has ended; or it is the caller of the constructor without a body.
  ~ExecutionContext();

  /// Lets `next` run in place of the calling context, which is this one. Returns when another context
  /// switches back.
  void SwitchTo(ExecutionContext& next);

 private:
  struct State;

  std::unique_ptr<State> state_;
};

}  // namespace lidcam::host
