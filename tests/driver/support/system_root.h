#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host/nt/files/files.h"

namespace lidcam::test {

/// A fresh folder that "\SystemRoot" maps to while the object lives, with an empty drivers folder.
class TemporarySystemRoot {
 public:
  TemporarySystemRoot() {
    std::string name = (std::filesystem::temp_directory_path() / "lidcam-XXXXXX").string();
    root_ = ::mkdtemp(name.data());
    std::filesystem::create_directories(Drivers());
    host::SetSystemRoot(root_);
  }
  TemporarySystemRoot(const TemporarySystemRoot&) = delete;
  TemporarySystemRoot& operator=(const TemporarySystemRoot&) = delete;
  ~TemporarySystemRoot() {
    host::SetSystemRoot({});
    std::error_code error;
    std::filesystem::remove_all(root_, error);
  }

  [[nodiscard]] const std::filesystem::path& Root() const { return root_; }
  [[nodiscard]] std::filesystem::path Drivers() const { return root_ / "system32" / "drivers"; }

  /// Puts a file into the drivers folder.
  void Write(std::string_view name, const std::vector<std::uint8_t>& bytes) const {
    std::ofstream file(Drivers() / name, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
  }

 private:
  std::filesystem::path root_;
};

}  // namespace lidcam::test
