#include "scenarios/run/swarm.h"

namespace lidcam::scenarios {
namespace {

constexpr std::uint64_t kSharePurpose = 6;
constexpr std::uint64_t kHashOfNothing = 0xCBF29CE484222325;
constexpr std::uint64_t kHashFactor = 0x100000001B3;

// Equal on every platform, and independent for each name.
Random NumbersOf(std::uint64_t seed, std::string_view name) {
  std::uint64_t hash = kHashOfNothing;
  for (const char letter : name) {
    hash = (hash ^ static_cast<unsigned char>(letter)) * kHashFactor;
  }
  return Random(seed, hash);
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
