// The machine that lidcam runs on in the tests of plugged-in cameras: libusb stood in for, with devices and
// trouble from the environment's LIDCAM_STAND_IN. Its words are separated by semicolons:
//   plug PATH CAMERA     a simulated camera, as --camera sim names it, in real time
//   foreign PATH         a device of another kind
//   forbid PATH          its file may not be opened
//   occupy PATH          another program has its interface
//   driver               a kernel driver holds the interfaces
//   refuse SETTING       the bus has no room for an alternate setting
//   fail SETTING         the camera knows no such alternate setting
//   at MILLISECONDS ...  any of these, or: unplug BUS, sleep BUS, that long after the first transfer of
//                        a stream

#include <libusb.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "camera_model/bus_adapter/simulated_bus.h"
#include "camera_model/device/camera_options.h"
#include "tests/bus/usb/libusb_stand_in.h"

namespace {

using lidcam::stand_in::Device;

class Machine {
 public:
  explicit Machine(const std::string& text) {
    std::istringstream words(text);
    std::string word;
    while (std::getline(words, word, ';')) {
      std::istringstream line(word);
      std::string verb;
      line >> verb;
      if (verb == "at") {
        later_.push_back(word);
      } else {
        CarryOut(verb, line);
      }
    }
    if (!later_.empty()) std::thread([this] { CarryOutLater(); }).detach();
  }

 private:
  void CarryOutLater() {
    while (lidcam::stand_in::Look().IsochronousSubmissions == 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    const auto begin = std::chrono::steady_clock::now();
    for (const std::string& word : later_) {
      std::istringstream line(word);
      std::string at;
      std::string verb;
      long time = 0;
      line >> at >> time >> verb;
      std::this_thread::sleep_until(begin + std::chrono::milliseconds(time));
      CarryOut(verb, line);
    }
  }

  void CarryOut(const std::string& verb, std::istringstream& line) {
    std::string path;
    std::string camera;
    int number = 0;
    if (verb == "driver") {
      device_.HasKernelDriver = true;
    } else if (verb == "refuse") {
      line >> number;
      script_.SettingFailures[number] = {LIBUSB_ERROR_OTHER, ENOSPC};
      lidcam::stand_in::SetScript(script_);
    } else if (verb == "fail") {
      line >> number;
      script_.SettingFailures[number] = {LIBUSB_ERROR_NOT_FOUND, 0};
      lidcam::stand_in::SetScript(script_);
    } else if (verb == "sleep") {
      line >> number;
      lidcam::stand_in::Suspend(static_cast<unsigned>(number));
    } else if (verb == "unplug") {
      line >> number;
      lidcam::stand_in::Unplug(static_cast<unsigned>(number));
    } else if (verb == "forbid") {
      device_.OpenError = LIBUSB_ERROR_ACCESS;
    } else if (verb == "occupy") {
      device_.ClaimError = LIBUSB_ERROR_BUSY;
    } else if (verb == "plug" || verb == "foreign") {
      line >> path >> camera;
      Plug(path, camera);
    } else {
      std::abort();
    }
  }

  void Plug(const std::string& path, const std::string& camera) {
    Device device = device_;
    const std::size_t dash = path.find('-');
    device.Bus = static_cast<unsigned>(std::stoul(path));
    device.Ports.clear();
    std::istringstream ports(path.substr(dash + 1));
    std::string port;
    while (std::getline(ports, port, '.')) {
      device.Ports.push_back(static_cast<std::uint8_t>(std::stoul(port)));
    }
    device.Address = ++lastAddress_;
    device.Vendor = 0x046D;
    device.Product = 0x0825;
    if (!camera.empty()) {
      const auto options = lidcam::camera_model::ParseCameraOptions(camera);
      device.Vendor = options.VendorId;
      device.Product = options.ProductId;
      device.Behind = lidcam::bus::MakeSimulatedBus(options, lidcam::bus::Pacing::RealTime);
      device.Behind->ControlTransfer({0x00, 9, 1, 0, 0}, {});
    }
    lidcam::stand_in::Plug(device);
  }

  std::vector<std::string> later_;
  unsigned lastAddress_ = 3;
  Device device_;
  lidcam::stand_in::Script script_;
};

// Before main(): the program looks for cameras as soon as it knows its options.
[[maybe_unused]] const bool g_isSetUp = [] {
  const char* const text = std::getenv("LIDCAM_STAND_IN");
  static auto* const machine = new Machine(text != nullptr ? text : "");
  return machine != nullptr;
}();

}  // namespace
