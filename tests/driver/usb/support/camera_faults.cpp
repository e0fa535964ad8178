#include "tests/driver/usb/support/camera_faults.h"

#include "driver/core/record/camera_context.h"
#include "platform/kernel.h"

namespace lidcam::test {

static CameraFaults* g_faults = nullptr;

CameraFaults::CameraFaults() {
  g_faults = this;
}

CameraFaults::~CameraFaults() {
  g_faults = nullptr;
}

}  // namespace lidcam::test

using lidcam::CameraCapabilities;
using lidcam::CameraContext;
using lidcam::CameraTransport;
using lidcam::FormatRequest;
using lidcam::Status;
using lidcam::test::g_faults;

// The names are those that the linker knows the operations by.
extern "C" {

Status __real__ZN6lidcam15NegotiateFormatERNS_13CameraContextERKNS_13FormatRequestERjRh(
    CameraContext& context, const FormatRequest& request, std::uint32_t& bufferSize,
    std::uint8_t& alternateSetting);
Status __wrap__ZN6lidcam15NegotiateFormatERNS_13CameraContextERKNS_13FormatRequestERjRh(
    CameraContext& context, const FormatRequest& request, std::uint32_t& bufferSize,
    std::uint8_t& alternateSetting);
Status __wrap__ZN6lidcam15NegotiateFormatERNS_13CameraContextERKNS_13FormatRequestERjRh(
    CameraContext& context, const FormatRequest& request, std::uint32_t& bufferSize,
    std::uint8_t& alternateSetting) {
  const Status status =
      __real__ZN6lidcam15NegotiateFormatERNS_13CameraContextERKNS_13FormatRequestERjRh(
          context, request, bufferSize, alternateSetting);
  if (g_faults != nullptr && g_faults->NoRawBuffer) bufferSize = 0;
  return status;
}

Status __real__ZN6lidcam16SelectStreamModeERNS_13CameraContextERKNS_13FormatRequestE(
    CameraContext& context, const FormatRequest& request);
Status __wrap__ZN6lidcam16SelectStreamModeERNS_13CameraContextERKNS_13FormatRequestE(
    CameraContext& context, const FormatRequest& request);
Status __wrap__ZN6lidcam16SelectStreamModeERNS_13CameraContextERKNS_13FormatRequestE(
    CameraContext& context, const FormatRequest& request) {
  const Status status =
      __real__ZN6lidcam16SelectStreamModeERNS_13CameraContextERKNS_13FormatRequestE(context,
                                                                                    request);
  return g_faults != nullptr && g_faults->ModeFails ? -1 : status;
}

Status __real__ZN6lidcam9EndStreamERNS_13CameraContextE(CameraContext& context);
Status __wrap__ZN6lidcam9EndStreamERNS_13CameraContextE(CameraContext& context);
Status __wrap__ZN6lidcam9EndStreamERNS_13CameraContextE(CameraContext& context) {
  const Status status = __real__ZN6lidcam9EndStreamERNS_13CameraContextE(context);
  return g_faults != nullptr && g_faults->EndFails ? -1 : status;
}

Status __real__ZN6lidcam12LoadSettingsERNS_13CameraContextEPKDs(CameraContext& context,
                                                                const WCHAR* subkey);
Status __wrap__ZN6lidcam12LoadSettingsERNS_13CameraContextEPKDs(CameraContext& context,
                                                                const WCHAR* subkey);
Status __wrap__ZN6lidcam12LoadSettingsERNS_13CameraContextEPKDs(CameraContext& context,
                                                                const WCHAR* subkey) {
  const Status status = __real__ZN6lidcam12LoadSettingsERNS_13CameraContextEPKDs(context, subkey);
  const bool fails = g_faults != nullptr && ++g_faults->Loads == g_faults->FailingLoad;
  return fails ? -1 : status;
}

CameraContext*
__real__ZN6lidcam19CreateCameraContextERKNS_15CameraTransportERNS_18CameraCapabilitiesEPKhj(
    const CameraTransport& transport, CameraCapabilities& capabilities,
    const std::uint8_t* deviceDescriptor, std::uint32_t longConfig);
CameraContext*
__wrap__ZN6lidcam19CreateCameraContextERKNS_15CameraTransportERNS_18CameraCapabilitiesEPKhj(
    const CameraTransport& transport, CameraCapabilities& capabilities,
    const std::uint8_t* deviceDescriptor, std::uint32_t longConfig);
CameraContext*
__wrap__ZN6lidcam19CreateCameraContextERKNS_15CameraTransportERNS_18CameraCapabilitiesEPKhj(
    const CameraTransport& transport, CameraCapabilities& capabilities,
    const std::uint8_t* deviceDescriptor, std::uint32_t longConfig) {
  CameraContext* const camera =
      __real__ZN6lidcam19CreateCameraContextERKNS_15CameraTransportERNS_18CameraCapabilitiesEPKhj(
          transport, capabilities, deviceDescriptor, longConfig);
  if (g_faults != nullptr && g_faults->DeviceClass) {
    capabilities.DeviceClass = *g_faults->DeviceClass;
  }
  return camera;
}

}  // extern "C"
