#include "bus/capture/replay/capture_reader.h"

#include <algorithm>

namespace lidcam::bus {

CaptureReader::CaptureReader(const std::string& path) : file_(path) {
  const int linkType = file_.LinkType();
  if (linkType == kLinkTypeUsbmon || linkType == kLinkTypeUsbpcap) return;
  throw CaptureError(CaptureName(path) + ": link type " + file_.LinkTypeName() +
                     " is not USB traffic; usbmon (220) or USBPcap (249) is needed");
}

void CaptureReader::Decode(const PcapPacket& packet, UsbRecord& record) const {
  if (file_.LinkType() == kLinkTypeUsbmon) {
    DecodeUsbmonRecord(packet.Bytes, packet.OriginalLength, record);
  } else {
    DecodeUsbpcapRecord(packet.Bytes, packet.OriginalLength, packet.TimeMicroseconds, record);
  }
  record.OriginalLength = std::max(packet.OriginalLength, packet.Bytes.size());
  record.MissingBytes = record.OriginalLength - packet.Bytes.size();
}

bool CaptureReader::Next(UsbRecord& record) {
  PcapPacket packet;
  while (file_.Next(packet)) {
    try {
      Decode(packet, record);
      return true;
    } catch (const CaptureError& error) {
      if (packet.OriginalLength <= packet.Bytes.size()) {
        throw CaptureError(CaptureName(Path()) + ": record " + std::to_string(RecordNumber()) +
                           " is malformed: " + error.what());
      }
      ++uselessRecords_;
    }
  }
  return false;
}

}  // namespace lidcam::bus
