#include "bus/capture/capture_reader.h"

namespace lidcam::bus {

CaptureReader::CaptureReader(const std::string& path) : file_(path) {
  const int linkType = file_.LinkType();
  if (linkType == kLinkTypeUsbmon || linkType == kLinkTypeUsbpcap) return;
  throw CaptureError(path + ": link type " + file_.LinkTypeName() +
                     " is not USB traffic; usbmon (220) or USBPcap (249) is needed");
}

bool CaptureReader::Next(UsbRecord& record) {
  PcapPacket packet;
  if (!file_.Next(packet)) return false;
  try {
    if (file_.LinkType() == kLinkTypeUsbmon) {
      DecodeUsbmonRecord(packet.Bytes, packet.OriginalLength, record);
    } else {
      DecodeUsbpcapRecord(packet.Bytes, packet.OriginalLength, packet.TimeMicroseconds, record);
    }
  } catch (const CaptureError& error) {
    throw CaptureError(Path() + ": record " + std::to_string(RecordNumber()) +
                       " is malformed: " + error.what());
  }
  return true;
}

}  // namespace lidcam::bus
