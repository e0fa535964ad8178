#pragma once

#include <cstdint>
#include <span>

#include "bus/passing_bus.h"

namespace lidcam::app {

/// Takes the pictures out of a camera's data: behind the 64-byte header of each raw frame all bytes become grey.
/// Packets, their lengths and times, frame markers, headers and register traffic stay, so that a recording of it
/// replays as one of the camera would.
class PictureCover final : public bus::PassingBus {
 public:
  using bus::PassingBus::PassingBus;

  bus::IsochronousResult ReadIsochronous(std::uint8_t endpoint, std::span<std::uint8_t> buffer,
                                         std::span<bus::IsochronousPacket> packets) override;

 private:
  void Cover(std::span<std::uint8_t> packet);

  std::size_t headerLeft_ = 0;  ///< bytes of the newest frame's header that are still to come
};

}  // namespace lidcam::app
