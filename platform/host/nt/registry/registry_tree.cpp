#include "platform/host/nt/registry/registry_tree.h"

#include <algorithm>
#include <utility>

namespace lidcam::host {
namespace {

constexpr char16_t kSeparator = u'\\';

// The capital letter of a small one: the platform's comparison, for the alphabets with a fixed
// distance between the two.
constexpr char16_t Upcase(char16_t letter) {
  const auto moved = [letter](int by) { return static_cast<char16_t>(letter - by); };
  if (letter < u'a') return letter;
  if (letter <= u'z') return moved(0x20);
  if (letter >= 0xE0 && letter <= 0xFE && letter != 0xF7) return moved(0x20);
  if (letter >= 0x3B1 && letter <= 0x3C9 && letter != 0x3C2) return moved(0x20);
  if (letter >= 0x430 && letter <= 0x44F) return moved(0x20);
  if (letter >= 0x450 && letter <= 0x45F) return moved(0x50);
  return letter;
}

// Separators sort first, so that a key's subkeys come before its neighbour with a longer name.
constexpr char16_t SortWeight(char16_t letter) {
  return letter == kSeparator ? char16_t{0} : Upcase(letter);
}

}  // namespace

// The two comparisons are the registry's inner loops: equal letters take the fast path.
bool RegistryNameLess::operator()(std::u16string_view left, std::u16string_view right) const {
  const std::size_t common = std::min(left.size(), right.size());
  for (std::size_t i = 0; i < common; ++i) {
    if (left[i] == right[i]) continue;
    const char16_t leftWeight = SortWeight(left[i]);
    const char16_t rightWeight = SortWeight(right[i]);
    if (leftWeight != rightWeight) return leftWeight < rightWeight;
  }
  return left.size() < right.size();
}

bool SameRegistryName(std::u16string_view left, std::u16string_view right) {
  if (left.size() != right.size()) return false;
  for (std::size_t i = 0; i < left.size(); ++i) {
    if (left[i] != right[i] && Upcase(left[i]) != Upcase(right[i])) return false;
  }
  return true;
}

bool IsBelowKey(std::u16string_view path, std::u16string_view key) {
  return path.size() > key.size() && path[key.size()] == kSeparator &&
         SameRegistryName(path.substr(0, key.size()), key);
}

const RegistryValue* RegistryTree::FindValue(std::u16string_view path,
                                             std::u16string_view name) const {
  const auto key = keys_.find(path);
  if (key == keys_.end()) return nullptr;
  const auto value = key->second.find(name);
  return value != key->second.end() ? &value->second : nullptr;
}

// Built up from the root with the spelling of the existing keys, so that a subkey's path always
// begins with its parent's.
bool RegistryTree::CreateKey(std::u16string_view path) {
  if (keys_.contains(path)) return false;
  std::u16string key;
  for (std::size_t start = 0; start <= path.size();) {
    const std::size_t end = std::min(path.find(kSeparator, start), path.size());
    if (start != 0) key.push_back(kSeparator);
    key += path.substr(start, end - start);
    key = keys_.try_emplace(key).first->first;
    start = end + 1;
  }
  return true;
}

bool RegistryTree::SetValue(std::u16string_view path, std::u16string_view name,
                            RegistryValue value) {
  CreateKey(path);
  RegistryValues& values = keys_.find(path)->second;
  const auto found = values.find(name);
  if (found == values.end()) {
    values.emplace(name, std::move(value));
    return true;
  }
  if (found->second == value) return false;
  found->second = std::move(value);
  return true;
}

void RegistryTree::DeleteValue(std::u16string_view path, std::u16string_view name) {
  const auto key = keys_.find(path);
  if (key == keys_.end()) return;
  const auto value = key->second.find(name);
  if (value != key->second.end()) key->second.erase(value);
}

void RegistryTree::DeleteKey(std::u16string_view path) {
  auto key = keys_.lower_bound(path);
  while (key != keys_.end() &&
         (SameRegistryName(key->first, path) || IsBelowKey(key->first, path))) {
    key = keys_.erase(key);
  }
}

}  // namespace lidcam::host
