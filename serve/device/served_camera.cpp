#include "serve/device/served_camera.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

namespace lidcam::serve {
namespace {

using bus::UsbStatus;

constexpr std::uint8_t kStandardIn = 0x80;
constexpr std::uint8_t kStandardOut = 0x00;
constexpr std::uint8_t kInterfaceIn = 0x81;
constexpr std::uint8_t kInterfaceOut = 0x01;
constexpr std::uint8_t kEndpointIn = 0x82;
constexpr std::uint8_t kEndpointOut = 0x02;

constexpr std::uint8_t kGetStatus = 0;
constexpr std::uint8_t kClearFeature = 1;
constexpr std::uint8_t kGetConfiguration = 8;
constexpr std::uint8_t kSetConfiguration = 9;
constexpr std::uint8_t kGetInterface = 10;
constexpr std::uint8_t kSetInterface = 11;

constexpr std::uint8_t kEndpointType = 5;
constexpr std::size_t kEndpointSize = 7;

// Bounds the memory of a read, however much a client asks for at once.
constexpr std::size_t kMicroframesAtOnce = 64;

bool Is(const bus::SetupPacket& setup, std::uint8_t type, std::uint8_t request) {
  return setup.RequestType == type && setup.Request == request;
}

bus::ControlResult Answer(std::span<const std::uint8_t> bytes, const bus::SetupPacket& setup,
                          std::span<std::uint8_t> data) {
  const std::size_t count = std::min({bytes.size(), std::size_t{setup.Length}, data.size()});
  std::copy_n(bytes.begin(), count, data.begin());
  return {UsbStatus::Ok, static_cast<std::uint32_t>(count)};
}

EndpointKind KindOfAttributes(std::uint8_t attributes) {
  constexpr std::uint8_t kTypeMask = 0x03;
  constexpr std::uint8_t kIsochronous = 1;
  constexpr std::uint8_t kInterrupt = 3;
  switch (attributes & kTypeMask) {
    case kIsochronous:
      return EndpointKind::Isochronous;
    case kInterrupt:
      return EndpointKind::Interrupt;
    default:
      return EndpointKind::None;
  }
}

}  // namespace

ServedCamera::ServedCamera(std::unique_ptr<bus::UsbBus> bus, bus::UsbDeviceInfo device,
                           const std::optional<bus::FaultScript>& faults)
    : bus_(std::move(bus)), device_(std::move(device)) {
  settings_.resize(std::numeric_limits<std::uint8_t>::max() + std::size_t{1});
  if (!faults) return;
  faults_ = std::make_unique<bus::FaultBus>(
      *bus_, bus::FaultBusOptions{.Script = *faults, .Sleep = [this](std::uint64_t microseconds) {
                                    delay_ += std::chrono::microseconds(microseconds);
                                  }});
}

ControlAnswer ServedCamera::Control(const bus::SetupPacket& setup, std::span<std::uint8_t> data) {
  delay_ = {};
  bus::ControlResult result = Is(setup, kInterfaceOut, kSetInterface)
                                  ? SelectSetting(setup)
                                  : Bus().ControlTransfer(setup, data);
  // A recording has what its own host asked for.
  if (result.Status == UsbStatus::NotRecorded) result = AnswerByDescriptors(setup, data);
  if (result.Status == UsbStatus::Ok) NoteConfiguration(setup);
  return {result.Status, result.Transferred, delay_};
}

bus::ControlResult ServedCamera::SelectSetting(const bus::SetupPacket& setup) {
  const auto isAskedFor = [&setup](const bus::AlternateSetting& setting) {
    return setting.Interface == setup.Index && setting.Setting == setup.Value;
  };
  const bool exists = std::ranges::any_of(device_.AlternateSettings, isAskedFor);
  if (!exists) return {UsbStatus::Stalled, 0};
  return {Bus().SelectSetting(static_cast<std::uint8_t>(setup.Index),
                              static_cast<std::uint8_t>(setup.Value)),
          0};
}

bus::ControlResult ServedCamera::AnswerByDescriptors(const bus::SetupPacket& setup,
                                                     std::span<std::uint8_t> data) const {
  constexpr std::size_t kConfigurationValue = 5;
  if (Is(setup, kStandardOut, kSetConfiguration)) {
    const bool isKnown =
        setup.Value == 0 || setup.Value == device_.Configuration[kConfigurationValue];
    return {isKnown ? UsbStatus::Ok : UsbStatus::Stalled, 0};
  }
  if (Is(setup, kEndpointOut, kClearFeature)) return {UsbStatus::Ok, 0};
  if (Is(setup, kStandardIn, kGetConfiguration)) {
    return Answer(std::array{configuration_}, setup, data);
  }
  if (Is(setup, kInterfaceIn, kGetInterface) && setup.Index < settings_.size()) {
    return Answer(std::array{settings_[setup.Index]}, setup, data);
  }
  if (Is(setup, kStandardIn, kGetStatus) || Is(setup, kInterfaceIn, kGetStatus) ||
      Is(setup, kEndpointIn, kGetStatus)) {
    return Answer(std::array<std::uint8_t, 2>{}, setup, data);
  }
  return {UsbStatus::Stalled, 0};
}

void ServedCamera::NoteConfiguration(const bus::SetupPacket& setup) {
  if (Is(setup, kStandardOut, kSetConfiguration)) {
    configuration_ = static_cast<std::uint8_t>(setup.Value);
    std::ranges::fill(settings_, std::uint8_t{0});
  } else if (Is(setup, kInterfaceOut, kSetInterface)) {
    settings_[setup.Index] = static_cast<std::uint8_t>(setup.Value);
  }
}

EndpointKind ServedCamera::KindOf(std::uint8_t address) const {
  constexpr std::uint8_t kNumberMask = 0x0F;
  if ((address & kNumberMask) == 0) return EndpointKind::Control;
  const std::vector<std::uint8_t>& bytes = device_.Configuration;
  for (std::size_t at = 0; at + kEndpointSize <= bytes.size(); at += bytes[at]) {
    if (bytes[at] == 0) break;
    if (bytes[at + 1] == kEndpointType && bytes[at + 2] == address) {
      return KindOfAttributes(bytes[at + 3]);
    }
  }
  return EndpointKind::None;
}

std::uint32_t ServedCamera::BytesPerMicroframe(std::uint8_t address) const {
  for (const bus::AlternateSetting& setting : device_.AlternateSettings) {
    if (setting.IsochronousEndpoint == address && settings_[setting.Interface] == setting.Setting) {
      return configuration_ == 0 ? 0 : setting.BytesPerMicroframe;
    }
  }
  return 0;
}

UsbStatus ServedCamera::ReadStream(std::uint8_t address, std::size_t count,
                                   const std::function<void(const StreamPacket&)>& take) {
  const std::size_t share = BytesPerMicroframe(address);
  while (count > 0) {
    const std::size_t some = std::min(count, kMicroframesAtOnce);
    buffer_.resize(some * share);
    packets_.assign(some, {});
    const bus::IsochronousResult result = Bus().ReadIsochronous(address, buffer_, packets_);
    if (result.Status == UsbStatus::Disconnected || result.Status == UsbStatus::EndOfCapture) {
      return UsbStatus::Disconnected;
    }
    if (result.Status == UsbStatus::Silent) return UsbStatus::Silent;
    for (const bus::IsochronousPacket& packet : packets_) {
      take({std::span(buffer_).subspan(packet.Offset, packet.Length), packet.Status});
    }
    count -= some;
  }
  return UsbStatus::Ok;
}

}  // namespace lidcam::serve
