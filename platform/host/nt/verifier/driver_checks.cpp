#include <exception>
#include <string>

#include "platform/host/nt/declarations/verifier_declarations.h"
#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/verifier/verifier.h"

namespace lidcam {
namespace {

// After a violation a thread unwinds at the level that it had, through destructors that call the driver.
bool IsUnwinding() {
  return std::uncaught_exceptions() != 0;
}

}  // namespace

void RequireLevelAtMost(KIRQL level, const char* operation) {
  const KIRQL current = host::CurrentThread().Level;
  if (current <= level || IsUnwinding()) return;
  host::ReportViolation(operation, "called at interrupt level " + std::to_string(current) +
                                       ", above " + std::to_string(level));
}

void ReportFailedAssertion(const char* condition, const char* operation) {
  host::ReportViolation(operation, std::string("does not hold: ") + condition);
}

}  // namespace lidcam
