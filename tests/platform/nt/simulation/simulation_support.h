#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <exception>
#include <functional>
#include <string>
#include <utility>

#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/host/nt/simulation/simulated_scheduler.h"
#include "platform/host/nt/verifier/verifier.h"

namespace lidcam::host {

inline constexpr LONGLONG kMillisecond = 10'000;  // in units of 100 ns
inline constexpr LONGLONG kSecond = 1000 * kMillisecond;

inline LARGE_INTEGER Time(LONGLONG units) {
  LARGE_INTEGER time{};
  time.QuadPart = units;
  return time;
}

inline NTSTATUS WaitFor(PVOID object, LONGLONG limit) {
  LARGE_INTEGER time = Time(limit);
  return KeWaitForSingleObject(object, Executive, KernelMode, FALSE, &time);
}

inline NTSTATUS WaitForever(PVOID object) {
  return KeWaitForSingleObject(object, Executive, KernelMode, FALSE, nullptr);
}

inline void Sleep(LONGLONG units) {
  LARGE_INTEGER time = Time(-units);
  KeDelayExecutionThread(KernelMode, FALSE, &time);
}

inline LONGLONG Now() {
  return static_cast<LONGLONG>(KeQueryInterruptTime());
}

/// A system thread that runs a lambda; the destructor waits for its end and releases it.
class TestThread {
 public:
  explicit TestThread(std::function<void()> body) : body_(std::move(body)) {
    HANDLE handle = nullptr;
    EXPECT_EQ(PsCreateSystemThread(&handle, 0, nullptr, nullptr, nullptr, Run, this),
              STATUS_SUCCESS);
    EXPECT_EQ(ObReferenceObjectByHandle(handle, THREAD_ALL_ACCESS, nullptr, KernelMode, &object_,
                                        nullptr),
              STATUS_SUCCESS);
    ZwClose(handle);
  }
  TestThread(const TestThread&) = delete;
  TestThread& operator=(const TestThread&) = delete;
  // A simulation that stops unwinds its threads out of their waits.
  ~TestThread() noexcept(false) {
    if (object_ != nullptr && std::uncaught_exceptions() == 0) Join();
  }

  void Join() {
    WaitForever(object_);
    ObDereferenceObject(std::exchange(object_, nullptr));
  }

  [[nodiscard]] PVOID Object() const { return object_; }

 private:
  static void NTAPI Run(PVOID context) { static_cast<TestThread*>(context)->body_(); }

  std::function<void()> body_;
  PVOID object_ = nullptr;
};

/// Runs `test` in a simulation for each of some seeds.
inline void UnderManySeeds(const std::function<void()>& test, std::uint64_t seeds = 50,
                           SimulationOptions options = {}) {
  for (std::uint64_t seed = 1; seed <= seeds; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    options.Seed = seed;
    Simulate(options, test);
  }
}

/// The first violation of a simulation, as "call: what"; empty without one.
inline std::string ViolationOf(const std::function<void()>& body,
                               const SimulationOptions& options = {}) {
  const VerifierCapture capture;
  try {
    Simulate(options, body);
  } catch (const KernelStopped&) {
  }
  const auto violations = capture.Violations();
  return violations.empty() ? "" : violations.front().Call + ": " + violations.front().What;
}

}  // namespace lidcam::host
