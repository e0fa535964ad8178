#include "driver/core/settings/settings_store.h"

#include <cstring>

#include "driver/core/base/camera_memory.h"

namespace lidcam {
namespace {

constexpr ACCESS_MASK kRootAccess = 0x1F0000;
constexpr ACCESS_MASK kKeyAccess = 0xF003F;
constexpr ULONG kStoreAttributes = OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE;
static_assert(kStoreAttributes == 0x240);

// Head and padding of the platform's record of a value, besides its name and its data.
constexpr ULONG kValueInformationRoom = 24;

constexpr std::size_t kScratchSize = 256;
constexpr WCHAR kMachineBasePath[] =
    KERNEL_TEXT("\\Registry\\Machine\\Software\\Morvane Optic\\Web Cameras\\");
constexpr USHORT kMachinePathCapacity = 0x80;  // bytes
static_assert(sizeof(kMachineBasePath) / sizeof(WCHAR) - 1 == 53);

struct SavedSetting {
  const WCHAR* Name;
  SettingField Field;
};

// In writing order. The gains and WhiteBalanceAuto are for tools that read the key; they are not
// loaded.
constexpr SavedSetting kSavedSettings[] = {
    {KERNEL_TEXT("Brightness"), &CameraContext::Brightness},
    {KERNEL_TEXT("Contrast"), &CameraContext::Contrast},
    {KERNEL_TEXT("Saturation"), &CameraContext::Saturation},
    {KERNEL_TEXT("Sharpness"), &CameraContext::Sharpness},
    {KERNEL_TEXT("Gamma"), &CameraContext::Gamma},
    {KERNEL_TEXT("WhiteBalance"), &CameraContext::WhiteBalance},
    {KERNEL_TEXT("BackLight"), &CameraContext::BackLight},
    {KERNEL_TEXT("ColorEnable"), &CameraContext::ColorEnable},
    {KERNEL_TEXT("Exposure"), &CameraContext::Exposure},
    {KERNEL_TEXT("Flicker"), &CameraContext::Flicker},
    {KERNEL_TEXT("Rgain"), &CameraContext::Rgain},
    {KERNEL_TEXT("Ggain"), &CameraContext::Ggain},
    {KERNEL_TEXT("Bgain"), &CameraContext::Bgain},
    {KERNEL_TEXT("AutoExposure"), &CameraContext::AutoExposure},
    {KERNEL_TEXT("WhiteBalanceAuto"), &CameraContext::WhiteBalanceAuto},
    {KERNEL_TEXT("Mirror"), &CameraContext::Mirror},
    {KERNEL_TEXT("Vertical"), &CameraContext::Vertical},
    {KERNEL_TEXT("Effect"), &CameraContext::Effect},
    {KERNEL_TEXT("LDMode"), &CameraContext::LDMode},
    {KERNEL_TEXT("LED"), &CameraContext::LED},
};

const TransportRecordHead* DeviceOf(const CameraContext& context) {
  return static_cast<const TransportRecordHead*>(context.TransportContext);
}

Status CreateKey(HANDLE root, ACCESS_MASK access, UNICODE_STRING& path, ULONG attributes,
                 HANDLE& key) {
  OBJECT_ATTRIBUTES object;
  InitializeObjectAttributes(&object, &path, attributes, root, nullptr);
  return ZwCreateKey(&key, access, &object, 0, nullptr, 0, nullptr);
}

// The platform creates only the last key of a path: this creates those above it, one by one.
Status CreatePrefixes(HANDLE root, ACCESS_MASK access, const WCHAR* path, ULONG attributes) {
  UNICODE_STRING prefix;
  RtlInitUnicodeString(&prefix, path);
  const std::size_t length = prefix.Length / sizeof(WCHAR);
  for (std::size_t i = 1; i < length; ++i) {
    if (path[i] != KERNEL_TEXT('\\')) continue;
    prefix.Length = static_cast<USHORT>(i * sizeof(WCHAR));
    HANDLE key = nullptr;
    const Status status = CreateKey(root, access, prefix, attributes, key);
    if (!NT_SUCCESS(status)) return status;
    ZwClose(key);
  }
  return 0;
}

// Queries a value until the block that receives it is large enough; the value may grow between two
// queries. Null if the value can't be read.
KEY_VALUE_FULL_INFORMATION* QueryValue(HANDLE key, UNICODE_STRING& name, ULONG length) {
  for (;;) {
    void* const block = AllocateCameraMemory(length);
    if (block == nullptr) return nullptr;
    ULONG needed = 0;
    const NTSTATUS status =
        ZwQueryValueKey(key, &name, KeyValueFullInformation, block, length, &needed);
    if (NT_SUCCESS(status)) return static_cast<KEY_VALUE_FULL_INFORMATION*>(block);
    FreeCameraMemory(block);
    if (status != STATUS_BUFFER_OVERFLOW && status != STATUS_BUFFER_TOO_SMALL) return nullptr;
    length = needed;
  }
}

// `limit` decides whether the value is accepted, `room` how many of its bytes are stored.
Status ReadOpenKey(HANDLE key, const WCHAR* name, void* destination, std::size_t room,
                   std::uint32_t& limit) {
  UNICODE_STRING valueName;
  RtlInitUnicodeString(&valueName, name);
  KEY_VALUE_FULL_INFORMATION* const information =
      QueryValue(key, valueName, limit + valueName.Length + kValueInformationRoom);
  if (information == nullptr) {
    limit = 0;
    return -1;
  }
  const ULONG length = information->DataLength;
  const bool isTaken = length <= limit && destination != nullptr;
  if (isTaken) {
    const auto* const data = reinterpret_cast<const unsigned char*>(information);
    std::memcpy(destination, data + information->DataOffset, length < room ? length : room);
  }
  limit = length;
  FreeCameraMemory(information);
  return isTaken ? 0 : -1;
}

// ReadSettingValue() with the true room at `destination` apart from the limit, which can grow
// beyond it when several reads share one limit word.
Status ReadBounded(HANDLE root, const WCHAR* subkey, const WCHAR* name, void* destination,
                   std::size_t room, std::uint32_t& limit) {
  if (!NT_SUCCESS(CreatePrefixes(root, kKeyAccess, subkey, kStoreAttributes))) return -1;
  UNICODE_STRING path;
  RtlInitUnicodeString(&path, subkey);
  HANDLE key = nullptr;
  if (!NT_SUCCESS(CreateKey(root, kKeyAccess, path, kStoreAttributes, key))) {
    limit = 0;
    return -1;
  }
  const Status status = ReadOpenKey(key, name, destination, room, limit);
  CloseSettingsKey(key);
  return status;
}

// A value of fewer than 4 bytes replaces the low bytes of the field; an empty one leaves it
// unchanged.
void LoadSetting(CameraContext& context, HANDLE root, const WCHAR* subkey,
                 const LoadedSetting& setting, std::uint32_t& sharedSize) {
  std::int32_t value = setting.Field.Load(context);
  const Status status = ReadBounded(root, subkey, setting.Name, &value, sizeof(value), sharedSize);
  if (status != 0) {
    setting.Field.Store(context, setting.Default);
  } else if (sharedSize != 0) {
    setting.Field.Store(context, value);
  }
}

HANDLE OpenDeviceRoot(const TransportRecordHead* device) {
  if (device == nullptr) return nullptr;
  HANDLE root = nullptr;
  const NTSTATUS status = IoOpenDeviceRegistryKey(device->PhysicalDeviceObject,
                                                  PLUGPLAY_REGKEY_DRIVER, kRootAccess, &root);
  return NT_SUCCESS(status) ? root : nullptr;
}

HANDLE OpenMachineRoot(const WCHAR* name) {
  auto* const buffer = static_cast<WCHAR*>(AllocateCameraMemory(kScratchSize));
  if (buffer == nullptr) return nullptr;
  UNICODE_STRING path{0, kMachinePathCapacity, buffer};
  RtlAppendUnicodeToString(&path, kMachineBasePath);
  // A name that doesn't fit is left out: the base key is opened then.
  RtlAppendUnicodeToString(&path, name);
  HANDLE root = nullptr;
  const Status status = CreateKey(nullptr, kKeyAccess, path, kStoreAttributes, root);
  FreeCameraMemory(buffer);
  return NT_SUCCESS(status) ? root : nullptr;
}

Status SaveBelow(const CameraContext& context, HANDLE root, const WCHAR* subkey) {
  HANDLE key = nullptr;
  Status status = CreateKeyChain(root, kKeyAccess, subkey, key);
  if (!NT_SUCCESS(status)) return status;
  for (const SavedSetting& setting : kSavedSettings) {
    status = WriteSettingValue(key, setting.Name,
                               static_cast<std::uint32_t>(setting.Field.Load(context)));
  }
  CloseSettingsKey(key);
  return status;
}

}  // namespace

Status LoadSettings(CameraContext& context, const WCHAR* subkey) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  HANDLE root = OpenSettingsRoot(DeviceOf(context), nullptr, SettingsRootDevice);
  if (root == nullptr) return 0;
  // One word for all reads, as each leaves it: an absent value makes it 0, and the next value
  // doesn't fit and is lost too.
  std::uint32_t sharedSize = sizeof(std::uint32_t);
  for (const LoadedSetting& setting : kLoadedSettings) {
    LoadSetting(context, root, subkey, setting, sharedSize);
  }
  CloseSettingsKey(root);
  return 0;
}

Status SaveSettings(CameraContext& context, const WCHAR* subkey) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  // Without a root there is no status to return, and callers ignore the result: the status keeps
  // its initial value, the record's address.
  auto status = static_cast<Status>(reinterpret_cast<std::uintptr_t>(&context) & 0xFFFFFFFF);
  HANDLE root = OpenSettingsRoot(DeviceOf(context), nullptr, SettingsRootDevice);
  if (root != nullptr) {
    status = SaveBelow(context, root, subkey);
    CloseSettingsKey(root);
  }
  // Every save allocates this block once and frees it, saved or not.
  FreeCameraMemory(AllocateCameraMemory(kScratchSize));
  return status;
}

HANDLE OpenSettingsRoot(const TransportRecordHead* device, const WCHAR* name, std::uint32_t kind) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  switch (kind) {
    case SettingsRootMachine:
      return OpenMachineRoot(name);
    case SettingsRootDevice:
      return OpenDeviceRoot(device);
    default:
      return nullptr;
  }
}

Status ReadSettingValue(HANDLE root, const WCHAR* subkey, const WCHAR* name, std::uint32_t,
                        void* destination, std::uint32_t& size) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  return ReadBounded(root, subkey, name, destination, size, size);
}

Status WriteSettingValue(HANDLE key, const WCHAR* name, std::uint32_t value) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  UNICODE_STRING valueName;
  RtlInitUnicodeString(&valueName, name);
  return ZwSetValueKey(key, &valueName, 0, REG_DWORD, &value, sizeof(value));
}

Status CreateKeyChain(HANDLE root, ACCESS_MASK access, const WCHAR* path, HANDLE& key) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  const Status status = CreatePrefixes(root, access, path, OBJ_CASE_INSENSITIVE);
  if (!NT_SUCCESS(status)) return status;
  UNICODE_STRING whole;
  RtlInitUnicodeString(&whole, path);
  return CreateKey(root, access, whole, OBJ_CASE_INSENSITIVE, key);
}

Status CloseSettingsKey(HANDLE key) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  return NT_SUCCESS(ZwClose(key)) ? 0 : -1;
}

}  // namespace lidcam
