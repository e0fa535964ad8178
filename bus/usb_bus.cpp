#include "bus/usb_bus.h"

namespace lidcam::bus {

std::string_view ToString(UsbStatus status) {
  switch (status) {
    case UsbStatus::Ok:
      return "ok";
    case UsbStatus::Stalled:
      return "stalled";
    case UsbStatus::NoBandwidth:
      return "no bandwidth";
    case UsbStatus::Disconnected:
      return "disconnected";
    case UsbStatus::TimedOut:
      return "timed out";
    case UsbStatus::Aborted:
      return "aborted";
    case UsbStatus::EndOfCapture:
      return "end of capture";
    case UsbStatus::NotRecorded:
      return "not recorded";
    case UsbStatus::Silent:
      return "silent";
    case UsbStatus::Failed:
      return "failed";
  }
  return "unknown";
}

}  // namespace lidcam::bus
