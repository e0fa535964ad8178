#pragma once

#include "platform/kernel.h"

namespace lidcam {

/// Rundown protection: counts the users of a thing, so that its owner can refuse new ones and wait for the
/// others. Open when made.
class Rundown {
 public:
  Rundown();
  Rundown(const Rundown&) = delete;
  Rundown& operator=(const Rundown&) = delete;

  /// @return false if the rundown is closed; otherwise Leave() has to follow
  _IRQL_requires_max_(DISPATCH_LEVEL)
  [[nodiscard]] bool Enter();

  _IRQL_requires_max_(DISPATCH_LEVEL)
  void Leave();

  /// For a user that has stopped for good and will never leave: Close() no longer waits for it. A
  /// thread that is no user may call it too, if it holds a lock that every caller of Close() takes
  /// first: then no Close() is under way.
  _IRQL_requires_max_(DISPATCH_LEVEL)
  void Abandon();

  /// Refuses new users, and returns when the last one has left or stopped. One caller at a time,
  /// which is not a user itself.
  /// @par It waits without limit
  _IRQL_requires_max_(PASSIVE_LEVEL)
  void Close();

  /// After Close().
  void Open();

 private:
  void WakeCloser(LONG state);

  volatile LONG state_ = 0;  ///< users, those of them that have stopped, and kClosed
  KEVENT empty_;             ///< set once per Close() that found users
};

/// Enters a rundown for a scope, unless it is closed.
class RundownHold {
 public:
  explicit RundownHold(Rundown& rundown) : rundown_(rundown), isInside_(rundown.Enter()) {}
  RundownHold(const RundownHold&) = delete;
  RundownHold& operator=(const RundownHold&) = delete;
  ~RundownHold() {
    if (isInside_) rundown_.Leave();
  }

  [[nodiscard]] bool IsInside() const { return isInside_; }

 private:
  Rundown& rundown_;
  const bool isInside_;
};

}  // namespace lidcam
