#include "platform/host/nt/verifier.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "base/time_units.h"
#include "platform/host/nt/object_tracker.h"
#include "platform/host/nt/thread.h"

namespace lidcam::host {
namespace {

// Never destroyed: violations can come while statics go away.
struct Capture {
  std::mutex Lock;
  bool IsOn = false;
  std::vector<Violation> Violations;
};

Capture& TheCapture() {
  static auto* const capture = new Capture;
  return *capture;
}

std::string DescribeCaller(const Thread& self) {
  std::array<char, 160> line{};
  std::snprintf(line.data(), line.size(), "in thread %u (%s) at level %u, %.7f s\n", self.Number,
                self.Name.c_str(), self.Level, base::SecondsOfUnits(self.World.Now()));
  return line.data();
}

// True if a capture took it.
bool Record(const Violation& violation) {
  Capture& capture = TheCapture();
  const std::lock_guard guard(capture.Lock);
  if (capture.IsOn) capture.Violations.push_back(violation);
  return capture.IsOn;
}

}  // namespace

void ReportViolation(const char* call, const std::string& what, const std::string& history) {
  const Thread& self = CurrentThread();
  Scheduler& world = self.World;
  if (world.IsStopping()) throw KernelStopped{};
  const Violation violation{.Call = call,
                            .What = what,
                            .Report = std::string(call) + ": " + what + "\n" +
                                      DescribeCaller(self) + history + world.Describe() +
                                      "last kernel calls:\n" + world.History().Text()};
  if (!Record(violation)) {
    std::fputs(violation.Report.c_str(), stderr);
    std::abort();
  }
  world.Stop();
  throw KernelStopped{};
}

void EndWorld() {
  CurrentWorld().Stop();
  throw KernelStopped{};
}

VerifierCapture::VerifierCapture() {
  Capture& capture = TheCapture();
  const std::lock_guard guard(capture.Lock);
  capture.IsOn = true;
  capture.Violations.clear();
}

VerifierCapture::~VerifierCapture() {
  Capture& capture = TheCapture();
  const std::lock_guard guard(capture.Lock);
  capture.IsOn = false;
  capture.Violations.clear();
}

std::vector<Violation> VerifierCapture::Violations() const {
  Capture& capture = TheCapture();
  const std::lock_guard guard(capture.Lock);
  return capture.Violations;
}

std::string VerifierCapture::Of(const std::function<void()>& action) const {
  Thread& self = CurrentThread();
  const KIRQL level = self.Level;
  const std::size_t held = self.Held.size();
  const std::size_t before = Violations().size();
  try {
    action();
  } catch (const KernelStopped&) {
    self.Level = level;
    while (self.Held.size() > held) {
      ForgetObject(self.Held.back());
      self.Held.pop_back();
    }
  }
  const auto violations = Violations();
  if (violations.size() == before) return {};
  return violations[before].Call + ": " + violations[before].What;
}

std::string DescribeObject(const char* kind, const void* object) {
  std::array<char, 80> text{};
  std::snprintf(text.data(), text.size(), "%s %p", kind, object);
  return text.data();
}

}  // namespace lidcam::host
