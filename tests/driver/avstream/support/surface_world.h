#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "driver/avstream/device/capture_device.h"
#include "driver/avstream/filter/capture_filter.h"
#include "driver/avstream/pin/capture_pin.h"
#include "tests/driver/avstream/support/fake_streaming_class.h"
#include "tests/driver/avstream/support/stub_device.h"
#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::test {

/// A block of an exact length in memory of its own, so that a memory checker finds any access
/// beyond it.
class ExactBlock {
 public:
  explicit ExactBlock(std::size_t bytes, std::uint8_t fill = 0) : bytes_(bytes, fill) {}

  template <typename T>
  T& As() {
    return *static_cast<T*>(static_cast<void*>(bytes_.data()));
  }
  std::uint8_t* Data() { return bytes_.data(); }
  [[nodiscard]] ULONG Size() const { return static_cast<ULONG>(bytes_.size()); }
  [[nodiscard]] ULONG Word(std::size_t offset) const {
    ULONG word = 0;
    std::memcpy(&word, bytes_.data() + offset, sizeof(word));
    return word;
  }
  ExactBlock& Put(std::size_t offset, ULONG word) {
    std::memcpy(bytes_.data() + offset, &word, sizeof(word));
    return *this;
  }
  [[nodiscard]] const std::vector<std::uint8_t>& Bytes() const { return bytes_; }

 private:
  std::vector<std::uint8_t> bytes_;
};

// As the platform publishes them.
inline constexpr GUID kClientVideoInfo = {
    0x05589F80, 0xC356, 0x11CE, {0xBF, 0x01, 0x00, 0xAA, 0x00, 0x55, 0x59, 0x5A}};
inline constexpr GUID kClientDroppedFrames = {
    0xC6E13344, 0x30AC, 0x11D0, {0xA1, 0x8C, 0x00, 0xA0, 0xC9, 0x11, 0x89, 0x56}};
inline constexpr ULONG kClientYuy2 = 0x32595559;

/// A connection's format of so many bytes; the part of a header that doesn't fit is left out.
ExactBlock MakeFormat(LONG width, LONG height, ULONG biSize = 40, ULONG formatSize = 152);

/// Streaming class, device, filter and a pin, with the hardware's side stubbed.
class SurfaceWorld {
 public:
  SurfaceWorld();
  SurfaceWorld(const SurfaceWorld&) = delete;
  SurfaceWorld& operator=(const SurfaceWorld&) = delete;

  FakeStreamingClass Ks;
  StubDevice Device{&Ks.Device};
};

/// A pin of the world, connected but not yet created.
class WorldPin {
 public:
  explicit WorldPin(SurfaceWorld& world, ExactBlock format = MakeFormat(640, 480));
  WorldPin(const WorldPin&) = delete;
  WorldPin& operator=(const WorldPin&) = delete;

  NTSTATUS Create() { return kPinEntries.Dispatch->Create(&Pin, nullptr); }
  NTSTATUS SetState(int to, int from) {
    return kPinEntries.Dispatch->SetDeviceState(&Pin, static_cast<KSSTATE>(to),
                                                static_cast<KSSTATE>(from));
  }
  NTSTATUS Process() { return kPinEntries.Dispatch->Process(&Pin); }
  [[nodiscard]] CapturePin& Object() const { return *static_cast<CapturePin*>(Pin.Context); }

  ExactBlock Format;
  KSPIN_DESCRIPTOR_EX Descriptor{};
  FakeBag Bag;
  KSPIN Pin{};
};

/// Expects one object of the driver's in the nonpaged pool, under their tag: "KCNw".
void ExpectOneObject(std::size_t bytes);

/// Runs a test in a simulation, with nothing left in it at the end.
void InSurface(const std::function<void(SurfaceWorld& world)>& test);

}  // namespace lidcam::test
