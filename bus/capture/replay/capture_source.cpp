#include "bus/capture/replay/capture_source.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <set>
#include <utility>

#include "bus/capture/records/little_endian.h"
#include "bus/capture/records/record_data.h"
#include "bus/capture/replay/capture_reader.h"
#include "bus/capture/replay/control_history.h"

namespace lidcam::bus {
namespace {

constexpr std::array kCameraIdentities{
    UsbIdentity{0x1AF0, 0x0511}, UsbIdentity{0x1AF0, 0x6010}, UsbIdentity{0x1AF0, 0x6011},
    UsbIdentity{0x1B17, 0x6100}, UsbIdentity{0x1B17, 0x6101}, UsbIdentity{0x1B17, 0x6110},
    UsbIdentity{0x1B17, 0x6111},
};

constexpr std::size_t kVendorAt = 8;
constexpr std::size_t kProductAt = 10;
constexpr std::size_t kDeviceDescriptorSize = 18;
constexpr std::uint8_t kDeviceDescriptorType = 1;

/// Collects a capture's information about its devices.
class DeviceSurvey {
 public:
  void Add(const UsbRecord& record) {
    if (record.Type == TransferType::Other || record.Address.Device == 0) return;
    RecordedDevice& device = devices_[record.Address];
    device.Address = record.Address;
    ++device.Records;
    if (record.MissingBytes != 0 && CarriesData(record)) AddCut(record, device);
    if (record.Type == TransferType::Control) AddControl(record, device);
    if (record.Type == TransferType::Isochronous) AddIsochronous(record, device);
  }

  [[nodiscard]] std::vector<RecordedDevice> Result() const {
    std::vector<RecordedDevice> result;
    for (const auto& [address, device] : devices_) result.push_back(device);
    return result;
  }

 private:
  using TransferKey = std::pair<DeviceAddress, std::uint64_t>;

  void AddControl(const UsbRecord& record, RecordedDevice& device) {
    const TransferKey key{record.Address, record.Id};
    if (record.Setup) {
      ++device.ControlTransfers;
      if (IsRegisterRequest(*record.Setup)) ++device.RegisterRequests;
      if (IsSetInterface(*record.Setup)) ++device.SettingRequests;
      descriptorRequests_.erase(key);
      if (IsGetDeviceDescriptor(*record.Setup)) descriptorRequests_.insert(key);
      return;
    }
    if (record.Event != RecordEvent::Complete || descriptorRequests_.erase(key) == 0) return;
    // The first request may read only the head of the descriptor.
    if (record.Data.size() < kProductAt + 2 || record.Data[0] != kDeviceDescriptorSize ||
        record.Data[1] != kDeviceDescriptorType) {
      return;
    }
    device.Identity = UsbIdentity{LoadLittle<std::uint16_t>(record.Data, kVendorAt),
                                  LoadLittle<std::uint16_t>(record.Data, kProductAt)};
  }

  static void AddCut(const UsbRecord& record, RecordedDevice& device) {
    ++device.CutRecords;
    device.MissingBytes += record.MissingBytes;
    device.SnapLength = std::max(device.SnapLength, record.OriginalLength - record.MissingBytes);
    device.LongestRecord = std::max(device.LongestRecord, record.OriginalLength);
  }

  static void AddIsochronous(const UsbRecord& record, RecordedDevice& device) {
    if (!record.IsIn() || record.Event != RecordEvent::Complete || record.Packets.empty()) return;
    const auto [entry, added] = device.Streams.try_emplace(record.Endpoint);
    RecordedStream& stream = entry->second;
    if (added) stream.FirstMicroframe = record.StartMicroframe;
    stream.Packets += record.Packets.size();
    for (const RecordedPacket& packet : record.Packets) stream.Bytes += packet.Length;
  }

  std::map<DeviceAddress, RecordedDevice> devices_;
  std::set<TransferKey> descriptorRequests_;
};

std::string ToString(const UsbIdentity& identity) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%04x:%04x", unsigned{identity.Vendor},
                unsigned{identity.Product});
  return text.data();
}

std::string Hex(std::uint8_t value) {
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), "0x%02x", unsigned{value});
  return text.data();
}

std::string Join(const std::vector<std::string>& parts) {
  std::string joined;
  for (const std::string& part : parts) joined += (joined.empty() ? "" : ", ") + part;
  return joined;
}

/// Addresses with identities, for the user to choose one.
std::string Addresses(const std::vector<RecordedDevice>& devices) {
  std::vector<std::string> parts;
  for (const RecordedDevice& device : devices) {
    const std::string identity = device.Identity ? ToString(*device.Identity) : "unknown";
    parts.push_back(ToString(device.Address) + " (" + identity + ")");
  }
  return parts.empty() ? "none" : Join(parts);
}

/// How to make a capture without cut records.
std::string Remedy(std::size_t longestRecord) {
  const std::string length = std::to_string(std::max(longestRecord, kLargestRecord));
  return "capture again with a snapshot length of " + length + " (tcpdump -s " + length +
         ", USBPcapCMD --snaplen " + length + ", in Wireshark the interface's snapshot length)";
}

bool IsKnownCamera(const RecordedDevice& device) {
  return device.Identity && IsCameraIdentity(*device.Identity);
}

bool SpeaksRegisters(const RecordedDevice& device) {
  return !device.Identity && device.RegisterRequests != 0;
}

bool Streams(const RecordedDevice& device) {
  return !device.Identity && !device.Streams.empty();
}

RecordedDevice FindCamera(const std::string& path, const std::vector<RecordedDevice>& devices) {
  for (const auto& fits : {IsKnownCamera, SpeaksRegisters, Streams}) {
    std::vector<RecordedDevice> candidates;
    std::ranges::copy_if(devices, std::back_inserter(candidates), fits);
    if (candidates.size() == 1) return candidates.front();
    if (candidates.size() > 1) {
      throw CaptureError(path + ": more than one device may be the camera: " +
                         Addresses(candidates) + "; choose one with --device BUS.DEVICE");
    }
  }
  throw CaptureError(path + ": no camera in it; devices: " + Addresses(devices) +
                     "; choose one with --device BUS.DEVICE");
}

RecordedDevice FindDevice(const std::string& path, const std::vector<RecordedDevice>& devices,
                          const DeviceAddress& address) {
  const auto found = std::ranges::find(devices, address, &RecordedDevice::Address);
  if (found != devices.end()) return *found;
  throw CaptureError(path + ": no device " + ToString(address) +
                     " in it; devices: " + Addresses(devices));
}

}  // namespace

std::optional<std::uint8_t> RecordedDevice::StreamEndpoint() const {
  const auto most =
      std::ranges::max_element(Streams, {}, [](const auto& stream) { return stream.second.Bytes; });
  if (most == Streams.end()) return std::nullopt;
  return most->first;
}

bool IsCameraIdentity(const UsbIdentity& identity) {
  return std::ranges::find(kCameraIdentities, identity) != kCameraIdentities.end();
}

CaptureSurvey SurveyCapture(const std::string& path) {
  CaptureReader reader{path};
  DeviceSurvey survey;
  UsbRecord record;
  while (reader.Next(record)) survey.Add(record);
  return {.Devices = survey.Result(),
          .WholeRecords = reader.RecordNumber(),
          .IsCutOff = reader.IsCutOff(),
          .UselessRecords = reader.UselessRecords()};
}

std::vector<std::string> NotesOn(const CaptureSurvey& survey) {
  std::vector<std::string> notes;
  if (survey.IsCutOff) {
    notes.push_back("the file is cut off behind record " + std::to_string(survey.WholeRecords) +
                    "; it is used up to there");
  }
  if (survey.UselessRecords != 0) {
    notes.push_back("the capture program cut " + std::to_string(survey.UselessRecords) +
                    " records so short that they tell nothing; " + Remedy(kLargestRecord));
  }
  return notes;
}

std::vector<std::string> NotesOn(const RecordedDevice& device) {
  if (device.CutRecords == 0) return {};
  return {"the capture program cut " + std::to_string(device.CutRecords) + " of " +
          std::to_string(device.Records) + " records of device " + ToString(device.Address) +
          " to " + std::to_string(device.SnapLength) + " bytes, and " +
          std::to_string(device.MissingBytes) + " bytes are missing; " +
          Remedy(device.LongestRecord)};
}

std::vector<std::string> UnknownOf(const RecordedDevice& device) {
  std::vector<std::string> unknown;
  if (!device.Identity) unknown.emplace_back("identity");
  if (device.RegisterRequests == 0) unknown.emplace_back("sensor");
  if (device.RegisterRequests == 0 || device.SettingRequests == 0) unknown.emplace_back("format");
  return unknown;
}

std::string Describe(const RecordedDevice& device) {
  std::string line = ToString(device.Address) + " ";
  line += device.Identity ? ToString(*device.Identity) : "unknown";
  if (IsKnownCamera(device)) line += " camera";
  line += " control=" + std::to_string(device.ControlTransfers) +
          " registers=" + std::to_string(device.RegisterRequests);
  for (const auto& [endpoint, stream] : device.Streams) {
    line += " stream " + Hex(endpoint) + " packets=" + std::to_string(stream.Packets) +
            " bytes=" + std::to_string(stream.Bytes);
  }
  const bool mayBeCamera = IsKnownCamera(device) || SpeaksRegisters(device) || Streams(device);
  const std::vector<std::string> unknown = UnknownOf(device);
  if (device.CutRecords != 0) line += " cut=" + std::to_string(device.CutRecords);
  if (mayBeCamera && !unknown.empty()) line += " not recorded: " + Join(unknown);
  return line;
}

CaptureSource::CaptureSource(const std::string& path, std::optional<DeviceAddress> address)
    : path_(path) {
  const CaptureSurvey survey = SurveyCapture(path);
  const std::vector<RecordedDevice>& devices = survey.Devices;
  const std::string name = CaptureName(path);
  isCutOff_ = survey.IsCutOff;
  notes_ = NotesOn(survey);
  try {
    device_ = address ? FindDevice(name, devices, *address) : FindCamera(name, devices);
  } catch (const CaptureError& error) {
    // The missing part may be the cause.
    std::string text = error.what();
    for (const std::string& note : notes_) text += "; " + note;
    throw CaptureError(text);
  }
  std::ranges::copy(NotesOn(device_), std::back_inserter(notes_));
}

std::uint8_t CaptureSource::StreamEndpoint() const {
  if (const auto endpoint = device_.StreamEndpoint()) return *endpoint;
  throw CaptureError(CaptureName(path_) + ": device " + ToString(device_.Address) +
                     " sent no isochronous data; record it while the camera streams");
}

}  // namespace lidcam::bus
