#include "library/settings/user_settings.h"

#include <cstring>
#include <vector>

#include "driver/core/settings/settings_store.h"
#include "library/base/command_error.h"
#include "library/base/notices.h"
#include "platform/host/nt/registry/registry_file.h"

namespace lidcam::app {
namespace {

using host::RegistryStore;

constexpr std::u16string_view kKernelRoot = u"\\Registry\\Machine";
constexpr std::u16string_view kExchangeRoot = u"HKEY_LOCAL_MACHINE";

}  // namespace

host::RegistryTree ReadUserSettings(const std::filesystem::path& file) {
  if (file.empty()) return {};
  RegistryStore store({.File = file.string(), .Message = nullptr, .Steps = {}});
  return store.Snapshot();
}

void ChangeUserSettings(const std::filesystem::path& file,
                        const std::function<int(RegistryStore& store)>& change) {
  // Locked from the read to the write, so that no other process's change is lost.
  const host::RegistryFileLock lock((file.parent_path() / "settings").string());
  if (lock.Error() != 0) {
    throw CommandError("the settings are not stored: '" + file.string() +
                       "' can't be locked: " + std::strerror(lock.Error()));
  }
  std::vector<std::string> messages;
  RegistryStore store({.File = file.string(),
                       .Message = [&](const std::string& message) { messages.push_back(message); },
                       .Steps = {}});
  const int error = change(store);
  if (error != 0) {
    const std::string reason = messages.empty() ? std::strerror(error) : messages.back();
    throw CommandError("the settings are not stored: " + reason);
  }
  for (const std::string& message : messages) TellUser(message);
}

void KeepSettings(const std::filesystem::path& file, const std::u16string& driverKey,
                  std::span<const NamedSetting> settings) {
  ChangeUserSettings(file, [&](RegistryStore& store) {
    const RegistryStore::BatchId batch = store.NewBatch();
    const std::u16string key = SettingsKeyOf(driverKey);
    for (const LoadedSetting& setting : kLoadedSettings) {
      if (store.FindValue(key, setting.Name)) continue;
      store.SetValue(batch, key, setting.Name, ValueOfSetting(setting.Default));
    }
    for (const NamedSetting& setting : settings) {
      store.SetValue(batch, key, setting.Name, ValueOfSetting(setting.Value));
    }
    return store.Commit(batch);
  });
}

std::u16string SettingsKeyOf(const std::u16string& driverKey) {
  std::u16string path(kExchangeRoot);
  path += driverKey.substr(kKernelRoot.size());
  path += u'\\';
  path += kSettingsSubkey;
  return path;
}

host::RegistryValue ValueOfSetting(std::int32_t value) {
  host::RegistryValue data{.Type = host::kRegistryDword,
                           .Data = std::vector<std::uint8_t>(sizeof(value))};
  std::memcpy(data.Data.data(), &value, sizeof(value));
  return data;
}

}  // namespace lidcam::app
