#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <utility>
#include <vector>

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
  Record& At(const void* address) {
    if (unused_.empty()) return records_[static_cast<Address>(address)];
    unused_.back().key() = static_cast<Address>(address);
    auto placed = records_.insert(std::move(unused_.back()));
    if (placed.inserted) {
      unused_.pop_back();
    } else {
      unused_.back() = std::move(placed.node);
    }
    return placed.position->second;
  }

  /// The first at the address or above.
  [[nodiscard]] Iterator From(const void* address) {
    return records_.lower_bound(static_cast<Address>(address));
  }

  Iterator Erase(Iterator record) {
    Recent& recent = RecentOf(record->first);
    if (recent.Object == record->first) recent = {};
    const auto next = std::next(record);
    auto node = records_.extract(record);
    node.mapped() = Record{};
    if (unused_.size() < kMostUnused) unused_.push_back(std::move(node));
    return next;
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

  // Most records live shorter than an allocation would take.
  static constexpr std::size_t kMostUnused = 64;

  Map records_;
  std::vector<typename Map::node_type> unused_;
  std::array<Recent, 256> recent_{};
};

}  // namespace lidcam::host
