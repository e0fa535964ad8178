#include "driver/usb/stream/stream_reconfigure.h"

#include <utility>

#include "driver/avstream/device/capture_device.h"
#include "driver/usb/records/usb_records.h"
#include "platform/kernel.h"

namespace lidcam {
namespace {

KS_VIDEOINFOHEADER RestartFormat(const FormatRequest& format, bool exchanged) {
  KS_VIDEOINFOHEADER header{};
  header.AvgTimePerFrame = format.AvgTimePerFrame;
  header.bmiHeader.biBitCount = static_cast<std::uint16_t>(format.BitCount);
  header.bmiHeader.biCompression = format.Compression;
  header.bmiHeader.biSizeImage = format.ImageSize;
  header.bmiHeader.biWidth = exchanged ? format.Height : format.Width;
  header.bmiHeader.biHeight = exchanged ? format.Width : format.Height;
  return header;
}

void ExchangePinFormat(CaptureDevice& device, PKSPIN pin) {
  if (pin == nullptr || pin->ConnectionFormat == nullptr) return;
  void* const format = pin->ConnectionFormat;
  KS_BITMAPINFOHEADER& bitmap =
      static_cast<KS_DATAFORMAT_VIDEOINFOHEADER*>(format)->VideoInfoHeader.bmiHeader;
  std::swap(bitmap.biWidth, bitmap.biHeight);
  const PinOperations* const pins = device.Pins;
  if (pins != nullptr) pins->ApplyFormat(pin);
}

}  // namespace

Status StreamReconfigure(void* transport, std::uint32_t* swap) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  UsbDeviceRecord& record = *static_cast<TransportRecord*>(transport)->Device;
  UsbStreamRecord* const stream = record.Stream;
  if (stream == nullptr || stream->StreamRunning == 0) return -1;
  CaptureDevice& device = *CaptureDeviceOf(record.KsDevice);
  PKSPIN const pin = record.Pin;
  device.PauseStream();
  device.ReleaseStream();
  KS_VIDEOINFOHEADER header = RestartFormat(stream->StreamFormat, *swap == 0);
  ExchangePinFormat(device, pin);
  if (!NT_SUCCESS(device.AcquireStream(pin, &header))) return -1;
  return NT_SUCCESS(device.RunStream()) ? 0 : -1;
}

}  // namespace lidcam
