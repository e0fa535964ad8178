// The resampler's kernels against other libraries' bilinear scalers and against memcpy.
//
// All subjects take turns, one scale at a time, so that clock rate, caches and other work on the
// machine affect them alike. The driver's kernels build their tables in every scale, as in the
// driver.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "bench/resampler_peers.h"
#include "driver/frame/resampler/scale_kernels.h"
#include "driver/frame/resampler/yuy2_scale.h"

namespace lidcam::bench {
namespace {

constexpr const char* kMemcpy = "memcpy of all bytes";
constexpr const char* kKernelWithGoals = "AVX2";
constexpr double kMicro = 1e6;

// Time over that of memcpy, the mean of all conversions: not to be exceeded.
const std::map<std::string, double> kMostTimesMemcpy = {{"AVX2", 1.2}, {"AVX-512 VBMI", 0.95}};

struct Goals {
  double OverSwscale;
  double OverLibyuv;
};

struct GoalConversion {
  Conversion Sizes;
  Goals Least;  // of the AVX2 kernel
};

constexpr GoalConversion kConversions[] = {
    {{640, 480, 352, 288}, {9.5, 6.5}}, {{640, 480, 320, 240}, {15, 1.6}},
    {{640, 480, 176, 144}, {17, 5.5}},  {{640, 480, 160, 120}, {22, 5}},
    {{320, 240, 640, 480}, {7, 1.9}},   {{160, 120, 640, 480}, {7, 5.5}},
};

// Microseconds.
struct Timing {
  double Quartile1;
  double Median;
  double Quartile3;
  std::vector<double> Turns;
};

double Part(std::vector<double> values, std::size_t quarters) {
  std::sort(values.begin(), values.end());
  return values[values.size() * quarters / 4];
}

// Speed as a multiple of another's, turn by turn: a change of the machine's speed between turns
// affects both.
double TimesAsFast(const Timing& subject, const Timing& other) {
  std::vector<double> ratios;
  for (std::size_t turn = 0; turn < subject.Turns.size(); ++turn) {
    ratios.push_back(other.Turns[turn] / subject.Turns[turn]);
  }
  return Part(std::move(ratios), 2);
}

using Timings = std::map<std::string, Timing>;

std::string NameOf(const Conversion& c) {
  const auto size = [](int width, int height) {
    return std::to_string(width) + "x" + std::to_string(height);
  };
  return size(c.SourceWidth, c.SourceHeight) + " to " + size(c.Width, c.Height);
}

ResizeStatus ScaleWith(const ScaleKernel& kernel, const Conversion& c, const std::uint8_t* source,
                       std::uint8_t* output) {
  const ResizeArguments arguments{source,
                                  {c.SourceWidth, c.SourceHeight},
                                  c.SourceWidth * 2,
                                  {0, 0, c.SourceWidth, c.SourceHeight},
                                  output,
                                  c.Width * 2,
                                  {c.Width, c.Height},
                                  static_cast<double>(c.Width) / c.SourceWidth,
                                  static_cast<double>(c.Height) / c.SourceHeight,
                                  InterpolationLinear};
  ImageSize size{};
  const ResizeStatus status = CheckYuy2(arguments, size);
  if (status != ResizeDone) return status;
  const Yuy2Scale scale(arguments, size, kernel);
  if (scale.Job() == nullptr) return ResizeOutOfMemory;
  kernel.Scale(*scale.Job());
  return ResizeDone;
}

/// Memory on a page boundary, as the buffers of a stream have it.
class PageBuffer {
 public:
  explicit PageBuffer(std::size_t bytes)
      : bytes_(bytes), memory_(bytes + kPage), start_(Start(memory_.data())) {}

  [[nodiscard]] std::uint8_t* Data() const { return start_; }
  [[nodiscard]] std::size_t Size() const { return bytes_; }
  [[nodiscard]] std::vector<std::uint8_t> Copy() const { return {start_, start_ + bytes_}; }

 private:
  static constexpr std::size_t kPage = 4096;

  static std::uint8_t* Start(std::uint8_t* memory) {
    return memory + (kPage - reinterpret_cast<std::uintptr_t>(memory) % kPage) % kPage;
  }

  std::size_t bytes_;
  std::vector<std::uint8_t> memory_;
  std::uint8_t* start_;
};

/// Every subject of one conversion, with its pictures.
class Contest {
 public:
  explicit Contest(const Conversion& conversion)
      : conversion_(conversion),
        source_(conversion.SourceBytes()),
        output_(conversion.OutputBytes()),
        copySource_(source_.Size() + output_.Size()),
        copyTarget_(copySource_.Size()) {
    std::mt19937 random(1);
    std::generate_n(source_.Data(), source_.Size(),
                    [&random] { return static_cast<std::uint8_t>(random()); });
    for (const ScaleKernel& kernel : ScaleKernels()) {
      if (!kernel.IsSupported()) continue;
      kernels_.emplace_back(kernel.Name);
      subjects_.push_back({kernel.Name, [this, &kernel] {
                             ScaleWith(kernel, conversion_, source_.Data(), output_.Data());
                           }});
    }
    for (Subject& peer : MakePeers(conversion, source_.Data(), output_.Data())) {
      subjects_.push_back(std::move(peer));
    }
    subjects_.push_back({kMemcpy, [this] {
                           std::memcpy(copyTarget_.Data(), copySource_.Data(), copySource_.Size());
                         }});
  }
  Contest(const Contest&) = delete;
  Contest& operator=(const Contest&) = delete;

  [[nodiscard]] const std::vector<std::string>& Kernels() const { return kernels_; }

  /// A kernel whose picture differs from the reference's; empty if there is none.
  [[nodiscard]] std::string DifferingKernel() {
    subjects_.front().Run();
    const std::vector<std::uint8_t> wanted = output_.Copy();
    for (std::size_t i = 1; i < kernels_.size(); ++i) {
      std::memset(output_.Data(), 0, output_.Size());
      subjects_[i].Run();
      if (output_.Copy() != wanted) return kernels_[i];
    }
    return {};
  }

  Timings Measure(int turns) {
    std::vector<std::vector<double>> times(subjects_.size());
    for (int turn = 0; turn < turns; ++turn) {
      for (std::size_t i = 0; i < subjects_.size(); ++i) {
        const std::size_t at = (i + static_cast<std::size_t>(turn)) % subjects_.size();
        subjects_[at].Run();  // brings the caches into the state of a running stream
        const auto start = std::chrono::steady_clock::now();
        subjects_[at].Run();
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
        times[at].push_back(time.count() * kMicro);
      }
    }
    Timings timings;
    for (std::size_t i = 0; i < subjects_.size(); ++i) {
      timings[subjects_[i].Name] = {Part(times[i], 1), Part(times[i], 2), Part(times[i], 3),
                                    times[i]};
    }
    return timings;
  }

 private:
  Conversion conversion_;
  PageBuffer source_;
  PageBuffer output_;
  PageBuffer copySource_;
  PageBuffer copyTarget_;
  std::vector<std::string> kernels_;
  std::vector<Subject> subjects_;
};

const Timing& BestLibyuv(const Timings& timings) {
  const Timing* best = &timings.at(kYuvByPlanes);
  for (const char* other : {kYuvByArgb, kYuvBySplit}) {
    if (timings.at(other).Median < best->Median) best = &timings.at(other);
  }
  return *best;
}

std::string Verdict(double ratio, double goal) {
  if (goal <= 0) return {};
  char text[32];
  std::snprintf(text, sizeof text, ">= %.1f %s", goal, ratio >= goal ? "met" : "missed");
  return text;
}

void PrintTable(const Conversion& conversion, const std::vector<std::string>& kernels,
                const Timings& timings, const Goals& goals) {
  std::printf("\n%-26s %8s %17s %11s %8s %8s   %-14s %s\n", NameOf(conversion).c_str(), "us",
              "quartiles", "libswscale", "libyuv", "memcpy", "libswscale", "libyuv");
  const auto row = [&](const std::string& name, const Goals& least) {
    const Timing& t = timings.at(name);
    const double overSwscale = TimesAsFast(t, timings.at(kSwscaleBilinear));
    const double overLibyuv = TimesAsFast(t, BestLibyuv(timings));
    std::printf("  %-24s %8.1f %8.1f %8.1f %10.2fx %7.2fx %7.2fx   %-14s %s\n", name.c_str(),
                t.Median, t.Quartile1, t.Quartile3, overSwscale, overLibyuv,
                TimesAsFast(t, timings.at(kMemcpy)),
                Verdict(overSwscale, least.OverSwscale).c_str(),
                Verdict(overLibyuv, least.OverLibyuv).c_str());
  };
  for (const std::string& kernel : kernels) {
    row(kernel, kernel == kKernelWithGoals ? goals : Goals{0, 0});
  }
  for (const char* peer :
       {kSwscaleBilinear, kSwscaleFastBilinear, kYuvByPlanes, kYuvByArgb, kYuvBySplit, kMemcpy}) {
    row(peer, {0, 0});
  }
}

nlohmann::json ToJson(const Conversion& conversion, const std::vector<std::string>& kernels,
                      const Timings& timings, const Goals& goals) {
  nlohmann::json subjects = nlohmann::json::array();
  for (const auto& [name, t] : timings) {
    subjects.push_back(
        {{"name", name},
         {"kernel", std::find(kernels.begin(), kernels.end(), name) != kernels.end()},
         {"median_us", t.Median},
         {"quartile1_us", t.Quartile1},
         {"quartile3_us", t.Quartile3},
         {"times_libswscale", TimesAsFast(t, timings.at(kSwscaleBilinear))},
         {"times_best_libyuv", TimesAsFast(t, BestLibyuv(timings))},
         {"times_memcpy", TimesAsFast(t, timings.at(kMemcpy))}});
  }
  return {{"conversion", NameOf(conversion)},
          {"goals",
           {{"kernel", kKernelWithGoals},
            {"times_libswscale", goals.OverSwscale},
            {"times_best_libyuv", goals.OverLibyuv}}},
          {"subjects", std::move(subjects)}};
}

int Run(const std::string& filter, const std::string& outFile, int turns) {
  const std::regex wanted(filter);
  nlohmann::json results = nlohmann::json::array();
  std::map<std::string, double> logarithms;
  std::map<std::string, double> timesMemcpy;
  std::size_t conversions = 0;
  std::printf(
      "Median microseconds a picture of %d; how many times as fast as libswscale bilinear,\n"
      "as the best libyuv route, and as memcpy of source plus output bytes; goals\n",
      turns);
  for (const GoalConversion& entry : kConversions) {
    if (!std::regex_search(NameOf(entry.Sizes), wanted)) continue;
    const auto contest = std::make_unique<Contest>(entry.Sizes);
    const std::string differing = contest->DifferingKernel();
    if (!differing.empty()) {
      std::fprintf(stderr, "%s: %s differs from the reference\n", NameOf(entry.Sizes).c_str(),
                   differing.c_str());
      return 1;
    }
    const Timings timings = contest->Measure(turns);
    PrintTable(entry.Sizes, contest->Kernels(), timings, entry.Least);
    results.push_back(ToJson(entry.Sizes, contest->Kernels(), timings, entry.Least));
    for (const std::string& kernel : contest->Kernels()) {
      logarithms[kernel] += std::log(TimesAsFast(timings.at(kernel), timings.at(kSwscaleBilinear)));
      timesMemcpy[kernel] += 1 / TimesAsFast(timings.at(kernel), timings.at(kMemcpy));
    }
    ++conversions;
  }
  if (conversions == 0) {
    std::printf("no conversion matches '%s'\n", filter.c_str());
    return 0;
  }
  std::printf("\nGeometric mean, times as fast as libswscale bilinear:");
  nlohmann::json means;
  for (const auto& [kernel, logarithm] : logarithms) {
    means[kernel] = std::exp(logarithm / static_cast<double>(conversions));
    std::printf("  %s %.1f", kernel.c_str(), means[kernel].get<double>());
  }
  std::printf("\nMean of the time over that of memcpy:");
  nlohmann::json copies;
  for (const auto& [kernel, sum] : timesMemcpy) {
    const double mean = sum / static_cast<double>(conversions);
    copies[kernel] = mean;
    std::printf("  %s %.2f", kernel.c_str(), mean);
    const auto most = kMostTimesMemcpy.find(kernel);
    if (most == kMostTimesMemcpy.end()) continue;
    std::printf(" (<= %.2f %s)", most->second, mean <= most->second ? "met" : "missed");
  }
  std::printf("\n");
  const nlohmann::json figures = {{"turns", turns},
                                  {"conversions", std::move(results)},
                                  {"geometric_mean_over_libswscale", std::move(means)},
                                  {"mean_time_over_memcpy", std::move(copies)}};
  if (!outFile.empty() && !(std::ofstream(outFile) << figures.dump(2) << std::endl)) {
    std::fprintf(stderr, "figures can't be written to '%s'\n", outFile.c_str());
    return 1;
  }
  return 0;
}

}  // namespace
}  // namespace lidcam::bench

// Accepts the options of the other benchmark programs as far as they apply here.
int main(int argc, char** argv) {
  CLI::App app{"Compares the resampler's kernels with other libraries' bilinear scalers."};
  std::string filter = ".";
  std::string outFile;
  std::string format = "json";
  int turns = 401;
  app.add_option("--benchmark_filter", filter, "Regular expression for conversions");
  app.add_option("--benchmark_out", outFile, "File for the figures");
  app.add_option("--benchmark_out_format", format, "Format of that file")
      ->check(CLI::IsMember({"json"}));
  app.add_option("--benchmark_repetitions", turns, "Timed pictures of each subject")
      ->check(CLI::Range(1, 1000000));
  app.allow_extras();
  CLI11_PARSE(app, argc, argv);
  for (const std::string& extra : app.remaining()) {
    std::fprintf(stderr, "resampler_bench has no use for %s\n", extra.c_str());
  }
  try {
    return lidcam::bench::Run(filter, outFile, turns);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "resampler_bench: %s\n", error.what());
    return 1;
  }
}
