#pragma once

#include <string>

#include "platform/host/nt/verifier/calls/object_text.h"

namespace lidcam::host {

/// A use of the kernel that the platform doesn't allow.
struct Violation {
  std::string Call;    ///< the kernel call that detected it
  std::string What;    ///< the violated rule, naming the object
  std::string Report;  ///< both, then the world, its threads and its last calls
};

/// Unwinds a thread that can't continue, after a violation or EndWorld(): the one that caused it
/// and, in a simulation, all others.
struct KernelStopped {};

/// Ends the caller: prints the report and aborts or, while there is a ViolationSink, throws
/// KernelStopped.
///
/// @param history  lines about the object, for the report; may be empty
[[noreturn]] void ReportViolation(const char* call, const std::string& what,
                                  const std::string& history = {});

/// Ends the caller's world without a violation: none of its threads continues.
/// @throws KernelStopped
[[noreturn]] void EndWorld();

/// Receives violations in place of the end of the process. One at a time.
class ViolationSink {
 public:
  ViolationSink() = default;
  ViolationSink(const ViolationSink&) = delete;
  ViolationSink& operator=(const ViolationSink&) = delete;
  virtual ~ViolationSink() = default;

  /// @par Any thread, one at a time
  virtual void Take(const Violation& violation) = 0;
};

/// Violations now go to `sink`; null removes it. On return no call of the previous sink is in
/// progress.
void SetViolationSink(ViolationSink* sink);

}  // namespace lidcam::host
