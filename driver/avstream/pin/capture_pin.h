#pragma once

#include <cstdint>

#include "driver/avstream/descriptors/filter_descriptors.h"
#include "driver/avstream/device/capture_device.h"
#include "driver/avstream/device/rundown.h"
#include "driver/core/base/shared_value.h"
#include "driver/core/record/camera_context.h"
#include "platform/kernel.h"

namespace lidcam {

/// The object behind a connected pin: it checks the format, takes the stream through the platform's
/// states, and delivers the frames. Allocated by the pin's create entry, owned by the pin's bag.
///
/// State changes come one at a time, and Process() one at a time, but the two run concurrently.
/// The order of the virtual operations is part of the design.
class CapturePin {
 public:
  CapturePin(PKSPIN pin, CaptureDevice* device);
  CapturePin(const CapturePin&) = delete;
  CapturePin& operator=(const CapturePin&) = delete;

  /// Links the object to its pin and requests buffers of one picture each.
  /// @return STATUS_INSUFFICIENT_RESOURCES, or the platform's status. Until the pin's Context is
  ///         this object the caller frees its memory, afterwards the bag does.
  _IRQL_requires_max_(PASSIVE_LEVEL)
  virtual NTSTATUS Create(PKSPIN pin, PIRP irp);

  /// Nonzero while a raw frame is being read. Any thread.
  virtual std::uint8_t IsProcessing();

  virtual NTSTATUS Close(PKSPIN pin, PIRP irp);

  /// Delivers the raw frame last published in the next empty buffer.
  ///
  /// The first two calls after a stream ran from stop deliver nothing.
  ///
  /// @return STATUS_PENDING for a frame delivered, so that the platform waits for the next attempt;
  ///         STATUS_UNSUCCESSFUL for none
  /// @par Blocks for the exposure control's requests, at whatever level the platform calls it
  virtual NTSTATUS Process(PKSPIN pin);

  virtual void Reset(PKSPIN pin);

  /// Takes over the connection's format, which has been checked.
  /// @return STATUS_INSUFFICIENT_RESOURCES, with the old format kept
  virtual NTSTATUS SetDataFormat(PKSPIN pin, PKSDATAFORMAT oldFormat,
                                 PKSMULTIPLE_ITEM oldAttributes, const KSDATARANGE* dataRange,
                                 const KSATTRIBUTE_LIST* attributeRange);

  /// See capture_pin_states.h.
  _IRQL_requires_max_(PASSIVE_LEVEL)
  virtual NTSTATUS SetDeviceState(PKSPIN pin, KSSTATE to, KSSTATE from);

  virtual NTSTATUS SetProperty(PIRP irp, PKSIDENTIFIER request, PVOID data);

  /// @param data  becomes a KSPROPERTY_DROPPEDFRAMES_CURRENT_S
  /// @return STATUS_NOT_SUPPORTED for any other property
  virtual NTSTATUS GetDroppedFrames(PIRP irp, PKSIDENTIFIER request, PVOID data);

  /// The pin's event can't be enabled: always STATUS_NOT_SUPPORTED.
  virtual NTSTATUS AddEvent(PIRP irp, PKSEVENTDATA eventData, KSEVENT_ENTRY* eventEntry);

  /// Releases the device's stream slot and the clock, if the pin has them. Waits for a frame that
  /// is reading the clock.
  _IRQL_requires_max_(PASSIVE_LEVEL)
  void GiveUpStream();

  PKSPIN Pin;
  CaptureDevice* Device;
  /// stream control | frame path: own copy of the connection's, at least a whole structure
  Shared<PKS_VIDEOINFOHEADER> VideoInfo{nullptr};
  IKsReferenceClock* Clock = nullptr;         ///< referenced while HasClock is set
  KS_FRAME_INFO FrameInfo{};                  ///< copied into the next frame's header
  Shared<KSSTATE> StreamState{KSSTATE_STOP};  ///< stream control | frame path: stop, pause or run
  std::uint8_t Acquired = 0;                  ///< this pin holds the device's stream slot
  std::uint8_t HasClock = 0;
  CameraContext* Camera = nullptr;       ///< used only while the device's record is held
  std::uint32_t PublishedFrameSize = 0;  ///< bytes, of the raw frame last seen
  volatile LONG ProcessingCount = 0;     ///< nonzero while a raw frame is being read
  LONGLONG* FrameCounter = nullptr;      ///< since the last start: two skipped calls, then frames
  Time100ns LastPresentationTime = 0;
  Time100ns ExpectedFrameTime = 0;  ///< a sum that is never read
  Time100ns LastClockTime = 0;      ///< never read

 protected:
  ~CapturePin() = default;

 private:
  class ClockHold;
  class NumbersLock;

  KS_VIDEOINFOHEADER* CopyVideoInfo();
  NTSTATUS CreateFrameCounter();
  NTSTATUS EditDescriptor();

  NTSTATUS StopStream();
  NTSTATUS AcquireStream();
  NTSTATUS PauseStream();
  NTSTATUS RunStream(NTSTATUS result);
  void TakeClock();
  void ReleaseClock();

  bool SkipsFrame();
  void NoteClockTime(Time100ns now, Time100ns interval);
  NTSTATUS DeliverRawFrame(PKSSTREAM_POINTER& frame);
  KS_FRAME_INFO CompleteHeader(KSSTREAM_HEADER& header, IKsReferenceClock* clock);

  KSPIN_LOCK numbersLock_;  ///< protects counts, times and FrameInfo
  Rundown clockUse_;        ///< its users are frames that read the clock
};

/// The pin's parts of the descriptor that the filter adds.
extern const PinEntries kPinEntries;

/// The pin's operations for the device.
extern const PinOperations kPinOperations;

}  // namespace lidcam
