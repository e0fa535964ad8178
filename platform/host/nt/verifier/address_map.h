#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <utility>

namespace lidcam::host {

/// Records of the verifier by their object's address, in order. Each kernel call looks for its object: those
/// found last are found again without a search.
template <typename Record>
class AddressMap {
 public:
  using Address = const char*;
  using Map = std::map<Address, Record, std::less<>>;
  using Iterator = typename Map::iterator;

  /// @return null if there is none
  [[nodiscard]] Record* Find(const void* address) {
    Recent& recent = RecentOf(address);
    if (recent.Object == address) return recent.Found;
    const auto found = records_.find(static_cast<Address>(address));
    if (found == records_.end()) return nullptr;
    recent = {address, &found->second};
    return recent.Found;
  }

  /// The address's record, new if there was none.
  Record& At(const void* address) { return records_[static_cast<Address>(address)]; }

  /// The first at the address or above.
  [[nodiscard]] Iterator From(const void* address) {
    return records_.lower_bound(static_cast<Address>(address));
  }

  Iterator Erase(Iterator record) {
    Recent& recent = RecentOf(record->first);
    if (recent.Object == record->first) recent = {};
    return records_.erase(record);
  }

  /// @return whether there was a record
  bool Erase(const void* address) {
    const auto found = records_.find(static_cast<Address>(address));
    if (found == records_.end()) return false;
    Erase(found);
    return true;
  }

  template <typename Condition>
  void EraseIf(Condition condition) {
    for (auto record = records_.begin(); record != records_.end();) {
      record = condition(record->second) ? Erase(record) : std::next(record);
    }
  }

  [[nodiscard]] Iterator begin() { return records_.begin(); }
  [[nodiscard]] Iterator end() { return records_.end(); }

 private:
  struct Recent {
    const void* Object = nullptr;
    Record* Found = nullptr;
  };

  // Objects are at least eight bytes apart.
  Recent& RecentOf(const void* address) {
    constexpr std::uint64_t kMix = 0x9E3779B97F4A7C15;
    return recent_[(reinterpret_cast<std::uintptr_t>(address) / 8 * kMix) >> 56U];
  }

  Map records_;
  std::array<Recent, 256> recent_{};
};

}  // namespace lidcam::host
