#include "platform/host/nt/verifier/kernel_faults.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <string>
#include <string_view>

#include "base/process_mutex.h"
#include "platform/host/nt/scheduling/violation.h"

namespace lidcam::host {
namespace {

struct FaultPoint {
  std::string_view Name;
  std::uint32_t Countdown = 0;
  NTSTATUS Status = STATUS_SUCCESS;
};

// Each function that calls KernelCallFault().
struct FaultPoints {
  base::ProcessMutex Lock;
  std::array<FaultPoint, 9> Points{{
      {"IoAllocateDriverObjectExtension"},
      {"IoAllocateIrp"},
      {"IoAllocateWorkItem"},
      {"IoCreateDevice"},
      {"KeSaveFloatingPointState"},
      {"ObReferenceObjectByHandle"},
      {"PsCreateSystemThread"},
      {"ZwCreateFile"},
      {"ZwWriteFile"},
  }};
};

FaultPoints& ThePoints() {
  static auto* const points = new FaultPoints;
  return *points;
}

FaultPoint* Find(FaultPoints& points, std::string_view name) {
  const auto found = std::ranges::find(points.Points, name, &FaultPoint::Name);
  return found != points.Points.end() ? &*found : nullptr;
}

}  // namespace

void FailKernelCall(const char* name, std::uint32_t countdown, NTSTATUS status) {
  FaultPoints& points = ThePoints();
  std::unique_lock guard(points.Lock);
  FaultPoint* const point = Find(points, name);
  if (point == nullptr) {
    guard.unlock();
    ReportViolation("FailKernelCall", std::string(name) + " has no fault point");
  }
  point->Countdown = countdown;
  point->Status = status;
}

bool IsKernelCallFaultToCome() {
  FaultPoints& points = ThePoints();
  const std::lock_guard guard(points.Lock);
  return std::ranges::any_of(points.Points,
                             [](const FaultPoint& point) { return point.Countdown != 0; });
}

void ClearKernelCallFaults() {
  FaultPoints& points = ThePoints();
  const std::lock_guard guard(points.Lock);
  for (FaultPoint& point : points.Points) point.Countdown = 0;
}

std::optional<NTSTATUS> KernelCallFault(const char* name) {
  FaultPoints& points = ThePoints();
  const std::lock_guard guard(points.Lock);
  FaultPoint* const point = Find(points, name);
  if (point == nullptr || point->Countdown == 0 || --point->Countdown != 0) return std::nullopt;
  return point->Status;
}

}  // namespace lidcam::host
