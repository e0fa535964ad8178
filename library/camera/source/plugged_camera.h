#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bus/usb/plugged_device.h"
#include "bus/usb_bus.h"

namespace lidcam::app {

/// Whether a camera's name means one that is plugged in: "usb[:BUS-PORT][:VID:PID]".
[[nodiscard]] bool IsPluggedIn(const std::string& camera);

/// The parts of such a name; parts that it omits are empty.
struct PluggedName {
  std::string Path{};  ///< "1-2.3"
  std::optional<std::uint16_t> Vendor{};
  std::optional<std::uint16_t> Product{};

  [[nodiscard]] bool Fits(const bus::PluggedDevice& device) const;
};

/// Throws UsageError.
[[nodiscard]] PluggedName ParsePluggedName(const std::string& camera);

/// "usb:1-2.3:1af0:0511", the name that fits this device alone.
[[nodiscard]] std::string NameOf(const bus::PluggedDevice& device);

/// The devices of the camera's identities that are plugged in; none on a machine without USB.
[[nodiscard]] std::vector<bus::PluggedDevice> PluggedCameras();

/// The camera that a name means. Throws UsageError if it fits several, and CommandError if none is plugged in.
[[nodiscard]] bus::PluggedDevice FindPluggedCamera(const std::string& camera);

/// Waits until a camera that the name fits is plugged in and may be opened.
///
/// @param goesOn  called several times a second
/// @return nothing if `goesOn` returned false before it was plugged in
[[nodiscard]] std::optional<bus::PluggedDevice> AwaitPluggedCamera(
    const PluggedName& name, const std::function<bool()>& goesOn);

/// Opens the camera of that name. Conditions that the user can correct during a stream are printed
/// on standard error.
///
/// Throws as FindPluggedCamera() does, and CommandError with the reason and its remedy.
[[nodiscard]] std::unique_ptr<bus::UsbBus> OpenPluggedCamera(const std::string& camera);

/// The one command after which the user may open the device.
[[nodiscard]] std::string PermissionRemedy(const bus::PluggedDevice& device);

/// The driver or process that uses the device or an interface of it, as text: "uvcvideo",
/// "process 1234 (lidcam)"; empty if it is free.
[[nodiscard]] std::string HolderOf(const bus::PluggedDevice& device);

}  // namespace lidcam::app
