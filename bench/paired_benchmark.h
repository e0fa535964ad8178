#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstddef>
#include <vector>

namespace lidcam::bench {

/// Compares a subject with a reference that moves the same bytes over the same memory.
///
/// The two run in turn, with alternating order, so that load, clock rate and cache state of the
/// machine affect both alike. The result is the median of the single runs.
class PairedTiming {
 public:
  /// @param bytes  bytes that one run of either moves
  explicit PairedTiming(std::size_t bytes) : bytes_(bytes) {}

  /// Times one run of each.
  template <typename Subject, typename Reference>
  void Measure(benchmark::State& state, Subject&& subject, Reference&& reference) {
    const bool subjectFirst = subjectTimes_.size() % 2 == 0;
    if (!subjectFirst) referenceTimes_.push_back(Seconds(reference));
    subjectTimes_.push_back(Seconds(subject));
    if (subjectFirst) referenceTimes_.push_back(Seconds(reference));
    state.SetIterationTime(subjectTimes_.back());
  }

  /// Sets the counters "GBps", "reference_GBps", "ratio" (time over the reference's time) and
  /// "goal", the highest acceptable ratio, or 0 if there is none.
  void Report(benchmark::State& state, double goal);

 private:
  template <typename Run>
  static double Seconds(Run&& run) {
    const auto start = std::chrono::steady_clock::now();
    run();
    benchmark::ClobberMemory();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }

  std::size_t bytes_;
  std::vector<double> subjectTimes_;
  std::vector<double> referenceTimes_;
};

/// Settings of every paired benchmark: many repetitions, of which the table shows the median.
void AsPair(benchmark::internal::Benchmark* benchmark);

}  // namespace lidcam::bench
