#include "tests/driver/usb/support/circle.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "driver/core/base/camera_trace.h"

namespace lidcam::test {
namespace {

constinit Circle* g_circle = nullptr;

PVOID HandleOf(std::uintptr_t number) {
  return reinterpret_cast<PVOID>(number);  // NOLINT: an opaque number of the USB stack's
}

[[gnu::format(printf, 1, 0)]] std::string Formatted(const char* format, std::va_list arguments) {
  char text[200];
  std::vsnprintf(text, sizeof(text), format, arguments);
  return text;
}

}  // namespace

KMUTEX& MutexOf(PKSDEVICE device) {
  return static_cast<Circle*>(device->Context)->mutex_;
}

void CompleteAtDispatch(PIRP irp, NTSTATUS status) {
  KIRQL before{};
  KeRaiseIrql(DISPATCH_LEVEL, &before);
  host::Complete(irp, status);
  KeLowerIrql(before);
}

Circle::Circle(std::uint32_t transfers, std::uint32_t packets)
    : Stream(records_.Stream),
      Pipeline(&records_.Pipeline),
      interface_((offsetof(USBD_INTERFACE_INFORMATION, Pipes) + 2 * sizeof(USBD_PIPE_INFORMATION)) /
                         sizeof(std::uint64_t) +
                     1,
                 0),
      rawBuffers_(2 * 921666),
      lower_([this](PDEVICE_OBJECT, PIRP irp) { return Dispatch(irp); }) {
  g_circle = this;
  KeInitializeMutex(&mutex_, 0);
  KsDevice.Context = this;
  lower_.Device()->StackSize = 1;
  KsDevice.NextDeviceObject = lower_.Device();
  void* const information = interface_.data();
  Device.InterfaceInformation = static_cast<USBD_INTERFACE_INFORMATION*>(information);
  Device.InterfaceInformation->NumberOfPipes = 2;
  Pipe(0).MaximumPacketSize = 16;
  Pipe(0).PipeHandle = HandleOf(0x100);
  Pipe(1).MaximumPacketSize = 1024;
  Pipe(1).PipeHandle = HandleOf(0x101);
  Pipe(1).EndpointAddress = 0x81;
  for (std::size_t i : {0U, 1U}) Pipe(i).MaximumTransferSize = 4096;

  Device.Stream = &Stream;
  Device.ResetGuard = -1;
  Device.WdmLevel = 5;
  Device.TransferCount = transfers;
  Device.KsDevice = &KsDevice;
  Device.WorkItems = &WorkItems;
  Device.DeviceOpen = 1;
  Device.Connected = 1;
  Device.Camera = &Registers.Context();
  Device.Camera->SensorType = SensorTypeVGA0708;
  Device.Camera->RawFrameSize = 614466;
  Device.Camera->FrameSettleCount = 5;
  KeInitializeSemaphore(&Device.UrbLock, 1, 1);
  Stream.Device = &Device;
  Stream.PipeIndex = 1;
  Stream.Pipeline = Pipeline;
  Stream.StreamFormat.Width = 640;
  Stream.StreamFormat.Height = 480;
  Stream.StreamFormat.AlternateSetting = 3;
  Pipeline->PacketsPerTransfer = packets;
  Pipeline->Transfers = records_.Transfers;
  PlaceRawBuffers(Stream.Assembly, rawBuffers_.data(), 921666);
  Stream.Assembly.Sink = {
      this, [](void*) -> std::uint8_t { return 0; }, [](void*, std::uint8_t*, std::uint32_t) {},
      [](void* self) -> std::uint8_t { return static_cast<Circle*>(self)->Stream.StreamRunning; },
      [](void*) {}};
  SetCameraTraceSink(Note);
}

Circle::~Circle() {
  AbortBringsHome = true;
  Stream.StreamRunning = 0;
  CompleteAllTransfers(USBD_STATUS_CANCELED);
  Release();
  while (Stream.WatchdogChain != 0) host::Sleep(host::kMillisecond);
  for (IsoTransfer& transfer : TransfersOf(Stream)) ReleaseIsoTransfer(transfer);
  SetCameraTraceSink(nullptr);
  g_circle = nullptr;
}

void Circle::Prepare() {
  for (IsoTransfer& transfer : TransfersOf(Stream)) {
    EXPECT_EQ(PrepareIsoTransfer(Stream, transfer), STATUS_SUCCESS);
  }
}

void Circle::Run() {
  if (Stream.Opened == 0) {
    EXPECT_EQ(StartFrameThread(Stream), STATUS_SUCCESS);
    Prepare();
    Stream.Opened = 1;
    SetWaitFlag(Stream, WatchdogRunning);
    ArmWatchdog(Stream);
  }
  BeginAssembly(Stream.Assembly);
  EXPECT_EQ(StartTransfers(Stream), STATUS_SUCCESS);
  Stream.StreamRunning = 1;
  Stream.RestartPending = 0;
}

NTSTATUS Circle::Pause() {
  Stream.RestartPending = 1;
  KsAcquireDevice(&KsDevice);
  const NTSTATUS status = DrainTransfers(Stream);
  KsReleaseDevice(&KsDevice);
  Stream.Halted = 0;
  Stream.StreamRunning = 0;
  return status;
}

void Circle::Release() {
  if (Stream.Opened == 0) return;
  KsAcquireDevice(&KsDevice);
  DisarmWatchdog(Stream);
  for (IsoTransfer& transfer : TransfersOf(Stream)) ReleaseIsoTransfer(transfer);
  StopFrameThread(Stream);
  Stream.Opened = 0;
  Stream.RestartPending = 0;
  KsReleaseDevice(&KsDevice);
}

void Circle::CompleteTransfer(std::size_t sent, USBD_STATUS status, NTSTATUS irpStatus) {
  PIRP const irp = Kept.at(sent);
  Kept.erase(Kept.begin() + static_cast<std::ptrdiff_t>(sent));
  static_cast<URB*>(IoGetCurrentIrpStackLocation(irp)->Parameters.Others.Argument1)
      ->UrbHeader.Status = status;
  CompleteAtDispatch(irp, irpStatus);
}

void Circle::CompleteAllTransfers(USBD_STATUS status) {
  // Other threads complete some meanwhile, and send new ones.
  for (std::size_t left = Kept.size(); left != 0 && !Kept.empty(); --left)
    CompleteTransfer(0, status);
}

void Circle::Tick() {
  KIRQL before{};
  KeRaiseIrql(DISPATCH_LEVEL, &before);
  TransferWatchdog(&Stream.WatchdogDpc, &Stream, nullptr, nullptr);
  KeLowerIrql(before);
}

std::string Circle::Flags() const {
  const std::uint32_t wait = Stream.WaitFlags;
  return std::string(Stream.StreamRunning != 0 ? "running " : "") +
         (Stream.Halted != 0 ? "halted " : "") + "wait=" + std::to_string(wait);
}

std::string Circle::Text() const {
  std::string text;
  for (const std::string& line : Lines) text += line + "\n";
  return text;
}

void Circle::Note(const CameraContext*, const char* format, std::va_list arguments) {
  const std::string line = Formatted(format, arguments);
  const bool isRegister = line.rfind("bus ", 0) == 0;
  if (g_circle == nullptr || isRegister) return;
  g_circle->Lines.push_back(line);
  g_circle->Times.push_back(host::Now());
  const auto onTrace = g_circle->OnTrace;
  if (onTrace) onTrace(line);
}

NTSTATUS Circle::Dispatch(PIRP irp) {
  const IO_STACK_LOCATION& location = *IoGetCurrentIrpStackLocation(irp);
  EXPECT_EQ(location.MajorFunction, 0x0F);
  EXPECT_EQ(location.Parameters.DeviceIoControl.IoControlCode, 0x220003U);
  URB& urb = *static_cast<URB*>(location.Parameters.Others.Argument1);
  const bool isTransfer = urb.UrbHeader.Function == 0x000A;
  return isTransfer ? AnswerTransfer(irp, urb.UrbIsochronousTransfer) : AnswerRequest(irp, urb);
}

NTSTATUS Circle::AnswerTransfer(PIRP irp, _URB_ISOCH_TRANSFER& urb) {
  Sent.push_back({urb.StartFrame, urb.TransferFlags, urb.TransferBufferLength, urb.PipeHandle});
  LowerAnswer answer;
  if (!Answers.empty()) {
    answer = Answers.front();
    Answers.pop_front();
  }
  if (answer.Pends) {
    IoMarkIrpPending(irp);
    Kept.push_back(irp);
    return STATUS_PENDING;
  }
  urb.Hdr.Status = answer.UrbStatus;
  CompleteAtDispatch(irp, answer.Status);
  return answer.Status;
}

NTSTATUS Circle::AnswerRequest(PIRP irp, URB& urb) {
  NTSTATUS status = STATUS_SUCCESS;
  urb.UrbHeader.Status = USBD_STATUS_SUCCESS;
  const auto pipe = [&urb] {
    char text[20];
    std::snprintf(text, sizeof(text), "%p", urb.UrbPipeRequest.PipeHandle);
    return std::string(text);
  };
  if (OnRequest) OnRequest(urb.UrbHeader.Function);
  switch (urb.UrbHeader.Function) {
    case 0x0002:
      Lines.push_back("urb abort pipe=" + pipe());
      status = AbortStatus;
      if (AbortBringsHome && NT_SUCCESS(status)) CompleteAllTransfers(USBD_STATUS_CANCELED);
      break;
    case 0x001E:
      Lines.push_back("urb reset pipe=" + pipe());
      status = ResetStatus;
      break;
    case 0x0007:
      Lines.emplace_back("urb frame number");
      urb.UrbGetCurrentFrameNumber.FrameNumber = CurrentFrame.value_or(77);
      if (!CurrentFrame) status = STATUS_UNSUCCESSFUL;
      break;
    default:
      ADD_FAILURE() << "URB function " << urb.UrbHeader.Function;
  }
  CompleteAtDispatch(irp, status);
  return status;
}

}  // namespace lidcam::test

void NTAPI KsAcquireDevice(PKSDEVICE device) {
  KeWaitForSingleObject(&lidcam::test::MutexOf(device), Executive, KernelMode, FALSE, nullptr);
}

void NTAPI KsReleaseDevice(PKSDEVICE device) {
  KeReleaseMutex(&lidcam::test::MutexOf(device), FALSE);
}
