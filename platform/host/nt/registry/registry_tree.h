#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace lidcam::host {

/// What stands under a value's name: a type number of the platform and bytes, whatever the type.
struct RegistryValue {
  std::uint32_t Type = 0;
  std::vector<std::uint8_t> Data;

  bool operator==(const RegistryValue&) const = default;
};

/// Types of values that the exchange format has a form of its own for.
inline constexpr std::uint32_t kRegistryString = 1;
inline constexpr std::uint32_t kRegistryBinary = 3;
inline constexpr std::uint32_t kRegistryDword = 4;

/// Orders names and paths as the registry tells them apart: upper and lower case are the same (for
/// the Latin, Greek and Cyrillic letters), and what stands below a key follows it directly.
struct RegistryNameLess {
  using is_transparent = void;
  bool operator()(std::u16string_view left, std::u16string_view right) const;
};

using RegistryValues = std::map<std::u16string, RegistryValue, RegistryNameLess>;

/// Keys and their values by full path, root first, components separated by backslashes:
/// HKEY_LOCAL_MACHINE\System\... Names keep the letters they were first written with.
class RegistryTree {
 public:
  using KeyMap = std::map<std::u16string, RegistryValues, RegistryNameLess>;

  [[nodiscard]] bool HasKey(std::u16string_view path) const { return keys_.contains(path); }
  [[nodiscard]] const RegistryValue* FindValue(std::u16string_view path,
                                               std::u16string_view name) const;
  [[nodiscard]] const KeyMap& Keys() const { return keys_; }

  /// Makes the key and all above it. True if the tree changed.
  bool CreateKey(std::u16string_view path);

  /// Stores a value, making its key. True if the tree changed.
  bool SetValue(std::u16string_view path, std::u16string_view name, RegistryValue value);

  void DeleteValue(std::u16string_view path, std::u16string_view name);

  /// Removes the key and all below it.
  void DeleteKey(std::u16string_view path);

  bool operator==(const RegistryTree&) const = default;

 private:
  KeyMap keys_;
};

/// Whether `path` is below `key`, at any depth.
[[nodiscard]] bool IsBelowKey(std::u16string_view path, std::u16string_view key);

/// Whether two names mean the same to the registry.
[[nodiscard]] bool SameRegistryName(std::u16string_view left, std::u16string_view right);

}  // namespace lidcam::host
