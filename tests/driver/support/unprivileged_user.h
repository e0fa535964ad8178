#pragma once

#include <unistd.h>

#include <cerrno>
#include <exception>
#include <filesystem>
#include <system_error>

namespace lidcam::test {

/// Drops the superuser's rights while it lives, so that protections apply as for a user. Does
/// nothing where the test runs without those rights.
class UnprivilegedUser {
 public:
  /// @param folder  becomes the unprivileged user's, with all its content
  explicit UnprivilegedUser(const std::filesystem::path& folder) {
    if (::geteuid() != 0) return;
    Own(folder);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
      Own(entry.path());
    }
    isChanged_ = ::seteuid(kNobody) == 0;
  }
  UnprivilegedUser(const UnprivilegedUser&) = delete;
  UnprivilegedUser& operator=(const UnprivilegedUser&) = delete;
  ~UnprivilegedUser() {
    if (isChanged_ && ::seteuid(0) != 0) std::terminate();
  }

  /// False where the system doesn't let the superuser change its user: protections can't be tested
  /// there.
  [[nodiscard]] bool IsUnprivileged() const { return ::geteuid() != 0; }

 private:
  static constexpr uid_t kNobody = 65534;

  static void Own(const std::filesystem::path& path) {
    if (::lchown(path.c_str(), kNobody, kNobody) != 0) {
      throw std::filesystem::filesystem_error("owner of the test's folder", path,
                                              std::error_code(errno, std::generic_category()));
    }
  }

  bool isChanged_ = false;
};

}  // namespace lidcam::test
