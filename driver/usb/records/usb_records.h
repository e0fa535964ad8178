#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "driver/core/base/reference_counted_memory.h"
#include "driver/core/base/shared_value.h"
#include "driver/core/record/camera_context.h"
#include "driver/core/settings/settings_store.h"
#include "driver/frame/assembly/frame_assembly.h"
#include "platform/kernel.h"

namespace lidcam {

struct IsoPipeline;
struct UsbDeviceRecord;
struct UsbStreamRecord;

/// The camera core's transport context, which it passes with every request.
struct TransportRecord {
  TransportRecordHead Head;  ///< "SYQR" and the three device objects, copied from the KSDEVICE
  UsbDeviceRecord* Device;
};

/// One pipe of the first interface. Only the bulk engine works on the lists.
struct PipeRecord {
  std::uint8_t PipeType;            ///< a USBD_PIPE_TYPE
  std::uint8_t DirectionIn;         ///< bit 7 of the endpoint address: 1 for IN
  std::uint16_t MaximumPacketSize;  ///< at configuration; a change of the setting doesn't update it
  KSPIN_LOCK Lock;                  ///< protects the two lists; nests in nothing
  LIST_ENTRY ActiveList;            ///< BulkTransfers on the bus
  LIST_ENTRY PendingList;           ///< BulkTransfers to restart
};

/// One transfer of an arbitrary length over a bulk or interrupt pipe.
struct BulkTransfer {
  char Signature[4];  ///< "BUQR"
  std::uint32_t Outstanding;
  LIST_ENTRY Link;  ///< in the pipe's ActiveList or PendingList
  std::uint8_t* BounceBuffer;
  _URB_BULK_OR_INTERRUPT_TRANSFER* Urb;
  PIRP Irp;
  std::uint32_t Remaining;
  std::uint32_t ChunkSize;
  std::uint32_t Transferred;
  std::uint8_t* Cursor;
  std::uint8_t* UserBuffer;
  std::uint32_t PipeNumber;
  std::uint8_t Bounced;
  KEVENT DoneEvent;
  std::uint8_t Flags;
  std::uint8_t Repeat;
  void (*Callback)(CameraContext* camera, void* context, NTSTATUS status);
  void* CallbackContext;
  UsbDeviceRecord* Device;
  UsbStreamRecord* Stream;  ///< null: a standalone transfer
  std::uint32_t Room;       ///< bytes of the caller's memory at UserBuffer
};

/// One of the isochronous transfers that circulate between the USB stack and the frame thread.
///
/// What the USB stack and the frame thread use of it is `Memory`: the data bytes and behind them
/// the URB (together the memory's block), and the IRP. The stream's release gives it up. The
/// completion routine's context is the ReferenceCountedMemory, whose Owner is this record, so that
/// a transfer that completes after its stream's release can be told from one of the next stream:
/// once the memory is given up, this record, and even the device, may be gone.
struct IsoTransfer {
  char Signature[4];  ///< "ISQR"; never checked
  LIST_ENTRY Link;    ///< in the pipeline's CompletedList
  volatile LONG
      InFlight;  ///< above 0 while the USB stack owns it; a send that fails lowers it twice
  void* Buffer;  ///< start of the data bytes; the release doesn't change it
  _URB_ISOCH_TRANSFER* Urb;  ///< null once released
  PIRP Irp;                  ///< null once released
  UsbDeviceRecord* Device;
  UsbStreamRecord* Stream;
  IsoPipeline* Pipeline;   ///< lives as long as the device, even after the hardware has stopped
  std::uint32_t DataSize;  ///< bytes at `Buffer`, up to the URB
  ReferenceCountedMemory* Memory;  ///< the release doesn't change it, for its other holders
  std::uint8_t OwnsMemory;         ///< the stream has not given `Memory` up
};

/// The isochronous pipeline. Lies behind the stream record, with the transfers behind it.
struct IsoPipeline {
  std::uint32_t PacketsPerTransfer;  ///< 32, or 4 on old platforms
  /// stream control | frame thread: the thread is to end; set under CompletedLock
  Shared<std::uint8_t> StopRequested;
  PVOID Thread;                  ///< referenced thread object; null if there is none
  LIST_ENTRY CompletedList;      ///< completed IsoTransfers, oldest first
  KSPIN_LOCK CompletedLock;      ///< protects the list; nests in nothing
  KSEMAPHORE WakeSemaphore;      ///< a count for each queued transfer, one more for the stop
  KSEMAPHORE DoneSemaphore;      ///< released by the frame thread as its last act
  volatile LONG CompletedCount;  ///< entries of CompletedList
  IsoTransfer* Transfers;        ///< TransferCount of them, behind this record
  std::uint8_t ThreadStarted;    ///< there is a frame thread to wait for
};

/// All USB state of a device.
struct UsbDeviceRecord {
  char Signature[4];  ///< "DVQR"; never checked
  UsbStreamRecord* Stream;
  volatile LONG ResetGuard;  ///< recoveries under way minus 1; 0 until the descriptors are read
  std::int32_t WdmLevel;     ///< 1 to 5
  KSEMAPHORE UrbLock;        ///< one synchronous request at a time
  Shared<std::uint8_t> DeviceOpen;  ///< stream control | frame thread: the records are usable
  std::uint32_t DeviceClass;
  std::uint32_t SpeedClass;
  std::uint32_t TransferCount;
  std::int32_t FormatListIndex;
  std::int32_t FormatCount;
  std::uint32_t AlternateSettingLimit;
  std::uint8_t SearchDownward;
  PKSDEVICE KsDevice;
  USBD_CONFIGURATION_HANDLE ConfigurationHandle;
  std::uint8_t* DeviceDescriptor;                    ///< 18 bytes as the device sent them
  USBD_INTERFACE_INFORMATION* InterfaceInformation;  ///< as of the setting in force; may be null
  std::uint32_t RecoveryPipeIndex;                   ///< 0: nothing writes it
  Shared<std::uint8_t> Connected;  ///< stream control | frame thread, ticks: the device is there
  Shared<KSPIN*> Pin;              ///< stream control | frame thread: of the stream; never cleared
  CameraContext* Camera;
  std::uint32_t LongConfigDescriptor;  ///< 1: wTotalLength was 193
  std::uint32_t PipeCount;             ///< of PipeTable; a later setting may have more pipes
  PipeRecord* PipeTable;               ///< may be null; freed with the device
  volatile LONG* WorkItems;            ///< of the device's object: count of those not finished
};

/// Bits of UsbStreamRecord::WaitFlags. Read and written without atomic steps from several threads.
enum WaitFlag : std::uint32_t {
  StopWaitArmed = 1,    ///< DrainTransfers() waits on StopEvent
  ResetWaitArmed = 2,   ///< RecoverStream() waits on ResetEvent
  WatchdogRunning = 4,  ///< the watchdog arms itself again
};

/// One recovery that is queued or runs.
struct StreamResetItem {
  PIO_WORKITEM WorkItem;
  UsbStreamRecord* Stream;
};

/// The one stream of a device: all its streams use the same record in turn.
struct UsbStreamRecord {
  char Signature[4];  ///< "CHQR"; never checked
  UsbDeviceRecord* Device;
  Shared<std::uint32_t> WaitFlags;  ///< stream control | ticks, completions: lidcam::WaitFlag bits
  /// completions | ticks, stream control: a transfer has failed, nothing is queued any more
  Shared<std::uint8_t> Halted;
  /// stream control | recoveries: a pause stopped the transfers, a start rebuilds them
  Shared<std::uint8_t> RestartPending;
  /// stream control | completions, ticks, frame thread: transfers circulate
  Shared<std::uint8_t> StreamRunning;
  /// stream control | recoveries: thread, buffers and transfers exist
  Shared<std::uint8_t> Opened;
  FrameAssembly Assembly;  ///< DiscardFrame, BadFrameEnd, ForcePublish, the raw buffers
  KEVENT ResetEvent;
  KEVENT StopEvent;
  KTIMER WatchdogTimer;
  KDPC WatchdogDpc;
  volatile LONG WatchdogChain;  ///< 1 while a tick that arms itself again is still to come
  volatile LONG RunningTicks;   ///< ticks that have begun and may still use this record
  /// recoveries | frame thread: entry of InterfaceInformation; 1 until a recovery
  Shared<std::uint32_t> PipeIndex;
  StreamResetItem* ResetWorkItem;  ///< the last one; may be freed already
  std::uint32_t NextStartFrame;
  FormatRequest StreamFormat;     ///< in force, with the alternate setting that the interface has
  Shared<IsoPipeline*> Pipeline;  ///< stream control | ticks: null once the hardware was stopped
  ReferenceCountedMemory* RawMemory;  ///< the raw buffers, as long as the stream owns them
};

/// The stream's transfers; none once the hardware was stopped.
inline std::span<IsoTransfer> TransfersOf(const UsbStreamRecord& stream) {
  const IsoPipeline* const pipeline = stream.Pipeline;
  if (pipeline == nullptr) return {};
  return {pipeline->Transfers, stream.Device->TransferCount};
}

/// True while requests may be sent to the device.
inline bool IsDeviceUsable(const UsbDeviceRecord& device) {
  return device.DeviceOpen != 0 && device.Connected != 0;
}

/// Sets and clears bits of WaitFlags: a load and a store, as in all its users.
inline void SetWaitFlag(UsbStreamRecord& stream, WaitFlag flag) {
  const std::uint32_t flags = stream.WaitFlags;
  stream.WaitFlags = flags | flag;
}
inline void ClearWaitFlag(UsbStreamRecord& stream, WaitFlag flag) {
  const std::uint32_t flags = stream.WaitFlags;
  stream.WaitFlags = flags & ~static_cast<std::uint32_t>(flag);
}
inline bool HasWaitFlag(const UsbStreamRecord& stream, WaitFlag flag) {
  const std::uint32_t flags = stream.WaitFlags;
  return (flags & flag) != 0;
}

/// Entry `index` of the pipes of the setting in force; null if there is none.
inline USBD_PIPE_INFORMATION* PipeInformationOf(USBD_INTERFACE_INFORMATION* information,
                                                std::uint32_t index) {
  if (information == nullptr || index >= information->NumberOfPipes) return nullptr;
  return information->Pipes + index;
}

/// The pipe that the stream uses at present; null if there is none.
inline USBD_PIPE_INFORMATION* StreamPipe(const UsbStreamRecord& stream) {
  return PipeInformationOf(stream.Device->InterfaceInformation, stream.PipeIndex);
}

}  // namespace lidcam
