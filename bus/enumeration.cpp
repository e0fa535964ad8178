#include "bus/enumeration.h"

#include <set>
#include <string>

namespace lidcam::bus {
namespace {

enum DescriptorType : std::uint8_t {
  kDevice = 1,
  kConfiguration = 2,
  kInterface = 4,
  kEndpoint = 5,
};

constexpr std::size_t kDeviceSize = 18;
constexpr std::size_t kConfigurationSize = 9;
constexpr std::size_t kInterfaceSize = 9;
constexpr std::size_t kEndpointSize = 7;
constexpr std::size_t kHeadSize = 2;
constexpr std::uint32_t kLargestTransaction = 1024;
constexpr std::uint16_t kReservedTransactions = 3;

[[noreturn]] void Fail(const std::string& descriptor, std::size_t offset,
                       const std::string& reason) {
  throw EnumerationError(descriptor + " descriptor, byte " + std::to_string(offset) + ": " +
                         reason);
}

std::uint16_t Word(std::span<const std::uint8_t> bytes, std::size_t at) {
  return static_cast<std::uint16_t>(bytes[at] | (bytes[at + 1] << 8));
}

/// Parses the descriptors of a configuration in their order.
class ConfigurationParser {
 public:
  explicit ConfigurationParser(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  std::vector<AlternateSetting> Parse() {
    CheckHead();
    std::size_t at = kConfigurationSize;
    while (at < bytes_.size()) at += ParseOne(at);
    EndInterface();
    if (interfaces_.size() != bytes_[4]) {
      Refuse(4, std::to_string(bytes_[4]) + " interfaces announced, " +
                    std::to_string(interfaces_.size()) + " described");
    }
    return std::move(settings_);
  }

 private:
  [[noreturn]] static void Refuse(std::size_t offset, const std::string& reason) {
    Fail("configuration", offset, reason);
  }

  void CheckHead() const {
    if (bytes_.size() < kConfigurationSize) {
      Refuse(bytes_.size(),
             "ends within its first " + std::to_string(kConfigurationSize) + " bytes");
    }
    RequireLength(0, bytes_[0], kConfigurationSize);
    if (bytes_[1] != kConfiguration) {
      Refuse(1, "type " + std::to_string(bytes_[1]) + " is not a configuration");
    }
    if (Word(bytes_, 2) != bytes_.size()) {
      Refuse(2, "total length " + std::to_string(Word(bytes_, 2)) + ", but " +
                    std::to_string(bytes_.size()) + " bytes came");
    }
  }

  static void RequireLength(std::size_t at, std::size_t length, std::size_t wanted) {
    if (length != wanted) {
      Refuse(at, "length " + std::to_string(length) + " is not " + std::to_string(wanted));
    }
  }

  std::size_t ParseOne(std::size_t at) {
    const std::size_t length = bytes_[at];
    const std::size_t left = bytes_.size() - at;
    if (length < kHeadSize || length > left) {
      Refuse(at,
             "length " + std::to_string(length) + " with " + std::to_string(left) + " bytes left");
    }
    if (bytes_[at + 1] == kInterface) ParseInterface(at, length);
    if (bytes_[at + 1] == kEndpoint) ParseEndpoint(at, length);
    return length;
  }

  void ParseInterface(std::size_t at, std::size_t length) {
    RequireLength(at, length, kInterfaceSize);
    EndInterface();
    interfaceAt_ = at;
    endpoints_ = 0;
    interfaces_.insert(bytes_[at + 2]);
    settings_.push_back({bytes_[at + 2], bytes_[at + 3], 0, 0});
  }

  void ParseEndpoint(std::size_t at, std::size_t length) {
    RequireLength(at, length, kEndpointSize);
    if (settings_.empty()) Refuse(at, "an endpoint before the first interface");
    ++endpoints_;
    const std::uint16_t packetSize = Word(bytes_, at + 4);
    const std::uint16_t additional = (packetSize >> 11) & 0x3;
    if ((packetSize & 0x7FF) > kLargestTransaction || additional == kReservedTransactions) {
      Refuse(at + 4, "packet size " + std::to_string(packetSize) + " is not one of high speed");
    }
    const bool isochronous = (bytes_[at + 3] & 0x03) == 1;
    const bool in = (bytes_[at + 2] & 0x80) != 0;
    AlternateSetting& setting = settings_.back();
    if (!isochronous || !in || setting.IsochronousEndpoint != 0) return;
    setting.IsochronousEndpoint = bytes_[at + 2];
    setting.BytesPerMicroframe = BytesPerMicroframe(packetSize);
  }

  void EndInterface() const {
    if (settings_.empty() || endpoints_ == bytes_[interfaceAt_ + 4]) return;
    Refuse(interfaceAt_ + 4, std::to_string(bytes_[interfaceAt_ + 4]) + " endpoints announced, " +
                                 std::to_string(endpoints_) + " described");
  }

  std::span<const std::uint8_t> bytes_;
  std::vector<AlternateSetting> settings_;
  std::set<std::uint8_t> interfaces_;
  std::size_t interfaceAt_ = 0;
  std::size_t endpoints_ = 0;
};

/// Fills `data` with a descriptor of the device, or throws.
void ReadDescriptor(UsbBus& bus, DescriptorType type, const char* name,
                    std::span<std::uint8_t> data) {
  const auto length = static_cast<std::uint16_t>(data.size());
  const SetupPacket setup{0x80, 0x06, static_cast<std::uint16_t>(type << 8), 0, length};
  const ControlResult result = bus.ControlTransfer(setup, data);
  if (result.Status != UsbStatus::Ok) {
    throw EnumerationError(std::string(name) + " descriptor: the request ended with " +
                           std::string(ToString(result.Status)));
  }
  if (result.Transferred != length) {
    throw EnumerationError(std::string(name) +
                           " descriptor: " + std::to_string(result.Transferred) + " of " +
                           std::to_string(length) + " bytes came");
  }
}

void ReadDeviceDescriptor(UsbBus& bus, UsbDeviceInfo& info) {
  ReadDescriptor(bus, kDevice, "device", info.DeviceDescriptor);
  if (info.DeviceDescriptor[0] != kDeviceSize) {
    Fail("device", 0, "length " + std::to_string(info.DeviceDescriptor[0]) + " is not 18");
  }
  if (info.DeviceDescriptor[1] != kDevice) {
    Fail("device", 1, "type " + std::to_string(info.DeviceDescriptor[1]) + " is not a device");
  }
  info.Vendor = Word(info.DeviceDescriptor, 8);
  info.Product = Word(info.DeviceDescriptor, 10);
}

void ReadConfigurationDescriptor(UsbBus& bus, UsbDeviceInfo& info) {
  std::array<std::uint8_t, kConfigurationSize> head{};
  ReadDescriptor(bus, kConfiguration, "configuration", head);
  const std::uint16_t total = Word(head, 2);
  if (total < kConfigurationSize) {
    Fail("configuration", 2, "total length " + std::to_string(total) + " is below 9");
  }
  info.Configuration.resize(total);
  ReadDescriptor(bus, kConfiguration, "configuration", info.Configuration);
  info.AlternateSettings = ParseConfiguration(info.Configuration);
}

}  // namespace

std::vector<AlternateSetting> ParseConfiguration(std::span<const std::uint8_t> configuration) {
  return ConfigurationParser{configuration}.Parse();
}

UsbDeviceInfo EnumerateDevice(UsbBus& bus) {
  UsbDeviceInfo info;
  ReadDeviceDescriptor(bus, info);
  ReadConfigurationDescriptor(bus, info);
  const SetupPacket select{0x00, 0x09, info.Configuration[5], 0, 0};
  const ControlResult result = bus.ControlTransfer(select, {});
  // A recording that began after plug-in doesn't contain this request: its camera was configured.
  if (result.Status != UsbStatus::Ok && result.Status != UsbStatus::NotRecorded) {
    throw EnumerationError("configuration " + std::to_string(info.Configuration[5]) +
                           ": selecting it ended with " + std::string(ToString(result.Status)));
  }
  return info;
}

}  // namespace lidcam::bus
