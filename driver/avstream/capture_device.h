#pragma once

#include <cstdint>

#include "driver/core/camera_context.h"
#include "driver/core/held_memory.h"
#include "driver/core/shared_value.h"
#include "driver/frame/frame_assembly.h"
#include "platform/kernel.h"

namespace lidcam {

struct TransportRecord;

/// What the device's side needs of the pin that consumes its frames. The pins' code sets it; without
/// it nobody consumes.
struct PinOperations {
  /// Nonzero while the pin reads a raw frame. Any thread.
  std::uint8_t (*IsProcessing)(PKSPIN pin);
  /// Gives the pin the format that stands in its ConnectionFormat. Passive level.
  NTSTATUS (*ApplyFormat)(PKSPIN pin);
};

/// The device as plug and play, power and the pins see it: what is independent of the bus. All
/// hardware work is left to the virtual operations.
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
  /// Saves the settings, destroys the camera record and takes the hardware's state down.
  virtual NTSTATUS StopHardware() = 0;
  /// @param reason  0 removed, 3 surprise removal: nothing reaches the device from here, and a
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
  /// Brings all transfers home.
  virtual NTSTATUS PauseStream() = 0;

  virtual NTSTATUS PowerDown(DEVICE_POWER_STATE state, DEVICE_POWER_STATE from) = 0;
  virtual NTSTATUS PowerUp(DEVICE_POWER_STATE state, DEVICE_POWER_STATE from,
                           PKS_VIDEOINFOHEADER videoInfo) = 0;

  /// Gives the object to the device's bag, links it to the device and finds out the platform's level.
  virtual NTSTATUS Bind(PKSDEVICE device);

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
  /// Has no result: what fails inside is not reported, and DevicePowerState moves on regardless.
  virtual void PowerSet(PKSDEVICE device, PIRP irp, DEVICE_POWER_STATE to, DEVICE_POWER_STATE from);

  /// Properties of the camera's property sets. While none is registered every request is
  /// STATUS_NOT_SUPPORTED, and STATUS_UNSUCCESSFUL while the hardware has not started.
  virtual NTSTATUS SetCameraProperty(PIRP irp, void* request, void* data);
  virtual NTSTATUS GetCameraProperty(PIRP irp, void* request, void* data);

  /// Claims the device's single stream for a pin.
  /// @return STATUS_SHARING_VIOLATION, with nothing changed, if it is taken
  /// @par Any thread
  NTSTATUS AcquireStreamSlot(PKSPIN pin, PKS_VIDEOINFOHEADER videoInfo);
  void ReleaseStreamSlot();

  /// Stores a finished raw frame; null and 0 take back whatever was shown.
  /// @par Any thread
  void PublishRawFrame(std::uint8_t* buffer, std::uint32_t size);

  /// The raw frame last published, or null. It stays published.
  /// @par Any thread; who reads the frame's bytes takes HoldRawFrame()
  std::uint8_t* GetRawFrame(std::uint32_t& size) const;

  /// As GetRawFrame(), with a hold on the memory that the frame lies in: it stays readable until the
  /// caller lets go, whatever becomes of the stream.
  ///
  /// @param memory  to be let go of by the caller; null if there is no frame
  /// @return null if there is no frame
  /// @par Callable at dispatch level and below
  std::uint8_t* HoldRawFrame(std::uint32_t& size, HeldMemory*& memory);

  /// Says which memory the raw frames lie in from now on; null for none. The owner gives a memory up
  /// only after it was taken back here.
  /// @par Callable at dispatch level and below
  void SetFrameMemory(HeldMemory* memory);

  Shared<DEVICE_POWER_STATE> DevicePowerState{PowerDeviceD0};  ///< last state taken over
  PKSDEVICE KsDevice;
  void* FilterDescriptor = nullptr;               ///< built at start, owned by the device's bag
  PKS_VIDEOINFOHEADER StreamVideoInfo = nullptr;  ///< of the pin that has the stream slot
  Shared<CameraContext*> Camera{nullptr};
  TransportRecord* Transport = nullptr;  ///< what the camera record knows as its transport
  PublishedFrame Published{};
  Shared<std::uint8_t> HardwareStarted{0};
  volatile LONG StreamSlot = 0;  ///< 1 while a pin holds the single stream
  std::int32_t WdmLevel = 0;     ///< 1 to 5, see Bind()
  Shared<const PinOperations*> Pins{nullptr};

 protected:
  explicit CaptureDevice(PKSDEVICE device);
  ~CaptureDevice() = default;

 private:
  KSPIN_LOCK frameMemoryLock_;
  HeldMemory* frameMemory_ = nullptr;
};

/// The object that a KSDEVICE carries.
inline CaptureDevice* CaptureDeviceOf(PKSDEVICE device) {
  return static_cast<CaptureDevice*>(device->Context);
}

}  // namespace lidcam
