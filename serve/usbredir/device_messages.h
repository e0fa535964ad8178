#pragma once

#include <usbredirproto.h>

#include "bus/enumeration.h"
#include "serve/device/served_camera.h"

namespace lidcam::serve::usbredir {

/// The device, at high speed.
[[nodiscard]] usb_redir_device_connect_header DeviceOf(const bus::UsbDeviceInfo& device);

/// Its interfaces, each with the class of its setting 0.
[[nodiscard]] usb_redir_interface_info_header InterfacesOf(const bus::UsbDeviceInfo& device);

/// Its endpoints in the settings in force.
[[nodiscard]] usb_redir_ep_info_header EndpointsOf(const ServedCamera& camera);

}  // namespace lidcam::serve::usbredir
