#pragma once

#include "platform/kernel.h"

namespace lidcam {

/// Counts those who use a thing, so that who takes the thing away can wait for them. Open when made.
class Rundown {
 public:
  Rundown();
  Rundown(const Rundown&) = delete;
  Rundown& operator=(const Rundown&) = delete;

  /// @return false if the gate is closed; otherwise Leave() has to follow
  /// @par Callable at dispatch level and below
  [[nodiscard]] bool Enter();

  /// @par Callable at dispatch level and below
  void Leave();

  /// One who is inside stops for good and will never leave: nobody who closes waits for it any more. Or one
  /// who is not, but holds a lock that every closer takes first: then nobody closes at all.
  /// @par Callable at dispatch level and below
  void Abandon();

  /// Lets nobody in any more, and returns when the last one has left or stopped. One closer at a time;
  /// nobody inside may close.
  /// @par Callable at passive level only: it waits without limit
  void Close();

  /// After Close().
  void Open();

 private:
  void WakeCloser(LONG state);

  volatile LONG state_ = 0;  ///< users, those of them that have stopped, and kClosed
  KEVENT empty_;             ///< set once per Close() that found users
};

/// Holds a gate open for a scope, if it lets anybody in.
class RundownHold {
 public:
  explicit RundownHold(Rundown& gate) : gate_(gate), isInside_(gate.Enter()) {}
  RundownHold(const RundownHold&) = delete;
  RundownHold& operator=(const RundownHold&) = delete;
  ~RundownHold() {
    if (isInside_) gate_.Leave();
  }

  [[nodiscard]] bool IsInside() const { return isInside_; }

 private:
  Rundown& gate_;
  const bool isInside_;
};

}  // namespace lidcam
