#include "platform/host/nt/verifier/verifier.h"

#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/verifier/object_tracker.h"

namespace lidcam::host {

VerifierCapture::VerifierCapture() {
  SetViolationSink(this);
}

VerifierCapture::~VerifierCapture() {
  SetViolationSink(nullptr);
}

void VerifierCapture::Take(const Violation& violation) {
  const std::lock_guard guard(lock_);
  violations_.push_back(violation);
}

std::vector<Violation> VerifierCapture::Violations() const {
  const std::lock_guard guard(lock_);
  return violations_;
}

std::string VerifierCapture::Of(const std::function<void()>& action) const {
  Thread& self = CurrentThread();
  const KIRQL level = self.Level;
  const std::size_t held = self.Held.size();
  const std::size_t before = Violations().size();
  try {
    action();
  } catch (const KernelStopped&) {
    SetLevel(self, level);
    while (self.Held.size() > held) {
      ForgetObject(self.Held.back());
      self.Held.pop_back();
    }
  }
  const auto violations = Violations();
  if (violations.size() == before) return {};
  return violations[before].Call + ": " + violations[before].What;
}

}  // namespace lidcam::host
