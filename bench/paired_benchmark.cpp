#include "bench/paired_benchmark.h"

#include <algorithm>
#include <cstdio>
#include <string>

namespace lidcam::bench {
namespace {

constexpr int kRepetitions = 31;
constexpr double kSecondsPerRepetition = 0.05;
constexpr double kGiga = 1e9;

double Median(std::vector<double>& times) {
  const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
  std::nth_element(times.begin(), middle, times.end());
  return *middle;
}

/// One line for each benchmark, from the medians of its repetitions.
class PairTable : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override {
    std::printf("%-28s %8s %14s %16s %6s\n", "", "GB/s", "reference GB/s", "time / reference",
                "goal");
    return true;
  }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.aggregate_name == "median") PrintRow(run);
    }
    std::fflush(stdout);
  }

 private:
  static double Counter(const Run& run, const char* name) {
    const auto found = run.counters.find(name);
    return found == run.counters.end() ? 0.0 : found->second.value;
  }

  static void PrintRow(const Run& run) {
    const double goal = Counter(run, "goal");
    const double ratio = Counter(run, "ratio");
    std::printf("%-28s %8.2f %14.2f %16.3f", run.run_name.function_name.c_str(),
                Counter(run, "GBps"), Counter(run, "reference_GBps"), ratio);
    if (goal > 0) std::printf(" %6.2f%s", goal, ratio > goal ? "  missed" : "");
    std::printf("\n");
  }
};

}  // namespace

void PairedTiming::Report(benchmark::State& state, double goal) {
  const double subject = Median(subjectTimes_);
  const double reference = Median(referenceTimes_);
  const auto bytes = static_cast<double>(bytes_);
  state.counters["GBps"] = bytes / subject / kGiga;
  state.counters["reference_GBps"] = bytes / reference / kGiga;
  state.counters["ratio"] = subject / reference;
  state.counters["goal"] = goal;
}

void AsPair(benchmark::internal::Benchmark* benchmark) {
  benchmark->UseManualTime()
      ->MinTime(kSecondsPerRepetition)
      ->Repetitions(kRepetitions)
      ->ReportAggregatesOnly()
      ->Unit(benchmark::kMicrosecond);
}

}  // namespace lidcam::bench

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  lidcam::bench::PairTable table;
  benchmark::RunSpecifiedBenchmarks(&table);
  return 0;
}
