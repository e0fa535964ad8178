#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/host/nt/scheduler.h"

namespace lidcam::host {

/// A use of the kernel that the platform doesn't allow.
struct Violation {
  std::string Call;    ///< the kernel call that it was found in
  std::string What;    ///< what is wrong, naming the object
  std::string Report;  ///< both, then the world, its threads and its last calls
};

/// Unwinds a thread that can't go on, after a violation or EndWorld(): the one that made it and, in a
/// simulation, all others.
struct KernelStopped {};

/// Ends the caller: prints the report and aborts or, while a VerifierCapture lives, throws
/// KernelStopped.
///
/// @param history  lines about the object, for the report; may be empty
[[noreturn]] void ReportViolation(const char* call, const std::string& what,
                                  const std::string& history = {});

/// Ends the caller's world without a violation: nothing of it is to go on.
/// @throws KernelStopped
[[noreturn]] void EndWorld();

/// Collects violations while it lives instead of ending the process: for tests of violations. One at
/// a time.
class VerifierCapture {
 public:
  VerifierCapture();
  VerifierCapture(const VerifierCapture&) = delete;
  VerifierCapture& operator=(const VerifierCapture&) = delete;
  ~VerifierCapture();

  [[nodiscard]] std::vector<Violation> Violations() const;

  /// Runs `action` and tells the first violation that it made, as "call: what"; empty if none. The
  /// caller's interrupt level and locks are then as they were before.
  std::string Of(const std::function<void()>& action) const;
};

/// A name and an address, as reports give objects.
[[nodiscard]] std::string DescribeObject(const char* kind, const void* object);

}  // namespace lidcam::host
