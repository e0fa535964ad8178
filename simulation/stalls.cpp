#include "simulation/stalls.h"

#include <algorithm>
#include <utility>

#include "platform/host/nt/thread.h"

namespace lidcam::simulation {
namespace {

constexpr std::uint64_t kPurpose = 2;
constexpr std::uint64_t kMost = 3;

// Runs pass some thousands of switch points, most of them within the first.
constexpr std::uint64_t kPointsBetween[] = {1000, 5000, 20000};

// 100 ns each: less than a frame, up to a few ticks of the watchdog, and longer than a stream takes to
// be paused, released and started again.
constexpr std::uint64_t kLengths[] = {200'000, 6'000'000, 40'000'000};

}  // namespace

Stalls::Stalls(std::uint64_t seed) : chance_(seed, kPurpose) {}

void Stalls::BeginAnywhere() {
  left_ = chance_.Between(1, kMost);
  ChooseNext();
}

void Stalls::ChooseNext() {
  countdown_ = chance_.Between(1, chance_.OneOf(kPointsBetween));
}

void Stalls::PlanOne(std::function<bool(const host::Thread& thread)> isMeant, std::uint64_t point,
                     LONGLONG length) {
  isMeant_ = std::move(isMeant);
  plannedCountdown_ = point;
  plannedLength_ = length;
}

LONGLONG Stalls::LengthAnywhere() {
  if (left_ == 0 || --countdown_ != 0) return 0;
  --left_;
  ChooseNext();
  return static_cast<LONGLONG>(chance_.Between(1, chance_.OneOf(kLengths)));
}

LONGLONG Stalls::LengthAsPlanned(const host::Thread& thread) {
  if (!isMeant_ || !isMeant_(thread) || --plannedCountdown_ != 0) return 0;
  isMeant_ = nullptr;
  return plannedLength_;
}

// Thread 0 only watches the others.
LONGLONG Stalls::At(const host::SwitchPlace& place, LONGLONG now) {
  if (place.Self.Number == 0) return 0;
  const LONGLONG length = std::max(LengthAnywhere(), LengthAsPlanned(place.Self));
  if (length != 0) end_ = std::max(end_, now + length);
  return length;
}

}  // namespace lidcam::simulation
