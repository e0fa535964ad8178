#pragma once

#include <filesystem>
#include <string>

namespace lidcam::app {

/// The settings of one of a process's open cameras: a copy of the user's, under a driver key of its own, in which
/// the driver loads and saves as it always does. So cameras of one identity don't get each other's changes. The
/// copy is discarded with the object.
class SettingsCopy {
 public:
  SettingsCopy();
  SettingsCopy(const SettingsCopy&) = delete;
  SettingsCopy& operator=(const SettingsCopy&) = delete;
  ~SettingsCopy();

  /// The camera's driver key in the registry of this process.
  [[nodiscard]] std::u16string DriverKey() const;

  /// Fills the copy ahead of the camera's start.
  ///
  /// @param file         the user's settings; empty: the default ones
  /// @param identityKey  the driver key of the camera's identity in them
  void Fill(const std::filesystem::path& file, const std::u16string& identityKey) const;

 private:
  unsigned number_;
};

}  // namespace lidcam::app
