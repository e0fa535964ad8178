#include "driver/usb/requests/usb_configuration.h"

#include <cstring>
#include <new>

#include "driver/core/base/camera_memory.h"
#include "driver/core/base/camera_trace.h"
#include "driver/core/control/stream_modes.h"
#include "driver/usb/requests/control_requests.h"

namespace lidcam {
namespace {

constexpr ULONG kDeviceDescriptorSize = 18;

// Room for the configuration descriptor of any camera of this kind; a longer one is read twice.
constexpr ULONG kFirstConfigurationRoom = 521;

// Distinguishes the camera with eight alternate settings from the one with four.
constexpr ULONG kLongConfigurationLength = 193;

constexpr std::int32_t kDefaultFormatListIndex = 0;
constexpr std::int32_t kDefaultFormatCount = 17;

void FillDescriptorRequest(_URB_CONTROL_DESCRIPTOR_REQUEST& urb, UCHAR type, void* buffer,
                           ULONG size) {
  ZeroCameraMemory(&urb, sizeof(urb));
  urb.Hdr.Length = sizeof(urb);
  urb.Hdr.Function = URB_FUNCTION_GET_DESCRIPTOR_FROM_DEVICE;
  urb.TransferBufferLength = size;
  urb.TransferBuffer = buffer;
  urb.DescriptorType = type;
}

// Zero-filled: bytes that the device doesn't send must not be those of an earlier user of the
// memory.
std::uint8_t* AllocateZeroed(std::size_t size) {
  void* const memory = AllocateCameraMemory(size);
  if (memory != nullptr) ZeroCameraMemory(memory, size);
  return static_cast<std::uint8_t*>(memory);
}

ULONG TotalLength(const std::uint8_t* configuration) {
  return configuration[2] | static_cast<ULONG>(configuration[3]) << 8;
}

NTSTATUS ReadDeviceDescriptor(UsbDeviceRecord& device) {
  std::uint8_t* const descriptor = AllocateZeroed(kDeviceDescriptorSize);
  auto* const urb = static_cast<_URB_CONTROL_DESCRIPTOR_REQUEST*>(
      AllocateCameraMemory(sizeof(_URB_CONTROL_DESCRIPTOR_REQUEST)));
  NTSTATUS status = STATUS_INSUFFICIENT_RESOURCES;
  if (descriptor != nullptr && urb != nullptr) {
    FillDescriptorRequest(*urb, USB_DEVICE_DESCRIPTOR_TYPE, descriptor, kDeviceDescriptorSize);
    status = SendUrb(device, urb);
  }
  if (NT_SUCCESS(status)) {
    device.DeviceDescriptor = descriptor;
  } else {
    FreeCameraMemory(descriptor);
  }
  FreeCameraMemory(urb);
  return status;
}

struct ConfigurationReply {
  NTSTATUS Status;
  std::uint8_t* Bytes;  // null without memory
  ULONG Room;
};

// Reads into a buffer that grows until the descriptor fits. The length is used even if the request
// failed.
ConfigurationReply FetchConfiguration(UsbDeviceRecord& device,
                                      _URB_CONTROL_DESCRIPTOR_REQUEST& urb) {
  ConfigurationReply reply{STATUS_INSUFFICIENT_RESOURCES, nullptr, kFirstConfigurationRoom};
  for (;;) {
    reply.Bytes = AllocateZeroed(reply.Room);
    if (reply.Bytes == nullptr) return {STATUS_INSUFFICIENT_RESOURCES, nullptr, 0};
    FillDescriptorRequest(urb, USB_CONFIGURATION_DESCRIPTOR_TYPE, reply.Bytes, reply.Room);
    reply.Status = SendUrb(device, &urb);
    const ULONG length = TotalLength(reply.Bytes);
    device.LongConfigDescriptor = length == kLongConfigurationLength ? 1 : 0;
    if (urb.TransferBufferLength == 0 || length <= reply.Room) return reply;
    FreeCameraMemory(reply.Bytes);
    reply.Room = length;
  }
}

void KeepInterfaceInformation(UsbDeviceRecord& device,
                              const USBD_INTERFACE_INFORMATION& interfaceInformation) {
  void* const copy = AllocateCameraMemory(interfaceInformation.Length);
  if (copy != nullptr) std::memcpy(copy, &interfaceInformation, interfaceInformation.Length);
  device.InterfaceInformation = static_cast<USBD_INTERFACE_INFORMATION*>(copy);
}

// True of a configuration with an interface: the URB ends before the first one otherwise.
bool HasInterface(const _URB_SELECT_CONFIGURATION& urb) {
  constexpr std::size_t kHead = offsetof(USBD_INTERFACE_INFORMATION, Pipes);
  return urb.Hdr.Length >= offsetof(_URB_SELECT_CONFIGURATION, Interface) + kHead &&
         urb.Interface.Length >= kHead;
}

// The interface information that the stack has written, at most the size of the memory there.
void TakeInterfaceInformation(USBD_INTERFACE_INFORMATION& information,
                              const std::uint8_t* selected) {
  const USHORT length = information.Length;
  std::memcpy(&information, selected, length);
  information.Length = length;
  const auto room = static_cast<ULONG>((length - offsetof(USBD_INTERFACE_INFORMATION, Pipes)) /
                                       sizeof(USBD_PIPE_INFORMATION));
  if (information.NumberOfPipes > room) information.NumberOfPipes = room;
}

void KeepPipeTable(UsbDeviceRecord& device, USBD_INTERFACE_INFORMATION& interfaceInformation) {
  const std::size_t count = interfaceInformation.NumberOfPipes;
  auto* const table = AllocateZeroed(count * sizeof(PipeRecord));
  if (table == nullptr) return;
  device.PipeTable = ::new (table) PipeRecord[count]{};
  device.PipeCount = interfaceInformation.NumberOfPipes;
  for (std::uint32_t i = 0; i < count; ++i) {
    const USBD_PIPE_INFORMATION& information = *PipeInformationOf(&interfaceInformation, i);
    PipeRecord& pipe = device.PipeTable[i];
    pipe.PipeType = static_cast<std::uint8_t>(information.PipeType & 3);
    pipe.DirectionIn = static_cast<std::uint8_t>(information.EndpointAddress >> 7);
    pipe.MaximumPacketSize = information.MaximumPacketSize;
    InitializeListHead(&pipe.ActiveList);
    InitializeListHead(&pipe.PendingList);
    KeInitializeSpinLock(&pipe.Lock);
  }
}

NTSTATUS SendSelectConfiguration(UsbDeviceRecord& device, _URB_SELECT_CONFIGURATION& urb) {
  const NTSTATUS status = SendUrb(device, &urb);
  if (!NT_SUCCESS(status) || !USBD_SUCCESS(urb.Hdr.Status)) return STATUS_INSUFFICIENT_RESOURCES;
  device.ConfigurationHandle = urb.ConfigurationHandle;
  if (!HasInterface(urb)) return status;
  KeepInterfaceInformation(device, urb.Interface);
  KeepPipeTable(device, urb.Interface);
  return status;
}

// `wanted` is tried first. A refused setting 1 ends the walk: 0 carries no picture.
NTSTATUS WalkDown(UsbStreamRecord& stream, std::uint8_t wanted) {
  NTSTATUS status = STATUS_SUCCESS;
  for (std::uint8_t setting = wanted; setting >= 1; --setting) {
    status = SelectAlternateSetting(*stream.Device, setting);
    if (!NT_SUCCESS(status)) continue;
    DbgPrint("AlternateSetting = 0x%04x has been selected\n", setting);
    stream.StreamFormat.AlternateSetting = setting;
    break;
  }
  return status;
}

NTSTATUS WalkUp(UsbStreamRecord& stream, std::uint8_t wanted) {
  const std::uint32_t limit = stream.Device->AlternateSettingLimit;
  for (std::uint32_t setting = wanted; setting < limit; ++setting) {
    const NTSTATUS status =
        SelectAlternateSetting(*stream.Device, static_cast<std::uint8_t>(setting));
    if (NT_SUCCESS(status)) {
      stream.StreamFormat.AlternateSetting = setting;
      return status;
    }
  }
  return wanted < limit ? STATUS_INSUFFICIENT_RESOURCES : STATUS_SUCCESS;
}

}  // namespace

NTSTATUS ReadDeviceDescriptors(UsbDeviceRecord& device) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  NTSTATUS status = ReadDeviceDescriptor(device);
  if (!NT_SUCCESS(status)) return status;
  status = ReadConfiguration(device);
  if (!NT_SUCCESS(status)) return status;
  device.ResetGuard = -1;
  return status;
}

NTSTATUS ReadConfiguration(UsbDeviceRecord& device) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  auto* const urb = static_cast<_URB_CONTROL_DESCRIPTOR_REQUEST*>(
      AllocateCameraMemory(sizeof(_URB_CONTROL_DESCRIPTOR_REQUEST)));
  if (urb == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  const ConfigurationReply reply = FetchConfiguration(device, *urb);
  FreeCameraMemory(urb);
  NTSTATUS status = reply.Status;
  if (NT_SUCCESS(status)) {
    void* const bytes = reply.Bytes;
    status = SelectConfiguration(device, static_cast<PUSB_CONFIGURATION_DESCRIPTOR>(bytes));
  }
  FreeCameraMemory(reply.Bytes);
  return status;
}

NTSTATUS SelectConfiguration(UsbDeviceRecord& device,
                             PUSB_CONFIGURATION_DESCRIPTOR configurationDescriptor) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  const std::size_t count = configurationDescriptor->bNumInterfaces;
  auto* const list = static_cast<USBD_INTERFACE_LIST_ENTRY*>(
      AllocateCameraMemory((count + 1) * sizeof(USBD_INTERFACE_LIST_ENTRY)));
  if (list == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  for (std::size_t i = 0; i < count; ++i) {
    list[i] = {USBD_ParseConfigurationDescriptorEx(configurationDescriptor, configurationDescriptor,
                                                   static_cast<LONG>(i), -1, -1, -1, -1),
               nullptr};
  }
  list[count] = {};
  NTSTATUS status = STATUS_INSUFFICIENT_RESOURCES;
  PURB const urb = USBD_CreateConfigurationRequestEx(configurationDescriptor, list);
  if (urb != nullptr) {
    status = SendSelectConfiguration(device, urb->UrbSelectConfiguration);
    ExFreePool(urb);
  }
  FreeCameraMemory(list);
  return status;
}

NTSTATUS SelectInterfaceSetting(UsbDeviceRecord& device) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  USBD_INTERFACE_INFORMATION* const information = device.InterfaceInformation;
  if (information == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  const std::size_t size = offsetof(_URB_SELECT_INTERFACE, Interface) + information->Length;
  const std::size_t room =
      size < sizeof(_URB_SELECT_INTERFACE) ? sizeof(_URB_SELECT_INTERFACE) : size;
  auto* const block = AllocateZeroed(room);
  if (block == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  void* const place = block;
  auto& urb = *static_cast<_URB_SELECT_INTERFACE*>(place);
  std::memcpy(block + offsetof(_URB_SELECT_INTERFACE, Interface), information, information->Length);
  urb.Hdr.Length = static_cast<USHORT>(size);
  urb.Hdr.Function = URB_FUNCTION_SELECT_INTERFACE;
  urb.ConfigurationHandle = device.ConfigurationHandle;
  const NTSTATUS status = SendUrb(device, &urb);
  if (NT_SUCCESS(status) && USBD_SUCCESS(urb.Hdr.Status)) {
    TakeInterfaceInformation(*information, block + offsetof(_URB_SELECT_INTERFACE, Interface));
  }
  FreeCameraMemory(block);
  return status;
}

NTSTATUS SelectAlternateSetting(UsbDeviceRecord& device, std::uint8_t setting) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  if (device.InterfaceInformation != nullptr) {
    device.InterfaceInformation->AlternateSetting = setting;
  }
  const NTSTATUS status = SelectInterfaceSetting(device);
  TraceCamera(device.Camera, "usb  setting %u -> %s", setting,
              NT_SUCCESS(status) ? "selected" : "refused");
  return status;
}

NTSTATUS ChooseStreamFormat(UsbStreamRecord& stream, const KS_VIDEOINFOHEADER& videoInfo) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  FormatRequest& format = stream.StreamFormat;
  const KS_BITMAPINFOHEADER& bitmap = videoInfo.bmiHeader;
  format.Width = bitmap.biWidth;
  format.Height = bitmap.biHeight;
  format.BitCount = bitmap.biBitCount;
  format.Compression = bitmap.biCompression;
  format.ImageSize = bitmap.biSizeImage;
  format.Spare = 0;
  format.AvgTimePerFrame = videoInfo.AvgTimePerFrame;
  std::uint8_t wanted = 0;
  UsbDeviceRecord& device = *stream.Device;
  std::uint32_t rawBufferSize = 0;
  NegotiateFormat(*device.Camera, format, rawBufferSize, wanted);
  // A stream that is prepared already may be filling its buffers: an equal size is not written
  // again.
  if (stream.Assembly.RawBufferSize != rawBufferSize) stream.Assembly.RawBufferSize = rawBufferSize;
  NTSTATUS status = STATUS_SUCCESS;
  if (format.AlternateSetting != wanted) {
    status = device.SearchDownward != 0 ? WalkDown(stream, wanted) : WalkUp(stream, wanted);
  }
  return rawBufferSize != 0 ? status : STATUS_INSUFFICIENT_RESOURCES;
}

void StoreCapabilities(UsbDeviceRecord& device, const CameraCapabilities& capabilities) {
  device.DeviceClass = capabilities.DeviceClass;
  device.SpeedClass = capabilities.SpeedClass != 0 ? capabilities.SpeedClass : 1;
  device.AlternateSettingLimit = capabilities.AlternateSettingLimit;
  device.SearchDownward = capabilities.SearchDownward;
  device.TransferCount = capabilities.TransferCount;
  const auto list = static_cast<std::int32_t>(capabilities.FormatListIndex);
  const auto count = static_cast<std::int32_t>(capabilities.FormatCount);
  const bool isKnown = (list == 0 || list == 1) && count > 0;
  device.FormatListIndex = isKnown ? list : kDefaultFormatListIndex;
  device.FormatCount = isKnown ? count : kDefaultFormatCount;
}

}  // namespace lidcam
