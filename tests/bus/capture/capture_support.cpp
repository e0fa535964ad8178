#include "tests/bus/capture/capture_support.h"

#include <stdlib.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

namespace lidcam::bus::test {
namespace {

void AppendWord(Bytes& bytes, std::uint32_t word) {
  for (int shift = 0; shift < 32; shift += 8) {
    bytes.push_back(static_cast<std::uint8_t>((word >> shift) & 0xFF));
  }
}

}  // namespace

Bytes Hex(std::string_view text) {
  Bytes bytes;
  std::string digits;
  for (const char letter : text) {
    if (letter == ' ' || letter == '\n') continue;
    digits += letter;
    if (digits.size() < 2) continue;
    bytes.push_back(static_cast<std::uint8_t>(std::stoi(digits, nullptr, 16)));
    digits.clear();
  }
  if (!digits.empty()) throw std::invalid_argument("half a byte in hexadecimal text");
  return bytes;
}

TemporaryFolder::TemporaryFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "lidcam-capture-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
  folder_ = name;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

std::vector<std::string> TemporaryFolder::Names() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
    names.push_back(entry.path().filename().string());
  }
  std::ranges::sort(names);
  return names;
}

void WriteFile(const std::string& path, std::span<const std::uint8_t> bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  std::ranges::copy(bytes, std::ostreambuf_iterator<char>(file));
}

Bytes ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

PcapImage::PcapImage(std::uint32_t linkType) {
  image_ = Hex("D4 C3 B2 A1  02 00 04 00  00 00 00 00  00 00 00 00  00 00 04 00");
  AppendWord(image_, linkType);
  boundaries_.insert(image_.size());
}

void PcapImage::Add(std::span<const std::uint8_t> record, std::size_t originalLength) {
  AppendWord(image_, 1000);
  AppendWord(image_, 123456);
  AppendWord(image_, static_cast<std::uint32_t>(record.size()));
  AppendWord(image_,
             static_cast<std::uint32_t>(originalLength != 0 ? originalLength : record.size()));
  image_.insert(image_.end(), record.begin(), record.end());
  boundaries_.insert(image_.size());
}

ControlResult ScriptedBus::ControlTransfer(const SetupPacket& setup, std::span<std::uint8_t> data) {
  ++Microframe;
  Bytes sent;
  if (!setup.IsDeviceToHost()) sent.assign(data.begin(), data.begin() + setup.Length);
  Heard.emplace_back(setup, sent);
  const auto script = answers_.find(setup);
  if (script == answers_.end()) {
    return {UsbStatus::Ok, setup.IsDeviceToHost() ? 0U : std::uint32_t{setup.Length}};
  }
  const Answer answer = script->second.front();
  if (script->second.size() > 1) script->second.pop_front();
  if (answer.Status != UsbStatus::Ok) return {answer.Status, 0};
  const std::size_t length = std::min({answer.Data.size(), data.size(), std::size_t{setup.Length}});
  std::copy_n(answer.Data.begin(), length, data.begin());
  return {UsbStatus::Ok, static_cast<std::uint32_t>(length)};
}

UsbStatus ScriptedBus::SelectSetting(std::uint8_t /*interface*/, std::uint8_t alternateSetting) {
  ++Microframe;
  return Refused.contains(alternateSetting) ? UsbStatus::NoBandwidth : UsbStatus::Ok;
}

IsochronousResult ScriptedBus::ReadIsochronous(std::uint8_t /*endpoint*/,
                                               std::span<std::uint8_t> buffer,
                                               std::span<IsochronousPacket> packets) {
  const IsochronousResult result{UsbStatus::Ok, Microframe};
  const std::size_t share = packets.empty() ? 0 : buffer.size() / packets.size();
  std::size_t offset = 0;
  for (IsochronousPacket& packet : packets) {
    packet = {static_cast<std::uint32_t>(offset), 0, UsbStatus::Ok};
    if (!Packets.empty()) {
      packet.Length = static_cast<std::uint32_t>(Packets.front().Data.size());
      packet.Status = Packets.front().Status;
      std::ranges::copy(Packets.front().Data, buffer.begin() + static_cast<std::ptrdiff_t>(offset));
      Packets.pop_front();
    }
    offset += share;
    ++Microframe;
  }
  return result;
}

void SayDescriptors(ScriptedBus& bus, std::uint16_t vendor, std::uint16_t product) {
  Bytes device = Hex("12 01 00 02 00 00 00 40 00 00 00 00 00 01 00 00 00 01");
  device[8] = static_cast<std::uint8_t>(vendor & 0xFF);
  device[9] = static_cast<std::uint8_t>(vendor >> 8);
  device[10] = static_cast<std::uint8_t>(product & 0xFF);
  device[11] = static_cast<std::uint8_t>(product >> 8);
  const Bytes configuration =
      Hex("09 02 37 00 01 01 00 80 FA"
          "09 04 00 00 02 FF 00 00 00  07 05 81 03 01 00 01  07 05 82 01 00 00 01"
          "09 04 00 01 02 FF 00 00 00  07 05 81 03 01 00 01  07 05 82 01 00 14 01");
  bus.Say({0x80, 0x06, 0x0100, 0, 18}, {UsbStatus::Ok, device});
  bus.Say({0x80, 0x06, 0x0200, 0, 9}, {UsbStatus::Ok, configuration});
  bus.Say({0x80, 0x06, 0x0200, 0, 55}, {UsbStatus::Ok, configuration});
}

void WriteRegister(UsbBus& bus, std::uint8_t select, std::uint8_t address, std::uint8_t value) {
  bus.ControlTransfer({0x40, 0xA0, select, 0xFFFF, 0}, {});
  bus.ControlTransfer({0x40, 0xA0, value, static_cast<std::uint16_t>(0xFF00 | address), 0}, {});
}

int ReadRegister(UsbBus& bus, std::uint8_t select, std::uint8_t address) {
  std::array<std::uint8_t, 1> byte{};
  bus.ControlTransfer({0x40, 0xA0, select, 0xFFFF, 0}, {});
  const ControlResult result =
      bus.ControlTransfer({0xC0, 0xA1, 1, static_cast<std::uint16_t>(0xFF00 | address), 1}, byte);
  return result.Status == UsbStatus::Ok && result.Transferred == 1
             ? byte[0]
             : 256 + static_cast<int>(result.Status);
}

CommandResult RunCommand(const std::string& command) {
  struct Closer {
    void operator()(std::FILE* pipe) const { pclose(pipe); }
  };
  std::unique_ptr<std::FILE, Closer> pipe{popen(command.c_str(), "r")};
  if (!pipe) return {};
  CommandResult result;
  std::array<char, 4096> buffer{};
  for (std::size_t got = 0; (got = std::fread(buffer.data(), 1, buffer.size(), pipe.get())) != 0;) {
    result.Output.append(buffer.data(), got);
  }
  result.Succeeded = pclose(pipe.release()) == 0;
  return result;
}

}  // namespace lidcam::bus::test
