// Sizes and offsets of the driver's records on 64-bit platforms. The program reads the records of a driver that is
// loaded from the Windows image as its own compilation has them: all compilers must lay them out alike.

#include <cstddef>

#include "driver/usb/stream/camera_usb_device.h"

namespace lidcam {
namespace {

constexpr bool IsOn64Bits(std::size_t value, std::size_t expected) {
  return sizeof(void*) != 8 || value == expected;
}

static_assert(IsOn64Bits(sizeof(CameraContext), 5856));
static_assert(IsOn64Bits(sizeof(CaptureDevice), 160));
static_assert(IsOn64Bits(sizeof(UsbCaptureDevice), 176));
static_assert(IsOn64Bits(sizeof(CameraUsbDevice), 184));
static_assert(IsOn64Bits(sizeof(UsbDeviceRecord), 168));
static_assert(IsOn64Bits(sizeof(UsbStreamRecord), 376));
static_assert(IsOn64Bits(sizeof(IsoPipeline), 128));
static_assert(IsOn64Bits(sizeof(IsoTransfer), 104));
static_assert(IsOn64Bits(sizeof(FrameAssembly), 88));
static_assert(IsOn64Bits(sizeof(TransportRecord), 40));
static_assert(IsOn64Bits(sizeof(ReferenceCountedMemory), 48));
static_assert(IsOn64Bits(sizeof(RegisterSetTable), 1808));

static_assert(IsOn64Bits(offsetof(CameraContext, AppRegisterBusy), 264));
static_assert(IsOn64Bits(offsetof(CameraContext, DriverRegisterBusy), 268));
static_assert(IsOn64Bits(offsetof(CameraContext, FrameStartCount), 88));
static_assert(IsOn64Bits(offsetof(CameraContext, LightState), 168));
static_assert(IsOn64Bits(offsetof(CameraContext, LowLightRegisters), 3964));
static_assert(IsOn64Bits(offsetof(CameraContext, NormalRegisters), 2156));
static_assert(IsOn64Bits(offsetof(CameraContext, RequestedHeight), 52));
static_assert(IsOn64Bits(offsetof(CameraContext, RequestedWidth), 48));
static_assert(IsOn64Bits(offsetof(CameraContext, SensorType), 340));
static_assert(IsOn64Bits(offsetof(CameraContext, ThreadStops), 40));
static_assert(IsOn64Bits(offsetof(FrameAssembly, FillBuffer), 64));
static_assert(IsOn64Bits(offsetof(FrameAssembly, ReadyBuffer), 56));
static_assert(IsOn64Bits(offsetof(IsoTransfer, Irp), 48));
static_assert(IsOn64Bits(offsetof(IsoTransfer, OwnsMemory), 96));
static_assert(IsOn64Bits(offsetof(UsbDeviceRecord, Camera), 136));
static_assert(IsOn64Bits(offsetof(UsbDeviceRecord, Connected), 124));
static_assert(IsOn64Bits(offsetof(UsbDeviceRecord, KsDevice), 88));
static_assert(IsOn64Bits(offsetof(UsbDeviceRecord, Pin), 128));
static_assert(IsOn64Bits(offsetof(UsbDeviceRecord, Stream), 8));
static_assert(IsOn64Bits(offsetof(UsbStreamRecord, Assembly), 24));
static_assert(IsOn64Bits(offsetof(UsbStreamRecord, Device), 8));
static_assert(IsOn64Bits(offsetof(UsbStreamRecord, Opened), 23));
static_assert(IsOn64Bits(offsetof(UsbStreamRecord, PipeIndex), 296));
static_assert(IsOn64Bits(offsetof(UsbStreamRecord, Pipeline), 360));
static_assert(IsOn64Bits(offsetof(UsbStreamRecord, RawMemory), 368));
static_assert(IsOn64Bits(offsetof(UsbStreamRecord, StreamRunning), 22));

}  // namespace
}  // namespace lidcam
