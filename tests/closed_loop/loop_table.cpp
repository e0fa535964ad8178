#include "tests/closed_loop/loop_table.h"

#include <algorithm>
#include <cstdio>

#include "tests/closed_loop/closed_loop.h"
#include "tests/driver/support/shared_exposure.h"

namespace lidcam::app {
namespace {

// Thirds of a decade, rounded to two digits: 1, 2, 5 would be uneven.
constexpr std::array kLux = {0.46,  1.0,   2.2,   4.6,    10.0,   22.0,  46.0,
                             100.0, 220.0, 460.0, 1000.0, 2200.0, 4600.0};

bool IsMove(const FrameRow& before, const FrameRow& row) {
  return row.Events.Steps != 0 || row.State != before.State;
}

// Why a loop takes no step.
Rest RestOf(const FrameRow& row) {
  constexpr std::uint32_t kDarkestGood = 80;
  constexpr std::uint32_t kBrightestGood = 96;
  if (row.Luma < kDarkestGood) return Rest::AtTheTop;
  return row.Luma > kBrightestGood ? Rest::AtTheBottom : Rest::InDeadBand;
}

// The first frame after the last step before a complete rest.
std::optional<std::size_t> FindRest(const std::vector<FrameRow>& rows) {
  std::size_t begin = rows[0].Events.Steps != 0 ? 1 : 0;
  for (std::size_t i = 1; i < rows.size(); ++i) {
    if (IsMove(rows[i - 1], rows[i])) begin = i + 1;
    if (i + 1 >= begin + kFramesOfRest) return begin;
  }
  return std::nullopt;
}

void Watch(const std::vector<FrameRow>& rows, std::size_t begin, LoopOutcome& outcome) {
  outcome.LowestIndex = outcome.HighestIndex = rows[begin].Index;
  outcome.LowestLuma = outcome.HighestLuma = rows[begin].Luma;
  for (std::size_t i = begin; i < begin + kWatchedFrames; ++i) {
    const FrameRow& row = rows[i];
    if (i > begin) {
      outcome.Steps += row.Events.Steps;
      outcome.Transitions += row.State != rows[i - 1].State ? 1U : 0U;
    }
    outcome.LowestIndex = std::min(outcome.LowestIndex, row.Index);
    outcome.HighestIndex = std::max(outcome.HighestIndex, row.Index);
    outcome.LowestLuma = std::min(outcome.LowestLuma, row.Luma);
    outcome.HighestLuma = std::max(outcome.HighestLuma, row.Luma);
    if (std::ranges::find(outcome.States, row.State) == outcome.States.end()) {
      outcome.States.push_back(row.State);
    }
  }
}

const char* TextOf(Rest rest) {
  switch (rest) {
    case Rest::InDeadBand:
      return "in band";
    case Rest::AtTheBottom:
      return "too bright";
    case Rest::AtTheTop:
      return "too dark";
    case Rest::None:
      break;
  }
  return "-";
}

// A loop with rare steps has constant registers in between; one that changes its state does not.
const char* VerdictOn(const LoopOutcome& outcome) {
  if (outcome.Transitions != 0) return "swings";
  return outcome.Steps != 0 ? "steps" : "stays";
}

std::string Range(std::int64_t low, std::int64_t high) {
  return std::to_string(low) + (low == high ? "" : ".." + std::to_string(high));
}

}  // namespace

std::vector<LoopCase> AllLoopCases() {
  std::vector<LoopCase> cases;
  for (const unsigned hertz : {50U, 60U}) {
    for (const double lux : kLux) {
      for (const std::int32_t index : {0, 30, 80}) cases.push_back({lux, hertz, index});
    }
  }
  return cases;
}

LoopOutcome RunLoopCase(const LoopCase& loopCase) {
  const LoopEnvironment environment;
  test::ResetSharedExposure();
  ClosedLoop loop({.Light = {{0, loopCase.Lux}},
                   .MainsHertz = loopCase.MainsHertz,
                   .Flicker = MatchingFlicker(loopCase.MainsHertz),
                   .StartIndex = loopCase.StartIndex});
  LoopOutcome outcome;
  std::optional<std::size_t> rest;
  while (!rest && loop.Rows().size() < kLongestWait) {
    loop.RunFrames(kFramesOfRest / 2);
    rest = FindRest(loop.Rows());
  }
  const std::size_t begin = rest.value_or(kLongestWait);
  loop.RunFrames(begin + kWatchedFrames - std::min(begin + kWatchedFrames, loop.Rows().size()));
  if (rest) {
    outcome.AtRest = loop.Rows()[begin + kFramesOfRest - 1];
    outcome.How = RestOf(outcome.AtRest);
    outcome.StandsAt = begin + 1;
  }
  Watch(loop.Rows(), begin, outcome);
  return outcome;
}

std::string LoopTableHeading() {
  return "                        first rest                              the 600 frames from "
         "there "
         "on\n"
         "    lux mains from  frame  luminance      index exp state     verdict steps trans. "
         "index   luminance states\n";
}

std::string LoopTableLine(const LoopCase& loopCase, const LoopOutcome& outcome) {
  std::array<char, 200> text{};
  std::string rest = "     -          -          -   - -       ";
  if (outcome.How != Rest::None) {
    std::snprintf(text.data(), text.size(), "%6zu %3u %-10s %6d %3u %-8s", outcome.StandsAt,
                  outcome.AtRest.Luma, TextOf(outcome.How), outcome.AtRest.Index,
                  outcome.AtRest.Exposure,
                  std::string(LightStateName(outcome.AtRest.State)).c_str());
    rest = text.data();
  }
  std::string states;
  for (const std::uint32_t state : outcome.States) {
    states += (states.empty() ? "" : " ") + std::string(LightStateName(state));
  }
  std::snprintf(text.data(), text.size(), "%7g %2u Hz %4d %s  %-7s %5u %6u %-7s %-9s %s",
                loopCase.Lux, loopCase.MainsHertz, loopCase.StartIndex, rest.c_str(),
                VerdictOn(outcome), outcome.Steps, outcome.Transitions,
                Range(outcome.LowestIndex, outcome.HighestIndex).c_str(),
                Range(outcome.LowestLuma, outcome.HighestLuma).c_str(), states.c_str());
  return std::string(text.data()) + "\n";
}

}  // namespace lidcam::app
