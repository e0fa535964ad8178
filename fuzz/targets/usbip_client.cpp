// A hostile USB/IP client: whatever it sends, whenever it does, and whether it reads the answers or not, the
// session answers or ends, and keeps no more than its bounds.

#include "fuzz/support/served_client.h"
#include "serve/usbip/usbip_session.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  lidcam::fuzz::Input input(data, size);
  lidcam::serve::CameraSupply supply(lidcam::fuzz::FaultyCameras(input.Take<std::uint8_t>()));
  const lidcam::serve::Session::Time start{std::chrono::hours(1)};
  lidcam::serve::usbip::UsbipSession session(supply, start, [](const std::string&) {});
  lidcam::fuzz::PlayClient(input, session, start);
  return 0;
}
