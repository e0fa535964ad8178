#include "driver/core/control/camera_lifecycle.h"

#include <new>

#include "driver/core/base/camera_memory.h"
#include "driver/core/base/camera_trace.h"
#include "driver/core/settings/settings_store.h"
#include "driver/exposure/auto_exposure.h"
#include "driver/sensor/controls/power_and_led.h"
#include "driver/sensor/identification/sensor_identification.h"
#include "driver/sensor/modes/setup_registers.h"
#include "driver/sensor/register_sets/register_set_file.h"
#include "driver/sensor/registers/register_access.h"
#include "driver/sensor/registers/register_names.h"
#include "platform/kernel.h"

namespace lidcam {
namespace {

constexpr std::size_t kSpareBlockSize = 8;
constexpr std::int32_t kFirstAeIndex = 30;
constexpr LONGLONG kUnitsPerMillisecond = 10000;

constexpr CameraCapabilities kLongConfigCapabilities = {
    .DeviceClass = 1,
    .SpeedClass = 2,
    .AlternateSettingLimit = 7,
    .SearchDownward = 1,
    .TransferCount = 7,
    .FormatListIndex = 0,
    .FormatCount = 5,
};

constexpr CameraCapabilities kShortConfigCapabilities = {
    .DeviceClass = 1,
    .SpeedClass = 1,
    .AlternateSettingLimit = 3,
    .SearchDownward = 1,
    .TransferCount = 3,
    .FormatListIndex = 0,
    .FormatCount = 5,
};

void StoreTransport(CameraContext& context, const CameraTransport& transport) {
  constexpr char kSignature[] = {'I', 'N', 'T', 'E'};
  for (std::size_t i = 0; i < sizeof(kSignature); ++i) context.Signature[i] = kSignature[i];
  context.TransportContext = transport.TransportContext;
  context.WriteRequest = transport.WriteRequest;
  context.ReadRequest = transport.ReadRequest;
  context.StreamReconfigure = transport.StreamReconfigure;
  context.ThreadStops = transport.ThreadStops;
}

void ReadBridgeMode(CameraContext& context) {
  std::uint8_t mode = 0;
  ReadBridgeRegister(context, BridgeRegister::Mode, mode);
  context.BridgeMode = mode;
}

// The register accesses of this sequence may fail without consequence.
void BringUpSensor(CameraContext& context, const std::uint8_t* deviceDescriptor) {
  context.SensorType = SensorTypeVGA0408;
  IdentifySensor(context, deviceDescriptor);
  LoadRegisterSets(context);
  ApplySetupRegisters(context);
}

// Comes after the setup registers, so that a divider they implied is replaced here and stays 1
// until the next write of BridgeRegister::Mode.
void SetStateAfterBringUp(CameraContext& context, std::uint32_t longConfig) {
  context.Streaming = 0;
  context.LongConfigDescriptor = longConfig;
  context.WorkerRunning = 1;
  context.StoredControl33 = 0;
  context.ClockDivider = 1;
  context.RawSizeMode = RawMode640x480;
  context.LightTransitionCount = 0;
  context.LightBrightCount = 0;
  context.LightState = LightStateInitial;
  context.AppRegisterBusy = 0;
  context.DriverRegisterBusy = 0;
  context.ReceivedFrameBytes = 0;
  AeIndex = kFirstAeIndex;
}

void ReleaseCameraContext(CameraContext* context) {
  FreeCameraMemory(context->SpareBlock);
  context->~CameraContext();
  FreeCameraMemory(context);
}

void FreeWorkBuffer(void*& buffer) {
  FreeCameraMemory(buffer);
  buffer = nullptr;
}

void JoinWorkerThread(CameraContext& context) {
  if (context.WorkerThread == nullptr || !IoIsWdmVersionAvailable(1, 0x10)) return;
  KeWaitForSingleObject(context.WorkerThread, Executive, KernelMode, FALSE, nullptr);
  context.WorkerThread = nullptr;
}

}  // namespace

CameraContext* CreateCameraContext(const CameraTransport& transport,
                                   CameraCapabilities& capabilities,
                                   const std::uint8_t* deviceDescriptor, std::uint32_t longConfig) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  void* const memory = AllocateCameraMemory(sizeof(CameraContext));
  if (memory == nullptr) return nullptr;
  auto* const context = new (memory) CameraContext{};
  StoreTransport(*context, transport);
  capabilities = longConfig != 0 ? kLongConfigCapabilities : kShortConfigCapabilities;
  context->PowerOn = 1;
  context->StoredControl45 = 20;
  context->StoredControl46 = 15;
  ReadBridgeMode(*context);

  context->SpareBlock = AllocateCameraMemory(kSpareBlockSize);
  if (context->SpareBlock == nullptr || LoadSettings(*context, kSettingsSubkey) != 0) {
    ReleaseCameraContext(context);
    return nullptr;
  }
  BringUpSensor(*context, deviceDescriptor);
  const Status shadowStatus = ReadShadowRegisters(*context);
  SetStateAfterBringUp(*context, longConfig);
  if (shadowStatus != 0) {
    ReleaseCameraContext(context);
    return nullptr;
  }
  return context;
}

void DestroyCameraContext(CameraContext* context) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  context->WorkerRunning = 0;
  while (context->PendingWork != 0) WaitMilliseconds(1);
  FreeWorkBuffer(context->WorkBufferA);
  FreeWorkBuffer(context->WorkBufferB);
  FreeWorkBuffer(context->WorkBufferC);
  context->WorkBuffersReady = 0;
  JoinWorkerThread(*context);
  ReleaseCameraContext(context);
}

Status MarkStreaming(CameraContext& context) {
  context.Streaming = 1;
  TraceCamera(&context, "stream on");
  return 0;
}

Status EndStream(CameraContext& context) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  context.Streaming = 0;
  TraceCamera(&context, "stream off");
  PowerAndLed(context, PowerBits::Write, SensorPower::Rest, LedBit::Write, LedState::Off,
              RegisterPath::Application);
  return 0;
}

Status StreamIdle(CameraContext&) {
  return 0;
}

Status SuspendCamera(CameraContext& context) {
  context.PowerOn = 0;
  TraceCamera(&context, "power off");
  return 0;
}

Status ResumeCamera(CameraContext& context) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  context.PowerOn = 1;
  TraceCamera(&context, "power on");
  ApplySetupRegisters(context);
  WriteBridgeRegister(context, BridgeRegister::Mode, context.BridgeMode);
  return 0;
}

void WaitMilliseconds(std::uint32_t count) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  auto* const event = static_cast<KEVENT*>(AllocateCameraMemory(sizeof(KEVENT)));
  if (event == nullptr) return;
  KeInitializeEvent(event, NotificationEvent, FALSE);
  LARGE_INTEGER timeout{};
  timeout.QuadPart = -static_cast<LONGLONG>(count) * kUnitsPerMillisecond;
  while (KeWaitForSingleObject(event, Executive, KernelMode, FALSE, &timeout) != STATUS_TIMEOUT) {
  }
  FreeCameraMemory(event);
}

}  // namespace lidcam
