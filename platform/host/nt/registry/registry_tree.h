#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace lidcam::host {

/// The data of a value: a type number of the platform and bytes, which may not fit the type.
struct RegistryValue {
  std::uint32_t Type = 0;
  std::vector<std::uint8_t> Data;

  bool operator==(const RegistryValue&) const = default;
};

/// Types of values with a notation of their own in the exchange format.
inline constexpr std::uint32_t kRegistryString = 1;
inline constexpr std::uint32_t kRegistryBinary = 3;
inline constexpr std::uint32_t kRegistryDword = 4;

/// Orders names and paths by the registry's rules: upper and lower case are equal (for the Latin,
/// Greek and Cyrillic letters), and subkeys follow their key directly.
struct RegistryNameLess {
  using is_transparent = void;
  bool operator()(std::u16string_view left, std::u16string_view right) const;
};

using RegistryValues = std::map<std::u16string, RegistryValue, RegistryNameLess>;

/// Keys and their values by full path, root first, components separated by backslashes:
/// HKEY_LOCAL_MACHINE\System\... Names keep the spelling they were first written with.
class RegistryTree {
 public:
  using KeyMap = std::map<std::u16string, RegistryValues, RegistryNameLess>;

  [[nodiscard]] bool HasKey(std::u16string_view path) const { return keys_.contains(path); }
  [[nodiscard]] const RegistryValue* FindValue(std::u16string_view path,
                                               std::u16string_view name) const;
  [[nodiscard]] const KeyMap& Keys() const { return keys_; }

  /// Creates the key and all above it. True if the tree changed.
  bool CreateKey(std::u16string_view path);

  /// Stores a value, creating its key. True if the tree changed.
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

/// Whether two names are equal to the registry.
[[nodiscard]] bool SameRegistryName(std::u16string_view left, std::u16string_view right);

}  // namespace lidcam::host
