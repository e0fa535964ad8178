#include "tests/on_wine/client/device/saved_settings.h"

#include <setupapi.h>
#include <winternl.h>

#include <array>
#include <cstdio>
#include <cstring>

#include "tests/on_wine/client/camera/control_trial.h"
#include "tests/on_wine/client/report.h"

// User mode's headers lack these two.
extern "C" {
NTSTATUS NTAPI NtOpenKey(PHANDLE key, ACCESS_MASK access, POBJECT_ATTRIBUTES object);
NTSTATUS NTAPI NtQueryValueKey(HANDLE key, PUNICODE_STRING name, int informationClass,
                               PVOID information, ULONG length, PULONG resultLength);
}

namespace lidcam::wine {
namespace {

constexpr GUID kImageClass = {
    0x6BDD1FC6, 0x810F, 0x11D0, {0xBE, 0xC7, 0x08, 0x00, 0x2B, 0xE2, 0x09, 0x2F}};
constexpr wchar_t kClasses[] = L"\\Registry\\Machine\\System\\CurrentControlSet\\Control\\Class\\";
constexpr wchar_t kSubkey[] = L"\\Settings";

constexpr int kPartialInformation = 2;

struct NumberInformation {
  ULONG TitleIndex;
  ULONG Type;
  ULONG DataLength;
  DWORD Data;
};

class RegistryKey {
 public:
  explicit RegistryKey(const std::wstring& path) {
    UNICODE_STRING name = TextOf(path);
    OBJECT_ATTRIBUTES object{};
    InitializeObjectAttributes(&object, &name, OBJ_CASE_INSENSITIVE, nullptr, nullptr);
    const NTSTATUS status = NtOpenKey(&key_, KEY_READ, &object);
    Require(status >= 0,
            "open " + Narrow(path) + ": status " + Hex(static_cast<std::uint32_t>(status)));
  }
  RegistryKey(const RegistryKey&) = delete;
  RegistryKey& operator=(const RegistryKey&) = delete;
  ~RegistryKey() { NtClose(key_); }

  [[nodiscard]] DWORD Number(const std::wstring& valueName) const {
    UNICODE_STRING name = TextOf(valueName);
    NumberInformation information{};
    ULONG length = 0;
    const NTSTATUS status = NtQueryValueKey(key_, &name, kPartialInformation, &information,
                                            sizeof(information), &length);
    Require(
        status >= 0 && information.Type == REG_DWORD,
        "saved value " + Narrow(valueName) + ": status " + Hex(static_cast<std::uint32_t>(status)));
    return information.Data;
  }

 private:
  static UNICODE_STRING TextOf(const std::wstring& text) {
    UNICODE_STRING string{};
    RtlInitUnicodeString(&string, text.c_str());
    return string;
  }

  HANDLE key_ = nullptr;
};

// Saved in addition to the controls: the exposure's mode, and values that no control of the test
// changes.
struct OtherValue {
  const wchar_t* Name;
  DWORD Value;
};
constexpr OtherValue kOthers[] = {
    {L"AutoExposure", 0},     {L"LDMode", 0}, {L"LED", 4},   {L"WhiteBalance", 1},
    {L"WhiteBalanceAuto", 0}, {L"Rgain", 0},  {L"Ggain", 0}, {L"Bgain", 0},
};

void RequireSaved(const RegistryKey& key, const std::wstring& name, DWORD value) {
  const DWORD saved = key.Number(name);
  std::printf("  %-16s %ld\n", Narrow(name).c_str(), static_cast<LONG>(saved));
  Require(saved == value, "saved " + Narrow(name) + " isn't " + std::to_string(value));
}

}  // namespace

std::wstring DriverKeyPath() {
  const HDEVINFO devices = SetupDiGetClassDevsW(&kImageClass, nullptr, nullptr, 0);
  RequireCall(devices != INVALID_HANDLE_VALUE, "list the cameras");
  SP_DEVINFO_DATA device{};
  device.cbSize = sizeof(device);
  std::array<wchar_t, MAX_PATH> key{};
  const bool isTold = SetupDiEnumDeviceInfo(devices, 0, &device) != FALSE &&
                      SetupDiGetDeviceRegistryPropertyW(devices, &device, SPDRP_DRIVER, nullptr,
                                                        reinterpret_cast<BYTE*>(key.data()),
                                                        sizeof(key) - 2, nullptr) != FALSE;
  const DWORD error = GetLastError();
  SetupDiDestroyDeviceInfoList(devices);
  Require(isTold, "find the camera's driver key: error " + std::to_string(error));
  return kClasses + std::wstring(key.data());
}

void CheckSavedSettings() {
  const std::wstring path = DriverKeyPath() + kSubkey;
  const RegistryKey key(path);
  std::printf("%s\n", Narrow(path).c_str());
  for (const Control& control : Controls()) {
    const std::string name = control.Name;
    if (control.IsKept) {
      RequireSaved(key, std::wstring(name.begin(), name.end()), static_cast<DWORD>(control.Kept));
    }
  }
  for (const OtherValue& other : kOthers) RequireSaved(key, other.Name, other.Value);
  Ok("saved settings are as set");
}

}  // namespace lidcam::wine
