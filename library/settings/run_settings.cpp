#include "library/settings/run_settings.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

#include "driver/core/settings/settings_store.h"
#include "library/settings/user_settings.h"
#include "platform/host/nt/registry/registry.h"
#include "platform/host/nt/registry/registry_store.h"

namespace lidcam::app {
namespace {

using host::RegistryTree;
using host::RegistryValue;

// What a camera without this setting has begun with, and saved.
bool IsInitial(std::u16string_view name, const RegistryValue& value) {
  const auto* const setting = std::ranges::find_if(
      kLoadedSettings, [&](const LoadedSetting& loaded) { return name == loaded.Name; });
  // The others are never loaded and never changed.
  if (setting == std::end(kLoadedSettings)) return true;
  return value.Data.size() == sizeof(setting->Default) &&
         std::memcmp(value.Data.data(), &setting->Default, sizeof(setting->Default)) == 0;
}

/// Whether a value of a run's copy must be written to the user's settings.
///
/// @param before  the setting when the run began; null if there was none
/// @param now     the setting as it is now; null if there is still no value
bool IsToStore(std::u16string_view name, const RegistryValue& value, const RegistryValue* before,
               const RegistryValue* now) {
  if (before != nullptr) return *before != value;
  return now == nullptr || !IsInitial(name, value);
}

}  // namespace

RunSettings::RunSettings(std::filesystem::path file)
    : file_(std::move(file)), before_(ReadUserSettings(file_)) {
  host::OpenRegistry({.File = {}, .Message = nullptr, .Steps = {}, .Content = before_});
}

void RunSettings::Store() const {
  if (file_.empty()) return;
  ChangeUserSettings(file_, [this](host::RegistryStore& store) { return WriteChanges(store); });
}

int RunSettings::WriteChanges(host::RegistryStore& store) const {
  const RegistryTree now = store.Snapshot();
  const host::RegistryStore::BatchId batch = store.NewBatch();
  const RegistryTree after = host::SnapshotRegistry();
  for (const auto& [key, values] : after.Keys()) {
    for (const auto& [name, value] : values) {
      const RegistryValue* const before = before_.FindValue(key, name);
      if (IsToStore(name, value, before, now.FindValue(key, name))) {
        store.SetValue(batch, key, name, value);
      }
    }
  }
  return store.Commit(batch);
}

}  // namespace lidcam::app
