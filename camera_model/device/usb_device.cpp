#include "camera_model/device/usb_device.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

#include "camera_model/scene/test_card.h"

namespace lidcam::camera_model {
namespace {

constexpr std::uint8_t kStandardIn = 0x80;
constexpr std::uint8_t kStandardOut = 0x00;
constexpr std::uint8_t kInterfaceIn = 0x81;
constexpr std::uint8_t kInterfaceOut = 0x01;
constexpr std::uint8_t kEndpointIn = 0x82;
constexpr std::uint8_t kEndpointOut = 0x02;

constexpr std::uint8_t kGetStatus = 0;
constexpr std::uint8_t kClearFeature = 1;
constexpr std::uint8_t kSetAddress = 5;
constexpr std::uint8_t kGetDescriptor = 6;
constexpr std::uint8_t kGetConfiguration = 8;
constexpr std::uint8_t kSetConfiguration = 9;
constexpr std::uint8_t kGetInterface = 10;
constexpr std::uint8_t kSetInterface = 11;

constexpr std::uint8_t kTypeMask = 0x60;
constexpr std::uint8_t kVendorType = 0x40;
constexpr std::uint8_t kConfigurationValue = 1;

std::optional<std::uint32_t> Answer(std::span<const std::uint8_t> bytes,
                                    const bus::SetupPacket& setup, std::span<std::uint8_t> data) {
  const std::size_t count = std::min({bytes.size(), std::size_t{setup.Length}, data.size()});
  std::copy_n(bytes.begin(), count, data.begin());
  return static_cast<std::uint32_t>(count);
}

const CameraIdentity& RequireIdentity(const UsbDeviceOptions& options) {
  const CameraIdentity* identity = FindIdentity(options.VendorId, options.ProductId);
  if (identity == nullptr) throw std::invalid_argument("no camera has this USB identity");
  return *identity;
}

SensorModel RequireSensor(const UsbDeviceOptions& options) {
  const CameraIdentity& identity = RequireIdentity(options);
  const SensorModel model = options.Sensor.value_or(identity.Sensors.front());
  if (!identity.MayHave(model)) {
    throw std::invalid_argument("the sensor " + std::string(NameOf(model)) +
                                " is never fitted behind this USB identity");
  }
  return model;
}

std::shared_ptr<Scene> SceneOrTestCard(std::shared_ptr<Scene> scene) {
  return scene != nullptr ? std::move(scene) : std::make_shared<TestCard>();
}

}  // namespace

UsbDevice::UsbDevice(const UsbDeviceOptions& options)
    : identity_(RequireIdentity(options)),
      configurationKind_(options.Configuration),
      sensor_(RequireSensor(options), options.SensorRegisters),
      bridge_(sensor_, options.Bridge),
      scene_(SceneOrTestCard(options.View)),
      stream_(bridge_, *scene_, options.Seed) {
  stream_.SetLight(options.Light);
}

std::uint32_t UsbDevice::BytesPerMicroframe(std::uint8_t alternateSetting) const {
  return bus::BytesPerMicroframe(IsochronousMaxPacketSize(configurationKind_, alternateSetting));
}

std::uint32_t UsbDevice::BytesPerMicroframe() const {
  return IsConfigured() ? BytesPerMicroframe(alternateSetting_) : 0;
}

std::optional<std::uint32_t> UsbDevice::Control(const bus::SetupPacket& setup,
                                                std::span<std::uint8_t> data,
                                                std::uint64_t microframe) {
  if ((setup.RequestType & kTypeMask) == kVendorType) return bridge_.VendorRequest(setup, data);
  const auto is = [&setup](std::uint8_t type, std::uint8_t request) {
    return setup.RequestType == type && setup.Request == request;
  };
  if (is(kStandardIn, kGetDescriptor)) return GetDescriptor(setup, data);
  if (is(kInterfaceOut, kSetInterface)) return SetInterface(setup, microframe);
  if (is(kEndpointOut, kClearFeature)) return ClearFeature(setup);
  if (is(kStandardOut, kSetAddress)) return 0;
  if (is(kStandardOut, kSetConfiguration)) {
    if (setup.Value > kConfigurationValue) return std::nullopt;
    configuration_ = static_cast<std::uint8_t>(setup.Value);
    alternateSetting_ = 0;
    stream_.Restart(microframe);
    return 0;
  }
  if (is(kStandardIn, kGetConfiguration)) {
    return Answer(std::array{configuration_}, setup, data);
  }
  if (is(kInterfaceIn, kGetInterface)) {
    if (!IsConfigured() || setup.Index != 0) return std::nullopt;
    return Answer(std::array{alternateSetting_}, setup, data);
  }
  if (is(kStandardIn, kGetStatus) || is(kInterfaceIn, kGetStatus) || is(kEndpointIn, kGetStatus)) {
    return Answer(std::array<std::uint8_t, 2>{}, setup, data);
  }
  return std::nullopt;
}

std::optional<std::uint32_t> UsbDevice::GetDescriptor(const bus::SetupPacket& setup,
                                                      std::span<std::uint8_t> data) const {
  const auto type = static_cast<std::uint8_t>(setup.Value >> 8);
  const auto index = static_cast<std::uint8_t>(setup.Value & 0xFF);
  if (type == 1 && index == 0) return Answer(DeviceDescriptor(identity_), setup, data);
  if (type == 2 && index == 0) {
    return Answer(ConfigurationDescriptor(configurationKind_), setup, data);
  }
  if (type == 3) {
    const auto bytes = StringDescriptor(index);
    if (bytes.has_value()) return Answer(*bytes, setup, data);
  }
  return std::nullopt;
}

std::optional<std::uint32_t> UsbDevice::SetInterface(const bus::SetupPacket& setup,
                                                     std::uint64_t microframe) {
  if (!IsConfigured() || setup.Index != 0) return std::nullopt;
  if (setup.Value >= AlternateSettingCount(configurationKind_)) return std::nullopt;
  alternateSetting_ = static_cast<std::uint8_t>(setup.Value);
  stream_.Restart(microframe);
  return 0;
}

std::optional<std::uint32_t> UsbDevice::ClearFeature(const bus::SetupPacket& setup) {
  constexpr std::uint16_t kEndpointHalt = 0;
  const bool isOurs = setup.Index == kInterruptEndpoint || setup.Index == kIsochronousEndpoint;
  if (setup.Value != kEndpointHalt || !isOurs) return std::nullopt;
  if (setup.Index == kIsochronousEndpoint) stream_.ClearStall();
  return 0;
}

UsbDevice::IsochronousAnswer UsbDevice::Isochronous(std::uint64_t microframe,
                                                    std::span<std::uint8_t> out) {
  const std::uint32_t limit = BytesPerMicroframe();
  if (limit == 0) return {};
  const StreamPacket packet = stream_.Packet(microframe, limit);
  const std::size_t count = std::min(packet.Bytes.size(), out.size());
  if (count != 0) std::memcpy(out.data(), packet.Bytes.data(), count);
  return {static_cast<std::uint32_t>(count), packet.HasBusError, packet.IsStalled};
}

}  // namespace lidcam::camera_model
