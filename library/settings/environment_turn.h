#pragma once

namespace lidcam::app {

/// The exclusive use of what the cameras of a process share while one starts or takes a still: the tree that
/// \SystemRoot stands for, the file for stills, and the driver's trace. Waits until it is free; may be released by
/// another thread than the one that took it.
class EnvironmentTurn {
 public:
  EnvironmentTurn();
  EnvironmentTurn(const EnvironmentTurn&) = delete;
  EnvironmentTurn& operator=(const EnvironmentTurn&) = delete;
  ~EnvironmentTurn() { Release(); }

  /// Releases it early; nothing the second time.
  void Release();

 private:
  bool isHeld_ = true;
};

}  // namespace lidcam::app
