#include "platform/host/nt/scheduling/violation.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "base/time_units.h"
#include "platform/host/nt/scheduling/thread.h"

namespace lidcam::host {
namespace {

constinit std::mutex g_sinkLock;
constinit ViolationSink* g_sink = nullptr;

std::string DescribeCaller(const Thread& self) {
  std::array<char, 160> line{};
  std::snprintf(line.data(), line.size(), "in thread %u (%s) at level %u, %.7f s\n", self.Number,
                self.Name.c_str(), self.Level, base::SecondsOfUnits(self.World.Now()));
  return line.data();
}

// False without a sink.
bool GiveToSink(const Violation& violation) {
  const std::lock_guard guard(g_sinkLock);
  if (g_sink != nullptr) g_sink->Take(violation);
  return g_sink != nullptr;
}

}  // namespace

void SetViolationSink(ViolationSink* sink) {
  const std::lock_guard guard(g_sinkLock);
  g_sink = sink;
}

void ReportViolation(const char* call, const std::string& what, const std::string& history) {
  const Thread& self = CurrentThread();
  Scheduler& world = self.World;
  if (world.IsStopping()) throw KernelStopped{};
  const Violation violation{
      .Call = call,
      .What = what,
      .Report =
          std::string(call) + ": " + what + "\n" + DescribeCaller(self) + history +
          world.Describe() + "last kernel calls:\n" +
          world.History().Text([&world](std::uint64_t stamp) { return world.TimeOf(stamp); })};
  if (!GiveToSink(violation)) {
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

}  // namespace lidcam::host
