#pragma once

#include <cstdint>

#include "driver/avstream/device/rundown.h"
#include "driver/core/base/reference_counted_memory.h"
#include "driver/core/base/shared_value.h"
#include "driver/core/record/camera_context.h"
#include "driver/frame/assembly/frame_assembly.h"
#include "platform/kernel.h"

namespace lidcam {

struct TransportRecord;

/// Operations of the pin that consumes the device's frames, called by the device. Set by the pins'
/// code; without it no frame is consumed.
struct PinOperations {
  /// Nonzero while the pin reads a raw frame. Any thread.
  std::uint8_t (*IsProcessing)(PKSPIN pin);
  /// Applies the format in the pin's ConnectionFormat. Passive level.
  NTSTATUS (*ApplyFormat)(PKSPIN pin);
};

/// Handlers of the filter that the device shows to applications. Set by the filter's code.
struct FilterEntries {
  const KSFILTER_DISPATCH* Dispatch;
  const KSAUTOMATION_TABLE* AutomationTable;
};

/// The part of the device that is independent of the bus, as plug and play, power and the pins use
/// it. All hardware work is done by the virtual operations.
///
/// The order of the virtual operations is part of the design: slots 0 to 27 here. No virtual
/// destructor, which would take a slot: the object is destroyed by the platform's object bag.
class CaptureDevice {
 public:
  CaptureDevice(const CaptureDevice&) = delete;
  CaptureDevice& operator=(const CaptureDevice&) = delete;

  /// Which of the two format lists the pin offers, and how many formats of it.
  virtual std::int32_t GetFormatListIndex() = 0;
  virtual std::int32_t GetFormatCount() = 0;

  /// Brings the hardware up and creates the camera record. Passive level, once per device start.
  virtual NTSTATUS StartHardware(PKSDEVICE device) = 0;
  /// Saves the settings, destroys the camera record and releases the hardware's state.
  virtual NTSTATUS StopHardware() = 0;
  /// @param reason  0 removed, 3 surprise removal: nothing is sent to the device from now on, and a
  ///                prepared stream is paused and released; 1 and 2 do nothing; above 3
  ///                STATUS_NOT_IMPLEMENTED
  virtual NTSTATUS OnDeviceGone(std::uint32_t reason) = 0;

  /// Prepares a stream for `pin`: format, alternate setting, mode, thread, buffers, transfers.
  virtual NTSTATUS AcquireStream(PKSPIN pin, PKS_VIDEOINFOHEADER videoInfo) = 0;
  /// Starts the transfers of a prepared stream. A failure releases the stream.
  virtual NTSTATUS RunStream() = 0;
  /// Undoes AcquireStream().
  virtual NTSTATUS ReleaseStream() = 0;
  /// Runs a stream that was paused; 0 for any other.
  virtual NTSTATUS ResumeStream() = 0;
  /// Drains the stream's transfers.
  virtual NTSTATUS PauseStream() = 0;

  virtual NTSTATUS PowerDown(DEVICE_POWER_STATE state, DEVICE_POWER_STATE from) = 0;
  virtual NTSTATUS PowerUp(DEVICE_POWER_STATE state, DEVICE_POWER_STATE from,
                           PKS_VIDEOINFOHEADER videoInfo) = 0;

  /// Adds the object to the device's bag, links it to the device and determines the platform's
  /// level.
  virtual NTSTATUS Bind(PKSDEVICE device);

  /// Shows the filter to applications and, unless the platform has to finish its own start first,
  /// starts the hardware. `Filter` is set by then.
  ///
  /// @return STATUS_DEVICE_DATA_ERROR for a device that is started already; the status of
  ///         StartHardware() if it was called here, even if there is no filter: a failed filter is
  ///         not reported then
  virtual NTSTATUS PnpStart(PKSDEVICE device, PIRP irp, PCM_RESOURCE_LIST translated,
                            PCM_RESOURCE_LIST untranslated);
  virtual NTSTATUS PnpPostStart(PKSDEVICE device);
  virtual NTSTATUS PnpQueryStop(PKSDEVICE device, PIRP irp);
  virtual void PnpCancelStop(PKSDEVICE device, PIRP irp);
  virtual void PnpStop(PKSDEVICE device, PIRP irp);
  virtual NTSTATUS PnpQueryRemove(PKSDEVICE device, PIRP irp);
  virtual void PnpCancelRemove(PKSDEVICE device, PIRP irp);
  virtual void PnpRemove(PKSDEVICE device, PIRP irp);
  virtual void PnpSurpriseRemoval(PKSDEVICE device, PIRP irp);
  virtual NTSTATUS PnpQueryCapabilities(PKSDEVICE device, PIRP irp,
                                        PDEVICE_CAPABILITIES capabilities);
  virtual NTSTATUS PnpQueryInterface(PKSDEVICE device, PIRP irp);
  virtual NTSTATUS PowerQuery(PKSDEVICE device, PIRP irp, DEVICE_POWER_STATE deviceTo,
                              DEVICE_POWER_STATE deviceFrom, SYSTEM_POWER_STATE systemTo,
                              SYSTEM_POWER_STATE systemFrom, POWER_ACTION action);
  /// Returns nothing: failures are not reported, and DevicePowerState changes regardless.
  virtual void PowerSet(PKSDEVICE device, PIRP irp, DEVICE_POWER_STATE to, DEVICE_POWER_STATE from);

  /// A request for one of the camera's properties, see property_requests.h. It holds the camera's
  /// record; the hardware is stopped only after the request has been answered.
  ///
  /// @param request  a KSIDENTIFIER, followed by the data that belong to the property
  /// @param data     the value block, as long as the request's OutputBufferLength
  /// @return STATUS_UNSUCCESSFUL while the hardware has not started
  _IRQL_requires_max_(PASSIVE_LEVEL)
  virtual NTSTATUS SetCameraProperty(PIRP irp, void* request, void* data);
  _IRQL_requires_max_(PASSIVE_LEVEL)
  virtual NTSTATUS GetCameraProperty(PIRP irp, void* request, void* data);

  /// Claims the device's single stream for a pin.
  /// @return STATUS_SHARING_VIOLATION, with nothing changed, if it is taken
  /// @par Any thread
  NTSTATUS AcquireStreamSlot(PKSPIN pin, PKS_VIDEOINFOHEADER videoInfo);
  void ReleaseStreamSlot();

  /// The camera's record, which stays valid until LetGoOfCamera(); null without a camera. Not for a
  /// thread that stops the hardware. A thread that needs the device's mutex takes it first: a
  /// holder never waits for it. See CameraHold.
  _IRQL_requires_max_(DISPATCH_LEVEL)
  CameraContext* HoldCamera();
  _IRQL_requires_max_(DISPATCH_LEVEL)
  void LetGoOfCamera();

  /// For a thread that has stopped for good while it held the record: TakeCamera() no longer waits
  /// for it.
  ///
  /// A thread without a hold, such as a recovery's, is counted as well. It stops with the device's mutex
  /// held, and a removal waits for that mutex before it takes the record out of use.
  _IRQL_requires_max_(PASSIVE_LEVEL)
  void AbandonCamera();

  /// Stores a finished raw frame; null and 0 withdraw the frame published before.
  /// @par Any thread
  void PublishRawFrame(std::uint8_t* buffer, std::uint32_t size) {
    lidcam::PublishRawFrame(Published, buffer, size);
  }

  /// The raw frame last published, or null. It stays published.
  /// @par Any thread; to read the frame's bytes, use HoldRawFrame()
  std::uint8_t* GetRawFrame(std::uint32_t& size) const {
    return lidcam::GetRawFrame(Published, size);
  }

  /// As GetRawFrame(), with a reference to the frame's memory: it stays readable until the caller
  /// releases it, even if the stream ends.
  ///
  /// @param memory  to be released by the caller; null if there is no frame
  /// @return null if there is no frame
  _IRQL_requires_max_(DISPATCH_LEVEL)
  std::uint8_t* HoldRawFrame(std::uint32_t& size, ReferenceCountedMemory*& memory);

  /// Sets the memory that holds the raw frames from now on; null for none. The owner releases a
  /// memory only after it has been replaced here.
  _IRQL_requires_max_(DISPATCH_LEVEL)
  void SetFrameMemory(ReferenceCountedMemory* memory);

  /// power | stream control: last state taken over
  Shared<DEVICE_POWER_STATE> DevicePowerState{PowerDeviceD0};
  PKSDEVICE KsDevice;
  KSFILTER_DESCRIPTOR* FilterDescriptor = nullptr;  ///< built at start, owned by the device's bag
  /// stream control | power: of the pin that holds the stream slot
  Shared<PKS_VIDEOINFOHEADER> StreamVideoInfo{nullptr};
  Shared<CameraContext*> Camera{nullptr};              ///< stream control | requests, frame path
  lidcam::TransportRecord* TransportRecord = nullptr;  ///< the camera record's transport context
  PublishedFrame Published{};
  Shared<std::uint8_t> HardwareStarted{0};  ///< stream control | requests
  volatile LONG StreamSlot = 0;             ///< 1 while a pin holds the single stream
  std::int32_t WdmLevel = 0;                ///< 1 to 5, see Bind()
  const PinOperations* Pins = nullptr;      ///< set before the device starts
  const FilterEntries* Filter = nullptr;    ///< set before the device starts

 protected:
  explicit CaptureDevice(PKSDEVICE device);
  ~CaptureDevice() = default;

  /// Takes the camera's record out of use: waits for its holders and returns it, or null if there
  /// is none.
  /// @par The caller has acquired the device's mutex first, and may
  /// have released it since: see AbandonCamera()
  _IRQL_requires_max_(PASSIVE_LEVEL)
  CameraContext* TakeCamera();

  /// Waits, without a limit, until no work item of the device's is queued or runs: the records that it
  /// uses, and this image, stay until then.
  /// @par Without the device's mutex
  _IRQL_requires_max_(PASSIVE_LEVEL)
  void WaitForWorkItems();

  volatile LONG workItems_ =
      0;  ///< incremented before one is queued, decremented by its last access to our data

 private:
  NTSTATUS PublishFilter(PKSDEVICE device);
  NTSTATUS StartAndNote(PKSDEVICE device);

  Rundown cameraUse_;
  KSPIN_LOCK frameMemoryLock_;
  ReferenceCountedMemory* frameMemory_ = nullptr;
};

/// Keeps a device's camera record for a scope.
class CameraHold {
 public:
  explicit CameraHold(CaptureDevice& device) : device_(device), camera_(device.HoldCamera()) {}
  CameraHold(const CameraHold&) = delete;
  CameraHold& operator=(const CameraHold&) = delete;
  ~CameraHold() {
    if (camera_ != nullptr) device_.LetGoOfCamera();
  }

  /// Null if there is no record any more.
  [[nodiscard]] CameraContext* Camera() const { return camera_; }

 private:
  CaptureDevice& device_;
  CameraContext* const camera_;
};

/// The object that a KSDEVICE carries.
inline CaptureDevice* CaptureDeviceOf(PKSDEVICE device) {
  return static_cast<CaptureDevice*>(device->Context);
}

}  // namespace lidcam
