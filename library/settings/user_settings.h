#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "platform/host/nt/registry/registry_store.h"
#include "platform/host/nt/registry/registry_tree.h"

namespace lidcam::app {

/// The content of the user's settings file; nothing for an empty path.
[[nodiscard]] host::RegistryTree ReadUserSettings(const std::filesystem::path& file);

/// Changes the user's current settings under their lock, so that no change of another process is lost.
///
/// @param change  writes into the settings and commits; @return 0 or the error number
/// Throws CommandError.
void ChangeUserSettings(const std::filesystem::path& file,
                        const std::function<int(host::RegistryStore& store)>& change);

/// A picture setting by its name in the registry.
struct NamedSetting {
  std::u16string_view Name;
  std::int32_t Value = 0;
};

/// Writes settings of one camera. Those that it lacks get their defaults: a driver that finds no value of a setting
/// loses the one behind it, too.
///
/// @param driverKey  of the camera's identity, as DriverKeyOf() gives it
/// Throws CommandError.
void KeepSettings(const std::filesystem::path& file, const std::u16string& driverKey,
                  std::span<const NamedSetting> settings);

/// The registry's key of a camera's picture settings, by the path of the exchange format.
[[nodiscard]] std::u16string SettingsKeyOf(const std::u16string& driverKey);

/// The data of a setting's value.
[[nodiscard]] host::RegistryValue ValueOfSetting(std::int32_t value);

}  // namespace lidcam::app
