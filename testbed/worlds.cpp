#include "testbed/worlds.h"

#include <exception>

namespace lidcam::testbed {
namespace {

// Other exceptions unwind threads of a world that stops, and must not be caught.
std::exception_ptr ErrorOf(const std::function<void()>& use) {
  try {
    use();
  } catch (const std::exception&) {
    return std::current_exception();
  }
  return nullptr;
}

}  // namespace

void RunInRealTime(const std::function<void()>& body) {
  body();
}

host::SimulationOutcome RunInVirtualTime(const host::SimulationOptions& options,
                                         const std::function<void()>& body) {
  std::exception_ptr error;
  const host::SimulationOutcome outcome = host::Simulate(options, [&] { error = ErrorOf(body); });
  if (error != nullptr) std::rethrow_exception(error);
  return outcome;
}

void RunThenEnd(const std::function<void()>& use, const std::function<void()>& end) {
  const std::exception_ptr error = ErrorOf(use);
  end();
  if (error != nullptr) std::rethrow_exception(error);
}

}  // namespace lidcam::testbed
