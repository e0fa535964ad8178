#pragma once

#include <cstddef>
#include <cstdint>

#include "driver/usb/stream/usb_capture_device.h"
#include "platform/kernel.h"

namespace lidcam {

/// The only kind of device that is ever created: the isochronous pipeline of the camera.
class CameraUsbDevice final : public UsbCaptureDevice {
 public:
  explicit CameraUsbDevice(PKSDEVICE device) : UsbCaptureDevice(device) {}

  std::size_t GetPipelineSize() override;
  std::uint8_t AnyTransferInFlight() override;
  void AttachPipeline() override;
  void DetachPipeline() override;
  NTSTATUS CreateStreamResources() override;
  NTSTATUS ReleaseStreamResources() override;
  NTSTATUS StartTransfers() override;
  NTSTATUS DrainTransfers() override;

  IsoPipeline* Pipeline = nullptr;

 private:
  NTSTATUS AllocateStreamResources();
  void ReleaseRawBuffers();
};

/// Creates the object for a device found by plug and play, and binds it.
/// @return STATUS_INSUFFICIENT_RESOURCES, or what Bind() gave
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS AddCameraDevice(PKSDEVICE device);

}  // namespace lidcam
