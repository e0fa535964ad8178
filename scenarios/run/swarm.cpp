#include "scenarios/run/swarm.h"

#include "base/fnv_hash.h"

namespace lidcam::scenarios {
namespace {

constexpr std::uint64_t kSharePurpose = 6;

// Equal on every platform, and independent for each name.
Random NumbersOf(std::uint64_t seed, std::string_view name) {
  return Random(seed, base::FnvHash(base::kFnvOffset, name));
}

}  // namespace

Swarm::Swarm(std::uint64_t seed)
    : seed_(seed), quartersLeftOut_(Random(seed, kSharePurpose).Below(4)) {}

bool Swarm::Has(std::string_view kind) {
  if (!seed_ || NumbersOf(*seed_, kind).Below(4) >= quartersLeftOut_) return true;
  leftOut_.emplace(kind);
  return false;
}

std::uint64_t Swarm::Value(std::string_view parameter, std::uint64_t usual, std::uint64_t first,
                           std::uint64_t last) {
  if (!seed_) return usual;
  Random numbers = NumbersOf(*seed_, parameter);
  const std::uint64_t value = numbers.OneIn(4) ? usual : numbers.Between(first, last);
  parameters_.insert_or_assign(std::string(parameter), value);
  return value;
}

}  // namespace lidcam::scenarios
