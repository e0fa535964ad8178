#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "platform/host/nt/scheduling/scheduler.h"
#include "platform/host/nt/scheduling/violation.h"

namespace lidcam::host {

/// Collects violations during its lifetime instead of ending the process: for tests of violations.
/// One at a time.
class VerifierCapture final : private ViolationSink {
 public:
  VerifierCapture();
  VerifierCapture(const VerifierCapture&) = delete;
  VerifierCapture& operator=(const VerifierCapture&) = delete;
  ~VerifierCapture() override;

  [[nodiscard]] std::vector<Violation> Violations() const;

  /// Runs `action` and returns the first violation that it caused, as "call: what"; empty if none.
  /// The caller's interrupt level and locks are restored afterwards.
  std::string Of(const std::function<void()>& action) const;

 private:
  void Take(const Violation& violation) override;

  mutable std::mutex lock_;
  std::vector<Violation> violations_;
};

}  // namespace lidcam::host
