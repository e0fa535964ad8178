#pragma once

#include "driver/core/record/camera_context.h"
#include "driver/core/record/setting_field.h"
#include "platform/kernel.h"

namespace lidcam {

/// Subkey of the device's driver key that holds the user's picture settings.
inline constexpr WCHAR kSettingsSubkey[] = KERNEL_TEXT("Settings");

/// The head of the device layer's transport record, to which `TransportContext` points: how the
/// settings store reaches the device's driver key.
struct TransportRecordHead {
  char Signature[4];
  PDEVICE_OBJECT NextDeviceObject;
  PDEVICE_OBJECT PhysicalDeviceObject;
  PDEVICE_OBJECT FunctionalDeviceObject;
};

enum SettingsRootKind : std::uint32_t {
  SettingsRootMachine = 1,  ///< a machine-wide key; unused
  SettingsRootDevice = 2,   ///< the device's driver key
};

/// A picture setting of the store.
struct LoadedSetting {
  const WCHAR* Name;
  SettingField Field;
  std::int32_t Default;  ///< used if the store has no value
};

/// In reading order, which decides what an unreadable value affects. The only place that holds the
/// defaults of the image controls.
inline constexpr LoadedSetting kLoadedSettings[] = {
    {KERNEL_TEXT("Exposure"), &CameraContext::Exposure, 1},
    {KERNEL_TEXT("Brightness"), &CameraContext::Brightness, 20},
    {KERNEL_TEXT("Contrast"), &CameraContext::Contrast, 10},
    {KERNEL_TEXT("Saturation"), &CameraContext::Saturation, 120},
    {KERNEL_TEXT("Sharpness"), &CameraContext::Sharpness, 3},
    {KERNEL_TEXT("WhiteBalance"), &CameraContext::WhiteBalance, 1},
    {KERNEL_TEXT("ColorEnable"), &CameraContext::ColorEnable, 1},
    {KERNEL_TEXT("BackLight"), &CameraContext::BackLight, 0},
    {KERNEL_TEXT("Gamma"), &CameraContext::Gamma, 11},
    {KERNEL_TEXT("AutoExposure"), &CameraContext::AutoExposure, 1},
    {KERNEL_TEXT("Mirror"), &CameraContext::Mirror, 0},
    {KERNEL_TEXT("Vertical"), &CameraContext::Vertical, 0},
    {KERNEL_TEXT("Flicker"), &CameraContext::Flicker, Flicker50Hz},
    {KERNEL_TEXT("LDMode"), &CameraContext::LDMode, 0},
    {KERNEL_TEXT("Effect"), &CameraContext::Effect, 0},
    {KERNEL_TEXT("LED"), &CameraContext::LED, LedPolicyFollowLight},
};

/// The default of the image control that `field` holds; 0 for a field that is not loaded.
/// @par Any thread, and at compile time
constexpr std::int32_t DefaultOfSetting(SettingField field) {
  for (const LoadedSetting& setting : kLoadedSettings) {
    if (setting.Field == field) return setting.Default;
  }
  return 0;
}

/// Loads the picture settings into the record. A value that can't be read gets its default, and the
/// value after it is lost as well (all reads share the size word). Without a root nothing changes.
/// Touches no hardware.
///
/// @return 0 always
_IRQL_requires_max_(PASSIVE_LEVEL)
Status LoadSettings(CameraContext& context, const WCHAR* subkey);

/// Saves the picture settings.
///
/// @return the status of the last value's write, or of the key's creation; meaningless without a
///         root. Callers ignore it.
_IRQL_requires_max_(PASSIVE_LEVEL)
Status SaveSettings(CameraContext& context, const WCHAR* subkey);

/// Opens a root key.
///
/// @param device  whose driver key is meant; not used for the machine-wide key
/// @param name  appended to the machine-wide path; one of more than 11 characters does not fit and
///              is left out. Not used for the device's key.
/// @return the key, to be closed by the caller; null if it can't be opened and for unknown kinds
_IRQL_requires_max_(PASSIVE_LEVEL)
HANDLE OpenSettingsRoot(const TransportRecordHead* device, const WCHAR* name, std::uint32_t kind);

/// Reads one value below `root`, creating the subkey when it is missing.
///
/// @param type         has no effect: the stored type is not compared
/// @param destination  receives the data on success
/// @param size         in: room at `destination`; out: length of the stored data, 0 if there is
///                     none
/// @return 0, or -1 with nothing copied: the subkey or the value can't be opened or read, the value
///         is longer than `size`, or `destination` is null
_IRQL_requires_max_(PASSIVE_LEVEL)
Status ReadSettingValue(HANDLE root, const WCHAR* subkey, const WCHAR* name, std::uint32_t type,
                        void* destination, std::uint32_t& size);

/// Writes one 32-bit value, replacing one of the same name.
///
/// @return the platform's status of the write
_IRQL_requires_max_(PASSIVE_LEVEL)
Status WriteSettingValue(HANDLE key, const WCHAR* name, std::uint32_t value);

/// Creates the key at `path` below `root` level by level.
///
/// @param key  the created key, to be closed by the caller; set on success only
/// @return 0 or the platform's status of the first level that failed; levels above it stay
_IRQL_requires_max_(PASSIVE_LEVEL)
Status CreateKeyChain(HANDLE root, ACCESS_MASK access, const WCHAR* path, HANDLE& key);

/// Closes a key that one of the functions above has opened.
///
/// @return 0, or -1 if the platform's close failed
_IRQL_requires_max_(PASSIVE_LEVEL)
Status CloseSettingsKey(HANDLE key);

}  // namespace lidcam
