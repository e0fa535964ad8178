#include "scenarios/camera/surroundings.h"

#include <iterator>

#include "driver/core/settings/settings_store.h"
#include "platform/host/nt/io/device_object.h"
#include "platform/host/nt/processor/kernel_guards.h"
#include "platform/host/nt/registry/registry.h"

namespace lidcam::scenarios {
namespace {

constexpr std::uint64_t kChoicePurpose = 3;
constexpr std::uint64_t kTimePurpose = 4;
constexpr std::uint64_t kLightPurpose = 5;

// 100 ns each. Most requests are answered within a few microframes; the sensor, on its slow bus,
// may take longer.
constexpr std::uint64_t kShortestRequest = 1'000;
constexpr std::uint64_t kLongestRequests[] = {3'000, 3'000, 10'000, 50'000};
constexpr std::string_view kKindsOfRequests[] = {"requests of 300 us", "requests of 300 us",
                                                 "requests of 1 ms", "requests of 5 ms"};

// Dark enough, and for long enough, that the loop reaches its end and the light state follows; near
// its target; far too bright.
constexpr std::uint64_t kLumas[] = {4, 12, 30, 60, 88, 88, 120, 180, 240};
constexpr std::string_view kKindsOfLight[] = {"darkness",
                                              "darkness",
                                              "dim light",
                                              "dim light",
                                              "light at the target",
                                              "light at the target",
                                              "bright light",
                                              "bright light",
                                              "glaring light"};

constexpr std::uint64_t kMicroframesInSecond = 8000;

class Key {
 public:
  explicit Key(HANDLE handle) : handle_(handle) {}
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  ~Key() noexcept(false) {
    if (handle_ != nullptr && !check_.IsUnwinding()) CloseSettingsKey(handle_);
  }
  [[nodiscard]] HANDLE Handle() const { return handle_; }

 private:
  const host::UnwindCheck check_;
  const HANDLE handle_;
};

std::uint32_t AnyValue(Random& chance) {
  constexpr std::uint64_t kBelow[] = {2, 4, 22, 256, std::uint64_t{1} << 32};
  return static_cast<std::uint32_t>(chance.Below(chance.OneOf(kBelow)));
}

}  // namespace

Surroundings::Surroundings(std::uint64_t seed, Swarm& swarm)
    : swarm_(swarm),
      chance_(seed, kChoicePurpose),
      times_(seed, kTimePurpose),
      light_(seed, kLightPurpose),
      settings_([this] {
        constexpr Settings kChoices[] = {Settings::Usual, Settings::Usual, Settings::None,
                                         Settings::Any};
        constexpr std::string_view kKinds[] = {"usual settings", "usual settings", "no settings",
                                               "any settings"};
        return kChoices[swarm_.Choose(chance_, kKinds)];
      }()),
      longestLight_(swarm_.Value("ms of the longest light", 1000, 60, 3000) *
                    (kMicroframesInSecond / 1000)) {
  host::OpenRegistry({.File = {}, .Message = [](const std::string&) {}, .Steps = {}});
}

Surroundings::~Surroundings() {
  host::CloseRegistry();
}

void Surroundings::KeepLoopBusy() {
  settings_ = Settings::Usual;
  longestLight_ = kMicroframesInSecond / 4;
  hasAllLight_ = true;
}

std::u16string Surroundings::DriverKey() const {
  return settings_ == Settings::None ? std::u16string() : host::ImagingDriverKey(0);
}

void Surroundings::SaveSettings(PDEVICE_OBJECT physicalDevice) {
  if (settings_ != Settings::Any) return;
  const TransportRecordHead head{{}, nullptr, physicalDevice, nullptr};
  const Key root(OpenSettingsRoot(&head, nullptr, SettingsRootDevice));
  HANDLE handle = nullptr;
  if (root.Handle() == nullptr ||
      CreateKeyChain(root.Handle(), KEY_ALL_ACCESS, kSettingsSubkey, handle) != 0) {
    return;
  }
  const Key settings(handle);
  for (const LoadedSetting& setting : kLoadedSettings) {
    if (chance_.OneIn(3)) continue;
    WriteSettingValue(settings.Handle(), setting.Name, AnyValue(chance_));
  }
}

LONGLONG Surroundings::NextRequestTime() {
  return static_cast<LONGLONG>(
      times_.Between(kShortestRequest, kLongestRequests[swarm_.Choose(times_, kKindsOfRequests)]));
}

std::uint8_t Surroundings::LumaAt(std::uint64_t microframe) {
  while (lightChanges_ <= microframe) {
    const std::size_t kind =
        hasAllLight_ ? light_.Below(std::size(kLumas)) : swarm_.Choose(light_, kKindsOfLight);
    luma_ = static_cast<std::uint8_t>(kLumas[kind]);
    lightChanges_ += light_.Between(kMicroframesInSecond / 20, longestLight_);
  }
  return luma_;
}

}  // namespace lidcam::scenarios
