#pragma once

#include <cstddef>
#include <cstdint>

#include "driver/avstream/device/capture_device.h"
#include "driver/usb/records/usb_records.h"
#include "platform/kernel.h"

namespace lidcam {

/// A capture device on the USB: the order in which its hardware and its stream start and stop. The
/// isochronous pipeline itself is left to slots 29 to 36.
///
/// Stream control comes from one pin's state changes, one at
/// a time, and meets a recovery at the device's mutex. The mutex is taken ahead of a hold on the
/// camera's record: a start, under the mutex, waits for all holds. (PowerDown() is called with the
/// mutex held.) A start beside an open pin exchanges the stream's record and may leave none: after
/// waiting for the mutex, read `UsbStream` again.
class UsbCaptureDevice : public CaptureDevice {
 public:
  std::int32_t GetFormatListIndex() override;
  std::int32_t GetFormatCount() override;
  _IRQL_requires_max_(PASSIVE_LEVEL)
  NTSTATUS StartHardware(PKSDEVICE device) override;
  _IRQL_requires_max_(PASSIVE_LEVEL)
  NTSTATUS StopHardware() override;
  _IRQL_requires_max_(PASSIVE_LEVEL)
  NTSTATUS OnDeviceGone(std::uint32_t reason) override;
  _IRQL_requires_max_(PASSIVE_LEVEL)
  NTSTATUS AcquireStream(PKSPIN pin, PKS_VIDEOINFOHEADER videoInfo) override;
  _IRQL_requires_max_(PASSIVE_LEVEL)
  NTSTATUS RunStream() override;
  _IRQL_requires_max_(PASSIVE_LEVEL)
  NTSTATUS ReleaseStream() override;
  _IRQL_requires_max_(PASSIVE_LEVEL)
  NTSTATUS ResumeStream() override;
  _IRQL_requires_max_(PASSIVE_LEVEL)
  NTSTATUS PauseStream() override;
  _IRQL_requires_max_(PASSIVE_LEVEL)
  NTSTATUS PowerDown(DEVICE_POWER_STATE state, DEVICE_POWER_STATE from) override;
  _IRQL_requires_max_(PASSIVE_LEVEL)
  NTSTATUS PowerUp(DEVICE_POWER_STATE state, DEVICE_POWER_STATE from,
                   PKS_VIDEOINFOHEADER videoInfo) override;

  /// Takes over a video format and chooses the alternate setting for it.
  _IRQL_requires_max_(PASSIVE_LEVEL)
  virtual NTSTATUS SetStreamFormat(PKS_VIDEOINFOHEADER videoInfo);

  /// Bytes of an IsoPipeline with the device's number of transfers.
  virtual std::size_t GetPipelineSize() = 0;
  virtual std::uint8_t AnyTransferInFlight() = 0;
  /// Initializes the pipeline that lies behind the stream record.
  virtual void AttachPipeline() = 0;
  virtual void DetachPipeline() = 0;
  /// Frame thread, raw buffers and transfers. Under the device's mutex.
  virtual NTSTATUS CreateStreamResources() = 0;
  virtual NTSTATUS ReleaseStreamResources() = 0;
  virtual NTSTATUS StartTransfers() = 0;
  virtual NTSTATUS DrainTransfers() = 0;

  // A start on top of a start exchanges them while open pins' stream control may run. The records
  // of every start live as long as the device's bag.
  /// start | stream control of open pins: null until StartHardware()
  Shared<UsbDeviceRecord*> UsbDevice{nullptr};
  /// start | stream control of open pins: null until StartHardware()
  Shared<UsbStreamRecord*> UsbStream{nullptr};

 protected:
  using CaptureDevice::CaptureDevice;
  ~UsbCaptureDevice() = default;

 private:
  NTSTATUS AllocateRecords(PKSDEVICE device);
  void FillRecords(PKSDEVICE device);
  void KeepPipeTable();
  NTSTATUS CreateCamera();
  NTSTATUS CreateStreamRecord();
  void FailStart();
  void EndLastStart();
  void CloseStreamRecord();
  void CloseDeviceRecord();
  void ResetStreamState();
  void FreeDescriptors();

  bool IsConnected() const;
  NTSTATUS PrepareStream();
  NTSTATUS StartLocked();
  NTSTATUS PauseLocked();
  NTSTATUS UnprepareStream();
  void IdleInterface();
};

}  // namespace lidcam
