#include "platform/host/nt/simulation/trace_hash.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <string_view>

#include "base/fnv_hash.h"

namespace lidcam::host {
namespace {

constexpr std::size_t kLowBytes = 256;

// The effect of a name on a hash. A byte changes only the lowest byte of the hash before the multiplication, and
// how depends on that byte alone: the rest of the hash is only multiplied, by the prime's power. So a name is one
// multiplication and one addition, which depends on the lowest byte.
class NameEffect {
 public:
  explicit NameEffect(const char* name) : name_(name) {
    for (const char* letter = name; *letter != '\0'; ++letter) factor_ *= base::kFnvPrime;
    for (std::size_t low = 0; low < kLowBytes; ++low) {
      addends_[low] = base::FnvHash(low, std::string_view(name)) - low * factor_;
    }
  }

  [[nodiscard]] const char* Name() const { return name_; }
  [[nodiscard]] std::uint64_t On(std::uint64_t hash) const {
    return hash * factor_ + addends_[hash % kLowBytes];
  }

 private:
  const char* const name_;
  std::uint64_t factor_ = 1;
  std::array<std::uint64_t, kLowBytes> addends_{};
};

// By the name's address, in the first free place from its own on. Nothing is ever removed.
constexpr std::size_t kPlaces = 1024;
constinit std::array<std::atomic<const NameEffect*>, kPlaces> g_effects{};

std::size_t OwnPlaceOf(const char* name) {
  constexpr std::uint64_t kMix = 0x9E3779B97F4A7C15;
  return (reinterpret_cast<std::uintptr_t>(name) * kMix) >> 54U;
}

// Null if there is no place left.
[[gnu::cold]] const NameEffect* FindOrMake(const char* name) {
  for (std::size_t i = 0; i < kPlaces; ++i) {
    std::atomic<const NameEffect*>& place = g_effects[(OwnPlaceOf(name) + i) % kPlaces];
    const NameEffect* effect = place.load(std::memory_order_acquire);
    if (effect == nullptr) {
      auto made = std::make_unique<NameEffect>(name);
      if (place.compare_exchange_strong(effect, made.get())) return made.release();
    }
    if (effect->Name() == name) return effect;
  }
  return nullptr;
}

[[gnu::cold]] std::uint64_t HashWithSearch(std::uint64_t hash, const char* name) {
  const NameEffect* const effect = FindOrMake(name);
  return effect != nullptr ? effect->On(hash) : base::FnvHash(hash, std::string_view(name));
}

}  // namespace

void TraceHash::Add(std::uint32_t thread, const char* call) {
  const std::uint64_t hash = base::FnvHash(value_, static_cast<unsigned char>(thread & 0xFF));
  const NameEffect* const first = g_effects[OwnPlaceOf(call)].load(std::memory_order_acquire);
  value_ = first != nullptr && first->Name() == call ? first->On(hash) : HashWithSearch(hash, call);
}

}  // namespace lidcam::host
