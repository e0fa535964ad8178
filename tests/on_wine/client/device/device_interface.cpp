#include "tests/on_wine/client/device/device_interface.h"

#include <setupapi.h>

#include <array>
#include <vector>

#include "tests/on_wine/client/report.h"

namespace lidcam::wine {
namespace {

/// The interfaces of a category whose devices are present.
class InterfaceList {
 public:
  explicit InterfaceList(const GUID& category)
      : category_(category),
        devices_(SetupDiGetClassDevsW(&category, nullptr, nullptr,
                                      DIGCF_DEVICEINTERFACE | DIGCF_PRESENT)) {
    RequireCall(devices_ != INVALID_HANDLE_VALUE, "list interfaces");
  }
  InterfaceList(const InterfaceList&) = delete;
  InterfaceList& operator=(const InterfaceList&) = delete;
  ~InterfaceList() { SetupDiDestroyDeviceInfoList(devices_); }

  /// @return false after the last one
  [[nodiscard]] bool Next() {
    return SetupDiEnumDeviceInterfaces(devices_, nullptr, &category_, next_++, &found_) != FALSE;
  }

  [[nodiscard]] std::wstring Path() {
    DWORD bytes = 0;
    SetupDiGetDeviceInterfaceDetailW(devices_, &found_, nullptr, 0, &bytes, nullptr);
    std::vector<DWORD> room(bytes / sizeof(DWORD) + 1);
    auto* const detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(room.data());
    detail->cbSize = sizeof(*detail);
    RequireCall(SetupDiGetDeviceInterfaceDetailW(devices_, &found_, detail, bytes, nullptr,
                                                 nullptr) != FALSE,
                "tell the path of an interface");
    return detail->DevicePath;
  }

  [[nodiscard]] HKEY Key() {
    HKEY const key = SetupDiOpenDeviceInterfaceRegKey(devices_, &found_, 0, KEY_READ);
    RequireCall(key != INVALID_HANDLE_VALUE, "open the key of an interface");
    return key;
  }

 private:
  const GUID& category_;
  HDEVINFO devices_;
  DWORD next_ = 0;
  SP_DEVICE_INTERFACE_DATA found_{sizeof(found_), {}, 0, 0};
};

std::wstring TextIn(HKEY key, const wchar_t* name) {
  std::array<wchar_t, 128> text{};
  DWORD bytes = sizeof(text);
  const LSTATUS error =
      RegGetValueW(key, nullptr, name, RRF_RT_REG_SZ, nullptr, text.data(), &bytes);
  Require(error == ERROR_SUCCESS,
          "read " + Narrow(name) + " of an interface: error " + std::to_string(error));
  return text.data();
}

}  // namespace

std::wstring FindInterface(const GUID& category) {
  InterfaceList list(category);
  return list.Next() ? list.Path() : std::wstring();
}

InterfaceNames ReadInterfaceNames(const GUID& category, const std::wstring& path) {
  InterfaceList list(category);
  while (list.Next()) {
    if (list.Path() != path) continue;
    HKEY const key = list.Key();
    InterfaceNames names{TextIn(key, L"CLSID"), TextIn(key, L"FriendlyName")};
    RegCloseKey(key);
    return names;
  }
  throw Failure("the interface " + Narrow(path) + " isn't listed");
}

}  // namespace lidcam::wine
