#include "driver/usb/stream/usb_capture_device.h"

#include <cstring>
#include <new>

#include "driver/core/base/camera_memory.h"
#include "driver/core/base/camera_trace.h"
#include "driver/core/control/camera_lifecycle.h"
#include "driver/core/control/stream_modes.h"
#include "driver/core/settings/settings_store.h"
#include "driver/sensor/controls/power_and_led.h"
#include "driver/usb/requests/control_requests.h"
#include "driver/usb/requests/usb_configuration.h"
#include "driver/usb/stream/stream_reconfigure.h"
#include "driver/usb/transfers/bulk_transfers.h"
#include "driver/usb/transfers/stream_recovery.h"

namespace lidcam {
namespace {

// Entry of the interface's pipes that carries the picture; entry 0 is the interrupt pipe.
constexpr std::uint32_t kStreamPipeIndex = 1;

constexpr std::uint32_t kSurpriseRemoved = 3;

class DeviceMutex {
 public:
  explicit DeviceMutex(PKSDEVICE device) : device_(device) { KsAcquireDevice(device_); }
  DeviceMutex(const DeviceMutex&) = delete;
  DeviceMutex& operator=(const DeviceMutex&) = delete;
  ~DeviceMutex() { KsReleaseDevice(device_); }

 private:
  PKSDEVICE device_;
};

template <typename T>
T* AllocateRecord() {
  void* const memory = AllocateCameraMemory(sizeof(T));
  return memory != nullptr ? ::new (memory) T{} : nullptr;
}

// Offset of the pipeline behind the stream record.
constexpr std::size_t PipelineOffset() {
  return (sizeof(UsbStreamRecord) + alignof(IsoPipeline) - 1) & ~(alignof(IsoPipeline) - 1);
}

CaptureDevice& DeviceOf(const UsbStreamRecord& stream) {
  return *CaptureDeviceOf(stream.Device->KsDevice);
}

std::uint8_t SinkIsProcessing(void* context) {
  const UsbStreamRecord& stream = *static_cast<UsbStreamRecord*>(context);
  const PinOperations* const pins = DeviceOf(stream).Pins;
  KSPIN* const pin = stream.Device->Pin;
  return pins != nullptr && pin != nullptr ? pins->IsProcessing(pin) : std::uint8_t{0};
}

void SinkPublishRawFrame(void* context, std::uint8_t* buffer, std::uint32_t size) {
  PublishRawFrame(DeviceOf(*static_cast<UsbStreamRecord*>(context)).Published, buffer, size);
}

std::uint8_t SinkStreamRunning(void* context) {
  return static_cast<UsbStreamRecord*>(context)->StreamRunning;
}

void SinkWakeConsumer(void* context) {
  KSPIN* const pin = static_cast<UsbStreamRecord*>(context)->Device->Pin;
  if (pin != nullptr) KsPinAttemptProcessing(pin, TRUE);
}

void FillTransport(TransportRecord& transport, PKSDEVICE device, UsbDeviceRecord* record) {
  std::memcpy(transport.Head.Signature, "SYQR", sizeof(transport.Head.Signature));
  transport.Head.NextDeviceObject = device->NextDeviceObject;
  transport.Head.PhysicalDeviceObject = device->PhysicalDeviceObject;
  transport.Head.FunctionalDeviceObject = device->FunctionalDeviceObject;
  transport.Device = record;
}

void AbandonCamera(void* transport) {
  CaptureDeviceOf(static_cast<TransportRecord*>(transport)->Device->KsDevice)->AbandonCamera();
}

bool IsKnownDeviceClass(std::uint32_t deviceClass) {
  return deviceClass >= 1 && deviceClass <= 3;
}

const CameraContext* CameraOf(const UsbDeviceRecord* device) {
  return device != nullptr ? device->Camera : nullptr;
}

NTSTATUS Traced(const CameraContext* camera, const char* what, NTSTATUS status) {
  TraceCamera(camera, "stream %s -> %08X", what, static_cast<unsigned>(status));
  return status;
}

}  // namespace

std::int32_t UsbCaptureDevice::GetFormatListIndex() {
  return UsbDevice != nullptr ? UsbDevice->FormatListIndex : 0;
}

std::int32_t UsbCaptureDevice::GetFormatCount() {
  return UsbDevice != nullptr ? UsbDevice->FormatCount : 0;
}

// The bag keeps what it has accepted: only the other records are freed here.
NTSTATUS UsbCaptureDevice::AllocateRecords(PKSDEVICE device) {
  auto* const transport = AllocateRecord<lidcam::TransportRecord>();
  if (transport == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  auto* const record = AllocateRecord<UsbDeviceRecord>();
  if (record == nullptr) {
    FreeCameraMemory(transport);
    return STATUS_INSUFFICIENT_RESOURCES;
  }
  const DeviceMutex mutex(device);
  NTSTATUS status = KsAddItemToObjectBag(device->Bag, transport, nullptr);
  if (!NT_SUCCESS(status)) {
    FreeCameraMemory(transport);
    FreeCameraMemory(record);
    return status;
  }
  status = KsAddItemToObjectBag(device->Bag, record, nullptr);
  if (!NT_SUCCESS(status)) {
    FreeCameraMemory(record);
    return status;
  }
  TransportRecord = transport;
  UsbDevice = record;
  return status;
}

void UsbCaptureDevice::FillRecords(PKSDEVICE device) {
  UsbDeviceRecord& record = *UsbDevice;
  std::memcpy(record.Signature, "DVQR", sizeof(record.Signature));
  record.KsDevice = device;
  FillTransport(*TransportRecord, device, &record);
  record.WorkItems = &workItems_;
  record.WdmLevel = WdmLevel;
  KeInitializeSemaphore(&record.UrbLock, 1, 1);
  record.Connected = 1;
  record.DeviceOpen = 1;
}

// The pipe table is freed with the device's records, not earlier. A table that the bag refuses is
// not used.
void UsbCaptureDevice::KeepPipeTable() {
  PipeRecord* const table = UsbDevice->PipeTable;
  if (table == nullptr) return;
  const DeviceMutex mutex(UsbDevice->KsDevice);
  if (NT_SUCCESS(KsAddItemToObjectBag(UsbDevice->KsDevice->Bag, table, nullptr))) return;
  FreeCameraMemory(table);
  UsbDevice->PipeTable = nullptr;
}

NTSTATUS UsbCaptureDevice::CreateCamera() {
  const CameraTransport transport{TransportRecord, UsbWriteRequest, UsbReadRequest,
                                  StreamReconfigure, lidcam::AbandonCamera};
  CameraCapabilities capabilities{};
  CameraContext* const camera = CreateCameraContext(
      transport, capabilities, UsbDevice->DeviceDescriptor, UsbDevice->LongConfigDescriptor);
  UsbDevice->Camera = camera;
  Camera = camera;
  if (camera == nullptr || !IsKnownDeviceClass(capabilities.DeviceClass)) {
    return STATUS_UNSUCCESSFUL;
  }
  StoreCapabilities(*UsbDevice, capabilities);
  return STATUS_SUCCESS;
}

NTSTATUS UsbCaptureDevice::CreateStreamRecord() {
  PKSDEVICE const device = UsbDevice->KsDevice;
  const std::size_t size = PipelineOffset() + GetPipelineSize();
  auto* const memory = static_cast<std::uint8_t*>(AllocateCameraMemory(size));
  if (memory == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  {
    const DeviceMutex mutex(device);
    const NTSTATUS status = KsAddItemToObjectBag(device->Bag, memory, nullptr);
    if (!NT_SUCCESS(status)) {
      FreeCameraMemory(memory);
      return status;
    }
  }
  auto* const stream = ::new (memory) UsbStreamRecord{};
  auto* const pipeline = ::new (memory + PipelineOffset()) IsoPipeline{};
  pipeline->Transfers = ::new (memory + PipelineOffset() + sizeof(IsoPipeline))
      IsoTransfer[UsbDevice->TransferCount]{};
  stream->PipeIndex = kStreamPipeIndex;
  std::memcpy(stream->Signature, "CHQR", sizeof(stream->Signature));
  stream->Device = UsbDevice;
  stream->Pipeline = pipeline;
  stream->Assembly.Sink = {stream, SinkIsProcessing, SinkPublishRawFrame, SinkStreamRunning,
                           SinkWakeConsumer};
  UsbDevice->Stream = stream;
  UsbStream = stream;
  return STATUS_SUCCESS;
}

void UsbCaptureDevice::ResetStreamState() {
  const DeviceMutex mutex(UsbDevice->KsDevice);
  UsbStream->Assembly.RawBufferSize = 0;
  UsbStream->Assembly.ForcePublish = 0;
  UsbStream->RestartPending = 0;
  UsbStream->StreamRunning = 0;
  UsbStream->Opened = 0;
  UsbStream->Halted = 0;
  UsbStream->WaitFlags = 0;
}

void UsbCaptureDevice::FreeDescriptors() {
  FreeCameraMemory(UsbDevice->DeviceDescriptor);
  FreeCameraMemory(UsbDevice->InterfaceInformation);
  // Nothing reads them any more, so they need not keep their values.
  UsbDevice->DeviceDescriptor = nullptr;
  UsbDevice->InterfaceInformation = nullptr;
}

void UsbCaptureDevice::FailStart() {
  UsbDevice->Connected = 0;
  UsbDevice->DeviceOpen = 0;
  FreeDescriptors();
}

// Stopping a device for its resources leaves the hardware's state alone: it is released when the
// device starts anew, with the stream if there is one, and the settings as they were saved last.
// The platform holds the device's mutex meanwhile, so that a recovery which waits for the mutex
// can't be waited for here. That recovery will find its stream released; the device's removal waits
// for it, and its records stay till then.
void UsbCaptureDevice::EndLastStart() {
  if (UsbDevice == nullptr) return;
  OnDeviceGone(0);
  CameraContext* const camera = TakeCamera();
  if (camera != nullptr) DestroyCameraContext(camera);
  if (UsbStream != nullptr) {
    CloseStreamRecord();
    EndWatchdog(*UsbStream);
  }
  CloseDeviceRecord();
  UsbStream = nullptr;
}

NTSTATUS UsbCaptureDevice::StartHardware(PKSDEVICE device) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  EndLastStart();
  NTSTATUS status = AllocateRecords(device);
  if (!NT_SUCCESS(status)) return Traced(nullptr, "hardware start", status);
  FillRecords(device);
  status = ReadDeviceDescriptors(*UsbDevice);
  KeepPipeTable();
  if (NT_SUCCESS(status)) status = CreateCamera();
  if (NT_SUCCESS(status)) status = CreateStreamRecord();
  if (NT_SUCCESS(status)) {
    AttachPipeline();
    ResetStreamState();
    if (LoadSettings(*UsbDevice->Camera, kSettingsSubkey) != 0) {
      status = STATUS_INSUFFICIENT_RESOURCES;
    }
  }
  if (!NT_SUCCESS(status)) FailStart();
  return Traced(CameraOf(UsbDevice), "hardware start", status);
}

NTSTATUS UsbCaptureDevice::StopHardware() {
  RequireLevelAtMost(PASSIVE_LEVEL);
  CameraContext* const camera = TakeCamera();
  if (camera != nullptr) {
    SaveSettings(*camera, kSettingsSubkey);
    DestroyCameraContext(camera);
  }
  if (UsbStream != nullptr) {
    CloseStreamRecord();
    WaitForRecovery(*UsbStream->Device);
    EndWatchdog(*UsbStream);
  }
  WaitForWorkItems();
  if (UsbDevice != nullptr) CloseDeviceRecord();
  return Traced(nullptr, "hardware stop", STATUS_SUCCESS);
}

void UsbCaptureDevice::CloseStreamRecord() {
  DetachPipeline();
  UsbStream->Pipeline = nullptr;
}

void UsbCaptureDevice::CloseDeviceRecord() {
  UsbDevice->Stream = nullptr;
  UsbDevice->Camera = nullptr;
  if (UsbDevice->DeviceOpen != 0) FreeDescriptors();
  UsbDevice->DeviceOpen = 0;
}

NTSTATUS UsbCaptureDevice::OnDeviceGone(std::uint32_t reason) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  if (reason > kSurpriseRemoved) return STATUS_NOT_IMPLEMENTED;
  if (reason != 0 && reason != kSurpriseRemoved) return STATUS_SUCCESS;
  if (UsbDevice != nullptr) {
    UsbDevice->Connected = 0;
    // Behind the mutex, a stream under preparation is either prepared or refused.
    const DeviceMutex mutex(KsDevice);
  }
  TraceCamera(CameraOf(UsbDevice), "device gone reason=%u", reason);
  if (UsbStream != nullptr && UsbStream->Opened != 0) {
    PauseStream();
    ReleaseStream();
  }
  return STATUS_SUCCESS;
}

NTSTATUS UsbCaptureDevice::SetStreamFormat(PKS_VIDEOINFOHEADER videoInfo) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  return ChooseStreamFormat(*UsbStream, *videoInfo);
}

bool UsbCaptureDevice::IsConnected() const {
  const UsbDeviceRecord* const device = UsbDevice;
  return device != nullptr && device->Connected != 0;
}

NTSTATUS UsbCaptureDevice::AcquireStream(PKSPIN pin, PKS_VIDEOINFOHEADER videoInfo) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  if (!IsConnected()) return STATUS_DEVICE_DATA_ERROR;
  const DeviceMutex mutex(KsDevice);
  const CameraHold hold(*this);
  if (hold.Camera() == nullptr || UsbStream == nullptr) return STATUS_DEVICE_DATA_ERROR;
  NTSTATUS status = SetStreamFormat(videoInfo);
  if (!NT_SUCCESS(status)) return Traced(hold.Camera(), "acquire", status);
  PublishRawFrame(nullptr, 0);
  status = PrepareStream();
  if (!NT_SUCCESS(status)) return Traced(hold.Camera(), "acquire", status);
  UsbDevice->Pin = pin;
  return Traced(hold.Camera(), "acquire", status);
}

// A removal under way has either cleared Connected before this, or finds the stream prepared. All
// later failures are returned as lack of memory.
NTSTATUS UsbCaptureDevice::PrepareStream() {
  if (UsbStream->Opened != 0 || UsbStream->StreamRunning != 0) return STATUS_UNSUCCESSFUL;
  if (UsbDevice->Connected == 0) return STATUS_DEVICE_DATA_ERROR;
  CameraContext& camera = *UsbDevice->Camera;
  const bool isReady = MarkStreaming(camera) == 0 &&
                       SelectStreamMode(camera, UsbStream->StreamFormat) == 0 &&
                       NT_SUCCESS(CreateStreamResources());
  if (!isReady) {
    UsbStream->Opened = 0;
    return STATUS_INSUFFICIENT_RESOURCES;
  }
  UsbStream->Opened = 1;
  SetWaitFlag(*UsbStream, WatchdogRunning);
  ArmWatchdog(*UsbStream);
  return STATUS_SUCCESS;
}

NTSTATUS UsbCaptureDevice::RunStream() {
  RequireLevelAtMost(PASSIVE_LEVEL);
  UsbStreamRecord* const stream = UsbStream;
  if (!IsConnected() || stream == nullptr) return STATUS_DEVICE_DATA_ERROR;
  if (stream->StreamRunning != 0) return STATUS_SUCCESS;
  const NTSTATUS status = StartLocked();
  if (status == STATUS_SUCCESS) {
    stream->RestartPending = 0;
  } else {
    ReleaseStream();
  }
  return Traced(nullptr, "run", status);
}

NTSTATUS UsbCaptureDevice::StartLocked() {
  const DeviceMutex mutex(KsDevice);
  const CameraHold hold(*this);
  if (hold.Camera() == nullptr || UsbStream == nullptr) return STATUS_DEVICE_DATA_ERROR;
  BeginAssembly(UsbStream->Assembly);
  if (UsbStream->StreamRunning != 0) return STATUS_UNSUCCESSFUL;
  const NTSTATUS status = StartTransfers();
  if (NT_SUCCESS(status)) UsbStream->StreamRunning = 1;
  return status;
}

NTSTATUS UsbCaptureDevice::PauseStream() {
  RequireLevelAtMost(PASSIVE_LEVEL);
  UsbStreamRecord* const stream = UsbStream;
  if (stream == nullptr || stream->StreamRunning == 0) return STATUS_SUCCESS;
  stream->RestartPending = 1;
  return Traced(nullptr, "pause", PauseLocked());
}

// A concurrent second pause finds the stream paused: it must not drain again. If it has waited for
// a start of the device, there may be no stream: that start released it, and then failed.
NTSTATUS UsbCaptureDevice::PauseLocked() {
  const DeviceMutex mutex(KsDevice);
  UsbStreamRecord* const stream = UsbStream;
  if (stream == nullptr) return STATUS_SUCCESS;
  NTSTATUS status = STATUS_SUCCESS;
  if (stream->StreamRunning != 0) status = DrainTransfers();
  if (NT_SUCCESS(status)) {
    stream->Halted = 0;
    stream->StreamRunning = 0;
  }
  return status;
}

NTSTATUS UsbCaptureDevice::ResumeStream() {
  RequireLevelAtMost(PASSIVE_LEVEL);
  UsbStreamRecord* const stream = UsbStream;
  if (!IsConnected() || stream == nullptr) return STATUS_DEVICE_DATA_ERROR;
  if (stream->RestartPending == 0) return STATUS_SUCCESS;
  const NTSTATUS status = RunStream();
  stream->RestartPending = 0;
  return status;
}

NTSTATUS UsbCaptureDevice::ReleaseStream() {
  RequireLevelAtMost(PASSIVE_LEVEL);
  UsbStreamRecord* const stream = UsbStream;
  NTSTATUS status = STATUS_SUCCESS;
  if (stream != nullptr && stream->Opened != 0) status = UnprepareStream();
  PublishRawFrame(nullptr, 0);
  if (stream != nullptr) stream->RestartPending = 0;
  return Traced(nullptr, "release", status);
}

NTSTATUS UsbCaptureDevice::UnprepareStream() {
  const DeviceMutex mutex(KsDevice);
  UsbStreamRecord* const stream = UsbStream;
  if (stream == nullptr || stream->Opened == 0 || stream->StreamRunning != 0) {
    return STATUS_UNSUCCESSFUL;
  }
  DisarmWatchdog(*stream);
  if (UsbDevice->Connected != 0) IdleInterface();
  const NTSTATUS status = ReleaseStreamResources();
  stream->Opened = 0;
  return status;
}

// A refusal of setting 0 has no effect: the next stream starts from the setting still in force.
void UsbCaptureDevice::IdleInterface() {
  CameraContext& camera = *UsbDevice->Camera;
  EndStream(camera);
  SaveSettings(camera, kSettingsSubkey);
  StreamIdle(camera);
  if (NT_SUCCESS(SelectAlternateSetting(*UsbDevice, 0))) {
    UsbStream->StreamFormat.AlternateSetting = 0;
  }
}

NTSTATUS UsbCaptureDevice::PowerDown(DEVICE_POWER_STATE, DEVICE_POWER_STATE) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  const CameraHold hold(*this);
  if (hold.Camera() == nullptr) return STATUS_DEVICE_DATA_ERROR;
  CameraContext& camera = *hold.Camera();
  SuspendCamera(camera);
  PauseStream();
  SetCameraPower(camera, CameraPower::Down);
  return STATUS_SUCCESS;
}

NTSTATUS UsbCaptureDevice::PowerUp(DEVICE_POWER_STATE, DEVICE_POWER_STATE, PKS_VIDEOINFOHEADER) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  const CameraHold hold(*this);
  if (hold.Camera() == nullptr) return STATUS_DEVICE_DATA_ERROR;
  CameraContext& camera = *hold.Camera();
  LoadSettings(camera, kSettingsSubkey);
  ResumeCamera(camera);
  return RestartPendingTransfers(*UsbDevice);
}

}  // namespace lidcam
