#include "library/settings/settings_copy.h"

#include <algorithm>
#include <mutex>
#include <set>

#include "driver/core/settings/settings_store.h"
#include "library/settings/user_settings.h"
#include "platform/host/nt/io/device_object.h"
#include "platform/host/nt/registry/registry.h"

namespace lidcam::app {
namespace {

// Above the numbers of all identities.
constexpr unsigned kFirstNumber = 9000;

struct Numbers {
  std::mutex Mutex;
  std::set<unsigned> Used;
  bool HasRegistry = false;

  // Never destroyed: a camera may be open at the very end of the program.
  static Numbers& Instance() {
    static auto* const numbers = new Numbers;
    return *numbers;
  }
};

}  // namespace

SettingsCopy::SettingsCopy() : number_(kFirstNumber) {
  Numbers& numbers = Numbers::Instance();
  const std::lock_guard lock(numbers.Mutex);
  if (!numbers.HasRegistry) host::OpenRegistry({.File = {}, .Message = nullptr, .Steps = {}});
  numbers.HasRegistry = true;
  while (!numbers.Used.insert(number_).second) ++number_;
}

SettingsCopy::~SettingsCopy() {
  Numbers& numbers = Numbers::Instance();
  const std::lock_guard lock(numbers.Mutex);
  numbers.Used.erase(number_);
}

std::u16string SettingsCopy::DriverKey() const {
  return host::ImagingDriverKey(number_);
}

// Those that the user's settings lack are written, too: an earlier camera with this number may have left others.
void SettingsCopy::Fill(const std::filesystem::path& file,
                        const std::u16string& identityKey) const {
  const host::RegistryTree users = ReadUserSettings(file);
  const std::u16string from = SettingsKeyOf(identityKey);
  const std::u16string to = SettingsKeyOf(DriverKey());
  host::RegistryTree copy;
  for (const LoadedSetting& setting : kLoadedSettings) {
    const host::RegistryValue* const value = users.FindValue(from, setting.Name);
    copy.SetValue(to, setting.Name, value != nullptr ? *value : ValueOfSetting(setting.Default));
  }
  host::MergeIntoRegistry(copy);
}

}  // namespace lidcam::app
