#include "driver/usb/stream/camera_usb_device.h"

#include <new>

#include "driver/core/base/reference_counted_memory.h"
#include "driver/usb/transfers/frame_thread.h"
#include "driver/usb/transfers/iso_transfers.h"
#include "driver/usb/transfers/stream_recovery.h"

namespace lidcam {
namespace {

constexpr ULONG kDeviceTag = 0x774E434B;  // "KCNw"

constexpr std::int32_t kHighestOldLevel = 3;
constexpr std::uint32_t kPacketsOnOldPlatforms = 4;
constexpr std::uint32_t kPackets = 32;

}  // namespace

std::size_t CameraUsbDevice::GetPipelineSize() {
  return sizeof(IsoPipeline) + UsbDevice->TransferCount * sizeof(IsoTransfer);
}

std::uint8_t CameraUsbDevice::AnyTransferInFlight() {
  return lidcam::AnyTransferInFlight(*UsbStream);
}

void CameraUsbDevice::AttachPipeline() {
  Pipeline = UsbStream->Pipeline;
  Pipeline->PacketsPerTransfer = WdmLevel <= kHighestOldLevel ? kPacketsOnOldPlatforms : kPackets;
}

// A failed acquisition may have left transfers that no stream has owned since.
void CameraUsbDevice::DetachPipeline() {
  for (IsoTransfer& transfer : TransfersOf(*UsbStream)) ReleaseIsoTransfer(transfer);
  Pipeline = nullptr;
}

NTSTATUS CameraUsbDevice::CreateStreamResources() {
  const NTSTATUS status = AllocateStreamResources();
  if (NT_SUCCESS(status)) return status;
  UsbStream->Opened = 0;
  ReleaseRawBuffers();
  StopFrameThread(*UsbStream);
  return status;
}

NTSTATUS CameraUsbDevice::AllocateStreamResources() {
  NTSTATUS status = StartFrameThread(*UsbStream);
  if (!NT_SUCCESS(status)) return status;
  FrameAssembly& assembly = UsbStream->Assembly;
  assembly.FillOffset = 0;
  ReferenceCountedMemory* const memory =
      AllocateReferenceCountedMemory(std::size_t{2} * assembly.RawBufferSize);
  if (memory == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  UsbStream->RawMemory = memory;
  PlaceRawBuffers(assembly, static_cast<std::uint8_t*>(memory->Block), assembly.RawBufferSize);
  SetFrameMemory(memory);
  for (IsoTransfer& transfer : TransfersOf(*UsbStream)) {
    status = PrepareIsoTransfer(*UsbStream, transfer);
    if (!NT_SUCCESS(status)) break;
  }
  return status;
}

NTSTATUS CameraUsbDevice::ReleaseStreamResources() {
  for (IsoTransfer& transfer : TransfersOf(*UsbStream)) ReleaseIsoTransfer(transfer);
  StopFrameThread(*UsbStream);
  ReleaseRawBuffers();
  UsbStream->Assembly.FillOffset = 0;
  return STATUS_SUCCESS;
}

// RawBuffers keeps its value; RawMemory shows whether there is something to free.
void CameraUsbDevice::ReleaseRawBuffers() {
  ReferenceCountedMemory* const memory = UsbStream->RawMemory;
  if (memory == nullptr) return;
  SetFrameMemory(nullptr);
  UsbStream->RawMemory = nullptr;
  UsbStream->Assembly.ReadyBuffer = nullptr;
  UsbStream->Assembly.FillBuffer = nullptr;
  GiveUp(*memory);
}

NTSTATUS CameraUsbDevice::StartTransfers() {
  return lidcam::StartTransfers(*UsbStream);
}

NTSTATUS CameraUsbDevice::DrainTransfers() {
  return lidcam::DrainTransfers(*UsbStream);
}

NTSTATUS AddCameraDevice(PKSDEVICE device) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  void* const memory = ExAllocatePoolWithTag(NonPagedPool, sizeof(CameraUsbDevice), kDeviceTag);
  if (memory == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  auto* const object = ::new (memory) CameraUsbDevice(device);
  const NTSTATUS status = object->Bind(device);
  if (!NT_SUCCESS(status)) ExFreePool(memory);
  return status;
}

}  // namespace lidcam
