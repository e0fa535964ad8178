#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include "apps/lidcam/base/standard_output.h"
#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/options/common_options.h"
#include "apps/lidcam/output/utf8_text.h"
#include "base/time_units.h"
#include "library/base/command_error.h"
#include "library/base/interrupt.h"
#include "platform/host/nt/memory/pool_arena.h"
#include "platform/image/file/image_file.h"
#include "scenarios/guide.h"
#include "scenarios/minimizer.h"
#include "scenarios/runner.h"
#include "scenarios/stated_hangs.h"
#include "testbed/installed_driver.h"

namespace lidcam::app {
namespace {

using scenarios::RunKey;
using scenarios::RunResult;
using scenarios::Scenario;
using scenarios::Verdict;

struct SeedRange {
  std::uint64_t First = 1;
  std::uint64_t Last = 1;
};

struct SimulateCommand {
  std::string ScenarioName = "all";
  std::string Seeds;
  std::optional<std::uint64_t> Seed;
  std::optional<std::uint64_t> Step;
  bool HasAllSteps = false;
  scenarios::RunOptions Options;
  std::string Scheduler = "walk";
  std::string Reseedings;
  std::optional<std::size_t> Branches;
  bool IsMixed = false;
  bool IsMinimized = false;
  bool IsSideBySide = false;
  bool HasGuardPages = false;
  bool IsList = false;
  bool IsJson = false;
  bool ShowsTrace = false;
  bool IsQuiet = false;
};

/// The sums of many runs.
struct Tally {
  std::uint64_t Runs = 0;
  std::uint64_t Hangs = 0;
  std::uint64_t CutShort = 0;
  std::uint64_t Failures = 0;
  std::uint64_t Frames = 0;
  std::uint64_t Disturbed = 0;
  std::uint64_t Recoveries = 0;
  std::chrono::steady_clock::time_point Began = std::chrono::steady_clock::now();

  void Add(const RunResult& result) {
    ++Runs;
    if (result.Outcome == Verdict::StatedHang) ++Hangs;
    if (result.Outcome == Verdict::CutShort) ++CutShort;
    if (result.Outcome == Verdict::Failed) ++Failures;
    Frames += result.Counts.Frames;
    Disturbed += result.Counts.Disturbed;
    Recoveries += result.Counts.Recoveries;
  }
  [[nodiscard]] double Seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - Began).count();
  }
};

std::uint64_t ParseSeed(std::string_view text, const std::string& whole) {
  std::uint64_t number = 0;
  const auto end = std::from_chars(text.data(), text.data() + text.size(), number);
  if (text.empty() || end.ec != std::errc{} || end.ptr != text.data() + text.size()) {
    throw UsageError("--seeds " + whole + ": a number or a range of numbers, such as 1..1000");
  }
  return number;
}

SeedRange ParseSeeds(const std::string& text) {
  const std::size_t dots = text.find("..");
  const std::string_view view = text;
  SeedRange range;
  range.First = ParseSeed(view.substr(0, dots), text);
  range.Last = dots == std::string::npos ? range.First : ParseSeed(view.substr(dots + 2), text);
  if (range.Last < range.First) {
    throw UsageError("--seeds " + text + ": the last seed is below the first");
  }
  return range;
}

// "120:7,340:9"
std::vector<scenarios::Reseeding> ParseReseedings(const std::string& text) {
  std::vector<scenarios::Reseeding> reseedings;
  const char* at = text.data();
  const char* const end = at + text.size();
  while (at != end) {
    scenarios::Reseeding each;
    const auto point = std::from_chars(at, end, each.Point);
    const bool hasSeed = point.ec == std::errc{} && point.ptr != end && *point.ptr == ':';
    const auto seed = std::from_chars(hasSeed ? point.ptr + 1 : end, end, each.Seed);
    const bool hasEnd = seed.ptr == end || (*seed.ptr == ',' && seed.ptr + 1 != end);
    const bool isInOrder = each.Point > (reseedings.empty() ? 0 : reseedings.back().Point);
    if (!hasSeed || seed.ec != std::errc{} || !hasEnd || !isInOrder) {
      throw UsageError("--reseed " + text +
                       ": numbers of switch points, in their order, each with a seed, such as "
                       "120:7,340:9");
    }
    reseedings.push_back(each);
    at = seed.ptr == end ? end : seed.ptr + 1;
  }
  return reseedings;
}

std::vector<const Scenario*> ChosenScenarios(const std::string& name) {
  std::vector<const Scenario*> chosen;
  if (name == "all") {
    for (const Scenario& scenario : scenarios::Scenarios()) {
      if (!testbed::IsDriverOfImage() || IsOfApplications(scenario)) chosen.push_back(&scenario);
    }
    return chosen;
  }
  const Scenario* const scenario = scenarios::FindScenario(name);
  if (scenario == nullptr) {
    throw UsageError("--scenario " + name + ": no scenario has this name (--list shows them)");
  }
  if (testbed::IsDriverOfImage() && !IsOfApplications(*scenario)) {
    throw UsageError("--scenario " + name +
                     ": calls operations of the driver that an image doesn't show; with --driver "
                     "only scenarios of applications can be played");
  }
  return {scenario};
}

std::string Hex(std::uint64_t number) {
  std::array<char, 20> text{};
  std::snprintf(text.data(), text.size(), "%016llx", static_cast<unsigned long long>(number));
  return text.data();
}

std::string VerdictText(const RunResult& result) {
  std::string text(ToString(result.Outcome));
  if (!result.Hang.empty()) text.append(": ").append(result.Hang);
  if (result.Outcome == Verdict::CutShort) text += ": " + result.What;
  return text;
}

// What the key of a run doesn't know belongs to its command line, too.
std::string WholeReplayCommand(const RunResult& result, const SimulateCommand& command) {
  std::string text = scenarios::ReplayCommand(result.Key);
  if (testbed::IsDriverOfImage()) text += " --driver " + testbed::DriverImage()->Name();
  if (command.IsSideBySide) text += " --side-by-side";
  if (command.HasGuardPages) text += " --guard-pages";
  return text;
}

// "left out: pauses, pulled plugs; applications 4, buffers 2"; empty for a usual run.
std::string SwarmText(const RunResult& result) {
  if (!result.Key.Options.IsSwarm) return {};
  std::string text = result.LeftOut.empty() ? "all kinds" : "left out";
  const char* separator = ": ";
  for (const std::string& kind : result.LeftOut) text += std::exchange(separator, ", ") + kind;
  separator = "; ";
  for (const auto& [parameter, value] : result.Parameters) {
    text += std::exchange(separator, ", ") + parameter + " " + std::to_string(value);
  }
  return text;
}

void PrintText(const RunResult& result, const SimulateCommand& command) {
  const bool isFailed = result.Outcome == Verdict::Failed;
  if (command.ShowsTrace) std::fputs(result.Trace.c_str(), stdout);
  if (isFailed || !command.IsQuiet) {
    std::printf("%-33s seed %-7llu", result.Key.Scenario.c_str(),
                static_cast<unsigned long long>(result.Key.Seed));
    if (result.Key.Step != 0) {
      std::printf(" step %-5llu", static_cast<unsigned long long>(result.Key.Step));
    }
    std::printf(" schedule %-7llu hash %s%s%s  %s\n",
                static_cast<unsigned long long>(result.ScheduleLength), Hex(result.Hash).c_str(),
                ToString(result.Key.Options).c_str(), ToString(result.Key.Reseedings).c_str(),
                VerdictText(result).c_str());
  }
  const std::string swarm = SwarmText(result);
  if (!swarm.empty() && (isFailed || !command.IsQuiet)) std::printf("  %s\n", swarm.c_str());
  if (!isFailed) return;
  std::printf("  %s\n  replay: %s\n", result.What.c_str(),
              WholeReplayCommand(result, command).c_str());
  if (command.ShowsTrace) std::fputs(result.Report.c_str(), stdout);
}

void PrintJson(const RunResult& result, const SimulateCommand& command) {
  nlohmann::json json{{"scenario", result.Key.Scenario},
                      {"seed", result.Key.Seed},
                      {"schedule", result.ScheduleLength},
                      {"hash", Hex(result.Hash)},
                      {"verdict", std::string(ToString(result.Outcome))},
                      {"virtualSeconds", base::SecondsOfUnits(result.Time)},
                      {"frames", result.Counts.Frames},
                      {"disturbedFrames", result.Counts.Disturbed},
                      {"recoveries", result.Counts.Recoveries}};
  if (result.Key.Step != 0) json["step"] = result.Key.Step;
  for (const scenarios::Reseeding& each : result.Key.Reseedings) {
    json["reseedings"].push_back({each.Point, each.Seed});
  }
  if (result.Key.Options.HasPoints) json["points"] = true;
  if (result.Key.Options.HasStalls) json["stalls"] = true;
  if (result.Key.Options.HasExposure) json["exposure"] = true;
  if (result.Key.Options.IsSwarm) {
    json["leftOut"] = result.LeftOut;
    json["parameters"] = result.Parameters;
  }
  json["scheduler"] = std::string(host::ToString(result.Key.Options.Scheduler));
  if (!result.Hang.empty()) json["hang"] = std::string(result.Hang);
  if (result.Outcome == Verdict::Failed) {
    json["what"] = result.What;
    json["replay"] = WholeReplayCommand(result, command);
  }
  std::printf("%s\n", JsonText(json, -1).c_str());
}

void Print(const RunResult& result, const SimulateCommand& command) {
  if (!command.IsJson) {
    PrintText(result, command);
  } else if (!command.IsQuiet || result.Outcome == Verdict::Failed) {
    PrintJson(result, command);
  }
  RequireStandardOutput();
}

void PrintList() {
  std::printf("scenarios\n");
  for (const Scenario& scenario : scenarios::Scenarios()) {
    std::printf("  %-33s %s%s\n", std::string(scenario.Name).c_str(),
                std::string(scenario.Purpose).c_str(), scenario.HasSteps ? " (--step N)" : "");
  }
  std::printf("stated hangs\n");
  for (const scenarios::StatedHang& hang : scenarios::StatedHangs()) {
    std::printf("  %-33s %s\n", std::string(hang.Name).c_str(), std::string(hang.Cause).c_str());
  }
}

std::string OptionsText(const SimulateCommand& command) {
  std::string text = "--scenario " + command.ScenarioName;
  if (command.Branches) text += " --guided " + std::to_string(*command.Branches);
  if (command.IsMixed) return text + " --mix" + (command.Options.IsSwarm ? " --swarm" : "");
  if (command.Step) text += " --step " + std::to_string(*command.Step);
  if (command.HasAllSteps) text += " --every-step";
  return text + ToString(command.Options) + " --scheduler " + command.Scheduler;
}

void PrintTally(const Tally& tally, const SeedRange& seeds, const SimulateCommand& command) {
  const double seconds = tally.Seconds();
  const double rate = seconds > 0 ? static_cast<double>(tally.Runs) / seconds : 0;
  if (command.IsJson) {
    nlohmann::json json{{"firstSeed", seeds.First},
                        {"interrupted", IsInterrupted()},
                        {"lastSeed", seeds.Last},
                        {"options", OptionsText(command)},
                        {"runs", tally.Runs},
                        {"failed", tally.Failures},
                        {"statedHangs", tally.Hangs},
                        {"cutShort", tally.CutShort},
                        {"frames", tally.Frames},
                        {"disturbedFrames", tally.Disturbed},
                        {"recoveries", tally.Recoveries},
                        {"seconds", seconds},
                        {"runsPerSecond", rate}};
    if (testbed::IsDriverOfImage()) json["deepestDriverStack"] = testbed::DeepestStackOfImage();
    std::printf("%s\n", JsonText(json, -1).c_str());
    return;
  }
  std::printf(
      "%llu runs, %llu failed, %llu stated hangs, %llu cut short, %llu frames whole, %llu "
      "disturbed, "
      "%llu recoveries; %.1f s, %.0f runs a second\n",
      static_cast<unsigned long long>(tally.Runs), static_cast<unsigned long long>(tally.Failures),
      static_cast<unsigned long long>(tally.Hangs), static_cast<unsigned long long>(tally.CutShort),
      static_cast<unsigned long long>(tally.Frames),
      static_cast<unsigned long long>(tally.Disturbed),
      static_cast<unsigned long long>(tally.Recoveries), seconds, rate);
  if (testbed::IsDriverOfImage()) {
    std::printf("the driver's deepest stack: %zu bytes\n", testbed::DeepestStackOfImage());
    std::printf("the driver's image: %s\n", testbed::DriverImage()->IsOfCatalogue()
                                                ? "the one of its catalogue"
                                                : "has no catalogue beside it");
  }
}

constexpr std::array kSchedulers{host::SchedulerKind::Walk, host::SchedulerKind::Burst,
                                 host::SchedulerKind::Priorities};

host::SchedulerKind SchedulerOf(const SimulateCommand& command, std::uint64_t seed) {
  const auto named =
      std::ranges::find(kSchedulers, command.Scheduler,
                        [](host::SchedulerKind kind) { return host::ToString(kind); });
  return named != kSchedulers.end() ? *named : kSchedulers[seed % kSchedulers.size()];
}

// A quarter of the seeds is played as without options. The others have a third each of the schedulers.
scenarios::RunOptions OptionsOf(const SimulateCommand& command, std::uint64_t seed) {
  if (!command.IsMixed) {
    scenarios::RunOptions options = command.Options;
    options.Scheduler = SchedulerOf(command, seed);
    return options;
  }
  constexpr std::array kMix{
      scenarios::RunOptions{.HasPoints = true, .HasStalls = true, .HasExposure = true},
      scenarios::RunOptions{},
      scenarios::RunOptions{.HasPoints = true},
      scenarios::RunOptions{.HasPoints = true, .HasExposure = true},
  };
  scenarios::RunOptions options = kMix[seed % kMix.size()];
  options.IsSwarm = command.Options.IsSwarm;
  if (options.HasPoints) options.Scheduler = kSchedulers[seed % kSchedulers.size()];
  return options;
}

// The same run with the driver of this program.
RunResult RunCompiled(const Scenario& scenario, const RunKey& key, bool keepsTrace) {
  const auto image = testbed::DriverImage();
  testbed::InstallDriverOf(nullptr);
  RunResult result = scenarios::RunScenario(scenario, key, {.KeepsTrace = keepsTrace});
  testbed::InstallDriverOf(image);
  return result;
}

// Plays the run with both drivers. A difference is a failure of the image's.
RunResult RunSideBySide(const Scenario& scenario, const RunKey& key, bool keepsTrace) {
  const RunResult compiled = RunCompiled(scenario, key, keepsTrace);
  RunResult loaded = scenarios::RunScenario(scenario, key, {.KeepsTrace = keepsTrace});
  if (compiled.Hash == loaded.Hash && compiled.What == loaded.What &&
      compiled.Counts == loaded.Counts) {
    return loaded;
  }
  if (keepsTrace) std::fputs(compiled.Trace.c_str(), stdout);
  loaded.Outcome = Verdict::Failed;
  loaded.What = "the image differs from the compiled driver: hash " + Hex(loaded.Hash) + ", not " +
                Hex(compiled.Hash) + "; schedule " + std::to_string(loaded.ScheduleLength) +
                ", not " + std::to_string(compiled.ScheduleLength);
  return loaded;
}

void Play(const Scenario& scenario, std::uint64_t seed, const SimulateCommand& command,
          Tally& tally, scenarios::Guide* guide) {
  scenarios::RunOptions options = OptionsOf(command, seed);
  options.IsSideBySide = command.IsSideBySide;
  const auto take = [&](const RunResult& result) {
    tally.Add(result);
    Print(result, command);
    return !IsInterrupted();
  };
  if (command.HasAllSteps && scenario.HasSteps) {
    scenarios::RunAllSteps(scenario, seed, options, take);
  } else {
    const RunKey key{std::string(scenario.Name), seed, command.Step.value_or(0), options,
                     ParseReseedings(command.Reseedings)};
    if (guide != nullptr) return guide->Play(scenario, key, take);
    take(command.IsSideBySide
             ? RunSideBySide(scenario, key, command.ShowsTrace)
             : scenarios::RunScenario(scenario, key, {.KeepsTrace = command.ShowsTrace}));
  }
}

// Only the switches of threads that the failure needs.
void RunMinimized(const Scenario& scenario, const RunKey& key, const SimulateCommand& command) {
  const scenarios::MinimizedRun found =
      scenarios::Minimize(scenario, key, [](std::size_t) { return !IsInterrupted(); });
  if (found.Result.Outcome != Verdict::Failed) {
    throw CommandError(scenarios::ReplayCommand(key) +
                       (found.Runs == 1 ? " does not fail: there is nothing to minimise"
                                        : " does not fail by its switches of threads alone"));
  }
  if (command.ShowsTrace) std::fputs(found.Result.Trace.c_str(), stdout);
  std::printf(
      "%s\n  %zu of %zu deviations from \"a thread continues until it waits, then the lowest "
      "number runs\"%s, "
      "after %llu runs:\n",
      found.Result.What.c_str(), found.Schedule.Deviations.size(), found.Before,
      found.IsMinimal ? "" : " (interrupted)", static_cast<unsigned long long>(found.Runs));
  for (const std::string& text : found.Schedule.Texts) std::printf("  %s\n", text.c_str());
  std::printf("  %zu of %zu faults, stalls and operations:\n", found.Parts.size(),
              found.PartsBefore);
  for (const std::string& part : found.Parts) std::printf("  %s\n", part.c_str());
  if (command.ShowsTrace) std::fputs(found.Result.Report.c_str(), stdout);
  RequireStandardOutput();
}

// A run's memory serves the next one. The system would give fresh pages, whose faults take longer than what is done
// with some of them.
void KeepFreedMemory() {
#ifdef __GLIBC__
  constexpr int kMebibyte = 1 << 20;
  mallopt(M_TRIM_THRESHOLD, 256 * kMebibyte);
  mallopt(M_MMAP_THRESHOLD, 32 * kMebibyte);
#endif
}

void Run(const SimulateCommand& command) {
  if (command.IsList) {
    PrintList();
    return;
  }
  SeedRange seeds;
  if (!command.Seeds.empty()) seeds = ParseSeeds(command.Seeds);
  if (command.Seed) seeds = {*command.Seed, *command.Seed};
  const auto scenarios = ChosenScenarios(command.ScenarioName);
  if ((command.Step || command.HasAllSteps) &&
      std::ranges::none_of(scenarios, &Scenario::HasSteps)) {
    throw UsageError("--scenario " + command.ScenarioName + " has no steps");
  }
  const bool isOneRun = scenarios.size() == 1 && seeds.First == seeds.Last;
  if (!command.Reseedings.empty() && !isOneRun) {
    throw UsageError("--reseed is for one run: --scenario NAME --seed N");
  }
  if (command.Branches && !scenarios::Guide::IsPossible()) {
    throw CommandError(
        "--guided: this program's simulations have a machine thread for each of theirs, and can't "
        "fork");
  }
  if (command.IsMinimized) {
    if (!isOneRun) {
      throw UsageError("--minimize is for one run: --scenario NAME --seed N");
    }
    const RunKey key{command.ScenarioName, seeds.First, command.Step.value_or(0),
                     OptionsOf(command, seeds.First), ParseReseedings(command.Reseedings)};
    return RunMinimized(*scenarios.front(), key, command);
  }
  host::SetPoolGuardPages(command.HasGuardPages);
  std::optional<scenarios::Guide> guide;
  if (command.Branches) guide.emplace(*command.Branches);
  KeepFreedMemory();
  Tally tally;
  for (std::uint64_t seed = seeds.First; seed <= seeds.Last && !IsInterrupted(); ++seed) {
    for (const Scenario* const scenario : scenarios) {
      Play(*scenario, seed, command, tally, guide ? &*guide : nullptr);
    }
  }
  PrintTally(tally, seeds, command);
  if (tally.Failures != 0) {
    throw CommandError(std::to_string(tally.Failures) + " of " + std::to_string(tally.Runs) +
                       " runs failed; each can be played again by the command below it");
  }
  if (IsInterrupted()) {
    throw CommandError(InterruptText() + " after " + std::to_string(tally.Runs) + " runs");
  }
}

}  // namespace

void AddSimulateCommand(CLI::App& app) {
  const auto command = std::make_shared<SimulateCommand>();
  CLI::App* const sub = app.add_subcommand(
      "simulate",
      "the driver in virtual time, under random schedules and faults that a seed determines");
  sub->add_option("--scenario", command->ScenarioName, "which scenario, or all")->type_name("NAME");
  CLI::Option* const seeds =
      sub->add_option("--seeds", command->Seeds, "play these seeds, such as 1..1000")
          ->type_name("A..B");
  sub->add_option("--seed", command->Seed, "play this seed; 1 if none is given")
      ->check(WholeNumberFrom(0))
      ->type_name("N")
      ->excludes(seeds);
  CLI::Option* const step = sub->add_option("--step", command->Step,
                                            "which call is to fail, instead of the seed's choice")
                                ->check(WholeNumberFrom(1))
                                ->type_name("N");
  sub->add_flag("--every-step", command->HasAllSteps, "step 1, 2, 3 ... as far as there are calls")
      ->excludes(step);
  sub->add_flag("--points", command->Options.HasPoints,
                "threads may be switched between two kernel calls, too: at fields that they share");
  sub->add_flag("--stalls", command->Options.HasStalls,
                "threads stand still for a while, up to some seconds, while time goes on");
  sub->add_flag(
      "--exposure", command->Options.HasExposure,
      "the exposure loop runs: settings, changing light, control requests that take time");
  sub->add_option("--scheduler", command->Scheduler,
                  "how the next thread is chosen: at random, by priorities that last for a while, "
                  "by a priority for "
                  "each operation; mix: seed by seed one of these")
      ->check(CLI::IsMember(std::vector<std::string>{"walk", "burst", "priorities", "mix"}))
      ->type_name("walk|burst|priorities|mix");
  sub->add_flag("--mix", command->IsMixed,
                "seed by seed with none, some or all of these three, and with each scheduler")
      ->excludes("--points", "--stalls", "--exposure", "--scheduler");
  sub->add_flag("--swarm", command->Options.IsSwarm,
                "each seed leaves out some kinds of fault and operation, and draws its parameters: "
                "light, settings, times, sizes, number of applications");
  AddDriverOption(*sub);
  CLI::Option* const guided =
      sub->add_option(
             "--guided", command->Branches,
             "branch each run up to N times, where a switch point is reached in a state of the "
             "driver for the first time: the branch goes on with other random numbers")
          ->check(CLI::Range(1, 10'000))
          ->type_name("N")
          ->excludes("--every-step", "--driver");
  sub->add_option("--reseed", command->Reseedings,
                  "go on with other random numbers from these switch points on: repeats a branch")
      ->type_name("POINT:SEED,...")
      ->excludes("--every-step", guided);
  sub->add_flag(
         "--side-by-side", command->IsSideBySide,
         "with --driver: play each run with the program's own driver, too; requests, statuses, "
         "messages and frames have to be the same")
      ->needs("--driver")
      ->excludes("--points", "--guided");
  sub->add_flag("--guard-pages", command->HasGuardPages,
                "each block of the pool ends at a page that is not accessible, and freed ones are "
                "not; the driver of an image stops at the instruction that accesses one");
  sub->add_flag("--list", command->IsList,
                "list the scenarios, and the hangs that are no failures");
  sub->add_flag("--json", command->IsJson, "one JSON object a run");
  sub->add_flag("--trace", command->ShowsTrace, "print the trace of each run, and reports in full");
  sub->add_flag("--quiet", command->IsQuiet, "print failures and the sum only");
  sub->add_flag("--minimize", command->IsMinimized,
                "print only those switches of threads, faults and operations that the failure of a "
                "run needs")
      ->excludes("--every-step", "--json", "--quiet", "--guided");
  sub->footer(
      "Example:\n"
      "  lidcam simulate --seeds 1..100 --scenario urb-errors");
  sub->callback([command] { Run(*command); });
}

}  // namespace lidcam::app
