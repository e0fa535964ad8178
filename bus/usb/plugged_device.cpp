#include "bus/usb/plugged_device.h"

#include <array>
#include <cstdio>

namespace lidcam::bus {

std::string PluggedDevice::Node() const {
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "/dev/bus/usb/%03u/%03u", Bus, Address);
  return text.data();
}

}  // namespace lidcam::bus
