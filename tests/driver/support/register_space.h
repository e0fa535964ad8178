#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "driver/core/record/camera_context.h"
#include "driver/core/settings/settings_store.h"

namespace lidcam::test {

/// Bytes of a SETUP packet in wire order.
using WirePacket = std::array<std::uint8_t, 8>;

/// Status returned by `RegisterSpace::Failure` where any failure will do.
inline constexpr Status kRequestFailed = -1;

/// A camera's register space behind the two request callbacks: 256 bridge and 256 sensor registers
/// that store what is written, with all traffic recorded twice, as SETUP packets and as one line
/// per access.
///
/// It decodes the select register on its own: a request that a select precedes makes a line like
/// "write bridge FF0A=11" or "read sensor FF0B -> 76"; one without is "write raw 1234=00FF". A
/// failing request ends its line with " failed".
class RegisterSpace {
 public:
  /// Callbacks over this object; it must outlive the record that gets them.
  [[nodiscard]] CameraTransport Transport();

  /// The device whose driver key the settings store finds below the transport context. Null, the
  /// initial state, has no key.
  void SetPhysicalDevice(PDEVICE_OBJECT device) { record_.Head.PhysicalDeviceObject = device; }

  /// A zeroed record wired to this register space, for tests of single operations.
  [[nodiscard]] CameraContext& Context() { return context_; }

  std::array<std::uint8_t, 256> Bridge{};
  std::array<std::uint8_t, 256> Sensor{};

  /// Answers for a sensor register, one per read, used before `Sensor`.
  std::map<std::uint8_t, std::deque<std::uint8_t>> SensorAnswers;

  /// Returns nonzero to make an access fail with that status; called with the access's line without
  /// the value read ("write bridge FF0A=11", "read sensor FF0B").
  std::function<Status(const std::string& access)> Failure;

  /// Called before each request, with its SETUP packet.
  std::function<void(const WirePacket& packet)> OnRequest;

  [[nodiscard]] const std::vector<WirePacket>& Packets() const { return packets_; }
  [[nodiscard]] const std::vector<std::string>& Accesses() const { return accesses_; }

  /// The lines so far joined by line feeds, one at the end, as golden files hold them.
  [[nodiscard]] std::string AccessText() const;

  void ForgetTraffic();

  RegisterSpace();
  RegisterSpace(const RegisterSpace&) = delete;
  RegisterSpace& operator=(const RegisterSpace&) = delete;

 private:
  static Status OnWrite(void* transportContext, std::uint32_t request, std::uint32_t index,
                        std::uint32_t value, void* buffer, std::uint32_t* length);
  static Status OnRead(void* transportContext, std::uint32_t request, std::uint32_t index,
                       std::uint32_t value, void* buffer, std::uint32_t* length);

  // What the transport context points to: the core reads the head only.
  struct TransportRecord {
    TransportRecordHead Head;
    RegisterSpace* Space;
  };

  static RegisterSpace& SpaceOf(void* transportContext);

  Status Write(const WirePacket& packet);
  Status Read(const WirePacket& packet, std::uint8_t& result);
  void Note(const WirePacket& packet);
  Status FailureOf(const std::string& access) const;

  TransportRecord record_;
  CameraContext context_{};
  std::vector<WirePacket> packets_;
  std::vector<std::string> accesses_;
  std::uint8_t select_ = 0;  // content of the chip's select register
  bool isSelected_ = false;  // the request before was a select
};

}  // namespace lidcam::test
