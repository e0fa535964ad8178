#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/host/nt/registry/registry_tree.h"

namespace lidcam::test {

/// A folder for a registry file, removed with the object.
class RegistryFolder {
 public:
  RegistryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "lidcam-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) ADD_FAILURE() << "no folder at " << pattern;
    folder_ = pattern;
  }
  RegistryFolder(const RegistryFolder&) = delete;
  RegistryFolder& operator=(const RegistryFolder&) = delete;
  ~RegistryFolder() { std::filesystem::remove_all(folder_); }

  [[nodiscard]] std::string File() const { return (folder_ / "registry.reg").string(); }
  [[nodiscard]] std::string Aside(int number) const {
    return File() + ".damaged-" + std::to_string(number);
  }

 private:
  std::filesystem::path folder_;
};

inline std::string ReadBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteBytes(const std::string& path, std::string_view bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

/// A value of type 4, as in the registry.
inline host::RegistryValue Dword(std::uint32_t number) {
  host::RegistryValue value{4, {}};
  for (int i = 0; i < 4; ++i) value.Data.push_back(static_cast<std::uint8_t>(number >> (8 * i)));
  return value;
}

/// A counted string with its own characters.
class CountedString {
 public:
  explicit CountedString(std::u16string_view text) : text_(text) {
    const auto bytes = static_cast<USHORT>(text.size() * sizeof(WCHAR));
    string_ = {bytes, bytes, text_.data()};
  }
  CountedString(const CountedString&) = delete;
  CountedString& operator=(const CountedString&) = delete;
  [[nodiscard]] UNICODE_STRING* Get() { return &string_; }

 private:
  std::u16string text_;
  UNICODE_STRING string_{};
};

}  // namespace lidcam::test
