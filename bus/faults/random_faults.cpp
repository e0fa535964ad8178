#include "bus/faults/random_faults.h"

#include <algorithm>
#include <tuple>

#include "base/split_mix.h"
#include "bus/faults/fault_agenda.h"

namespace lidcam::bus {
namespace {

constexpr std::uint64_t kMillisecond = 1'000;
constexpr std::uint64_t kSecond = 1'000'000;
constexpr std::uint64_t kTimeOfOneFault = 250 * kMillisecond;
constexpr std::uint64_t kMostRandomFaults = 10'000;
// Starting a camera takes some hundred requests; exposure control about fifty per second.
constexpr std::uint64_t kRequestsAtStart = 300;
constexpr std::uint64_t kRequestsInOneSecond = 50;
constexpr std::uint64_t kHighestRandomSetting = 7;

/// The limits of a fault that a seed may choose; `Weight` is its share among the rows.
struct Choice {
  RandomFaultMix Mix;
  FaultPlace Place;
  FaultKind Kind;
  std::uint32_t Weight;
  std::uint64_t LowestAmount, HighestAmount;
  std::uint64_t HighestCount;
};

constexpr Choice kChoices[] = {
    {RandomFaultMix::Packets, FaultPlace::Time, FaultKind::Lose, 6, 0, 0, 40},
    {RandomFaultMix::Packets, FaultPlace::Time, FaultKind::Short, 4, 0, 0, 10},
    {RandomFaultMix::Packets, FaultPlace::Time, FaultKind::Oversize, 3, 0, 0, 4},
    {RandomFaultMix::Packets, FaultPlace::Time, FaultKind::Corrupt, 6, 0, 0, 10},
    {RandomFaultMix::Packets, FaultPlace::Time, FaultKind::Marker, 4, 0, 0, 4},
    {RandomFaultMix::Packets, FaultPlace::Time, FaultKind::FalseStart, 4, 0, 0, 4},
    {RandomFaultMix::Packets, FaultPlace::Time, FaultKind::Error, 6, 0, 0, 40},
    {RandomFaultMix::Packets, FaultPlace::Time, FaultKind::Fail, 3, 0, 0, 3},
    {RandomFaultMix::Packets, FaultPlace::Time, FaultKind::Silence, 2, kMillisecond,
     600 * kMillisecond, 1},

    {RandomFaultMix::Requests, FaultPlace::Control, FaultKind::Stall, 3, 0, 0, 3},
    {RandomFaultMix::Requests, FaultPlace::Control, FaultKind::Fail, 3, 0, 0, 3},
    {RandomFaultMix::Requests, FaultPlace::Control, FaultKind::Silent, 1, 0, 0, 1},
    {RandomFaultMix::Requests, FaultPlace::Control, FaultKind::Late, 3, kMillisecond,
     300 * kMillisecond, 2},
    {RandomFaultMix::Requests, FaultPlace::Control, FaultKind::Late, 1, 4 * kSecond, 6 * kSecond,
     1},
    {RandomFaultMix::Requests, FaultPlace::Control, FaultKind::Short, 2, 0, 17, 2},
    {RandomFaultMix::Requests, FaultPlace::Control, FaultKind::Corrupt, 3, 0, 0, 2},
    {RandomFaultMix::Requests, FaultPlace::Setting, FaultKind::Refuse, 2, 0, 0, 2},
    {RandomFaultMix::Requests, FaultPlace::Setting, FaultKind::Stall, 1, 0, 0, 1},
    {RandomFaultMix::Requests, FaultPlace::Setting, FaultKind::Fail, 1, 0, 0, 1},
    {RandomFaultMix::Requests, FaultPlace::Setting, FaultKind::Late, 1, kMillisecond,
     300 * kMillisecond, 2},

    {RandomFaultMix::Everything, FaultPlace::Time, FaultKind::Silent, 2, 0, 0, 2},
    {RandomFaultMix::Everything, FaultPlace::Control, FaultKind::Silent, 1, 0, 0, 2},
};

const Choice& Draw(base::SplitMix& random, RandomFaultMix mix) {
  std::uint32_t weights = 0;
  for (const Choice& choice : kChoices) weights += choice.Mix <= mix ? choice.Weight : 0;
  std::uint64_t rest = random.Between(0, weights - 1);
  const Choice* chosen = kChoices;
  for (const Choice& choice : kChoices) {
    if (choice.Mix > mix) continue;
    chosen = &choice;
    if (rest < choice.Weight) break;
    rest -= choice.Weight;
  }
  return *chosen;
}

std::uint64_t DrawTime(base::SplitMix& random, std::uint64_t length) {
  return random.Between(0, length / kMicrosecondsPerMicroframe - 1) * kMicrosecondsPerMicroframe;
}

std::uint64_t DrawPlace(base::SplitMix& random, FaultPlace place, std::uint64_t length) {
  switch (place) {
    case FaultPlace::Control:
      return random.Between(1, kRequestsAtStart + length / kSecond * kRequestsInOneSecond);
    case FaultPlace::Setting:
      return random.Between(0, kHighestRandomSetting);
    case FaultPlace::Time:
    case FaultPlace::Frame:
      break;
  }
  return DrawTime(random, length);
}

// The order of the draws must not change: it determines the script of a seed.
BusFault DrawFault(base::SplitMix& random, RandomFaultMix mix, std::uint64_t length) {
  const Choice& choice = Draw(random, mix);
  BusFault fault;
  fault.Place = choice.Place;
  fault.Kind = choice.Kind;
  fault.At = DrawPlace(random, choice.Place, length);
  fault.Amount = random.Between(choice.LowestAmount, choice.HighestAmount);
  if (fault.Kind == FaultKind::Silence) fault.Amount -= fault.Amount % kMicrosecondsPerMicroframe;
  if (fault.Kind == FaultKind::Late) fault.Amount -= fault.Amount % kMillisecond;
  fault.Count = static_cast<std::uint32_t>(random.Between(1, choice.HighestCount));
  return fault;
}

}  // namespace

FaultScript RandomFaults(std::uint64_t seed, std::chrono::microseconds duration,
                         RandomFaultMix mix) {
  const auto length = static_cast<std::uint64_t>(
      std::clamp<std::chrono::microseconds::rep>(duration.count(), kMillisecond, kLatestFaultTime));
  base::SplitMix random{seed};
  FaultScript script;
  script.Bits = random.Next();
  const std::uint64_t count =
      std::clamp<std::uint64_t>(length / kTimeOfOneFault, 1, kMostRandomFaults);
  while (script.Faults.size() < count) script.Faults.push_back(DrawFault(random, mix, length));
  if (mix == RandomFaultMix::Everything && random.Between(0, 1) == 1) {
    script.Faults.push_back({FaultPlace::Time, FaultKind::Unplug, DrawTime(random, length), 0, 1});
  }
  std::stable_sort(script.Faults.begin(), script.Faults.end(),
                   [](const BusFault& first, const BusFault& second) {
                     return std::tie(first.Place, first.At) < std::tie(second.Place, second.At);
                   });
  return script;
}

}  // namespace lidcam::bus
