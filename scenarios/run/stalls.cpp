#include "scenarios/run/stalls.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "platform/host/nt/scheduling/thread.h"

namespace lidcam::scenarios {
namespace {

constexpr std::uint64_t kPurpose = 2;
constexpr std::uint64_t kMost = 3;

// 100 ns each: less than a frame, up to a few ticks of the watchdog, and longer than a stream takes
// to be paused, released and started again.
constexpr std::uint64_t kLengths[] = {200'000, 6'000'000, 40'000'000};
constexpr std::string_view kKindsOfLengths[] = {"stalls of a moment", "stalls of some ticks",
                                                "stalls of seconds"};

/// A group of threads, and the number of their switch points among which one is chosen.
struct Place {
  bool (*Meant)(const host::Thread& thread);
  std::uint64_t Points;
};

bool IsAnyThread(const host::Thread&) {
  return true;
}

// Completion routines, deferred calls, and owners of a spin lock.
bool IsAtDispatchLevel(const host::Thread& thread) {
  return thread.Level == DISPATCH_LEVEL;
}

// The watchdog's ticks.
bool RunsDeferredCalls(const host::Thread& thread) {
  return thread.Name.starts_with("DPC");
}

// Recoveries.
bool RunsWorkItems(const host::Thread& thread) {
  return thread.Name.starts_with("worker");
}

constexpr Place kPlaces[] = {
    {IsAnyThread, 2'000}, {IsAnyThread, 20'000},    {IsAtDispatchLevel, 3'000},
    {RunsWorkItems, 300}, {RunsDeferredCalls, 100},
};
constexpr std::string_view kKindsOfPlaces[] = {"stalls of any thread", "stalls of any thread",
                                               "stalls at dispatch level", "stalls of work items",
                                               "stalls of deferred calls"};

}  // namespace

Stalls::Stalls(std::uint64_t seed, RunParts& parts, Swarm& swarm)
    : parts_(parts), swarm_(swarm), chance_(seed, kPurpose) {}

void Stalls::BeginAnywhere() {
  left_ = chance_.Between(0, swarm_.Value("most stalls", kMost, 1, 8) - 1);
  PlanNextAnywhere();
}

void Stalls::PlanNextAnywhere() {
  const Place place = kPlaces[swarm_.Choose(chance_, kKindsOfPlaces)];
  anywhere_ = {.Meant = place.Meant,
               .Points = chance_.Between(1, place.Points),
               .Length = static_cast<LONGLONG>(
                   chance_.Between(1, kLengths[swarm_.Choose(chance_, kKindsOfLengths)]))};
}

void Stalls::PlanOne(IsMeant isMeant, std::uint64_t point, LONGLONG length) {
  planned_ = {std::move(isMeant), point, length};
}

LONGLONG Stalls::Plan::At(const host::Thread& thread) {
  if (!Meant || !Meant(thread) || --Points != 0) return 0;
  Meant = nullptr;
  return Length;
}

// Thread 0 only watches the others.
LONGLONG Stalls::At(const host::SwitchPlace& place, LONGLONG now) {
  if (place.Self.Number == 0 || !ArePlanned()) return 0;
  const LONGLONG anywhere = anywhere_.At(place.Self);
  if (anywhere != 0 && left_ != 0) {
    --left_;
    PlanNextAnywhere();
  }
  const LONGLONG length = std::max(anywhere, planned_.At(place.Self));
  if (length == 0 || !parts_.Has("stall " + std::to_string(++begun_))) return 0;
  end_ = std::max(end_, now + length);
  return length;
}

}  // namespace lidcam::scenarios
