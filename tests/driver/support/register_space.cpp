#include "tests/driver/support/register_space.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

namespace lidcam::test {
namespace {

[[gnu::format(printf, 1, 2)]] std::string Format(const char* format, ...) {
  std::array<char, 80> text{};
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  return text.data();
}

WirePacket MakePacket(std::uint8_t requestType, std::uint32_t request, std::uint32_t index,
                      std::uint32_t value, std::uint32_t length) {
  const auto byte = [](std::uint32_t word, int at) {
    return static_cast<std::uint8_t>((word >> (8 * at)) & 0xFF);
  };
  return {requestType,    byte(request, 0), byte(value, 0),  byte(value, 1),
          byte(index, 0), byte(index, 1),   byte(length, 0), byte(length, 1)};
}

unsigned ValueOf(const WirePacket& packet) {
  return packet[2] | (static_cast<unsigned>(packet[3]) << 8);
}

unsigned IndexOf(const WirePacket& packet) {
  return packet[4] | (static_cast<unsigned>(packet[5]) << 8);
}

}  // namespace

RegisterSpace::RegisterSpace() : record_{{}, this} {
  const CameraTransport transport = Transport();
  context_.TransportContext = transport.TransportContext;
  context_.WriteRequest = transport.WriteRequest;
  context_.ReadRequest = transport.ReadRequest;
}

CameraTransport RegisterSpace::Transport() {
  return {&record_, OnWrite, OnRead, nullptr};
}

RegisterSpace& RegisterSpace::SpaceOf(void* transportContext) {
  return *static_cast<TransportRecord*>(transportContext)->Space;
}

std::string RegisterSpace::AccessText() const {
  std::string text;
  for (const std::string& access : accesses_) text += access + "\n";
  return text;
}

void RegisterSpace::ForgetTraffic() {
  packets_.clear();
  accesses_.clear();
}

Status RegisterSpace::OnWrite(void* transportContext, std::uint32_t request, std::uint32_t index,
                              std::uint32_t value, void*, std::uint32_t* length) {
  return SpaceOf(transportContext).Write(MakePacket(0x40, request, index, value, *length));
}

Status RegisterSpace::OnRead(void* transportContext, std::uint32_t request, std::uint32_t index,
                             std::uint32_t value, void* buffer, std::uint32_t* length) {
  auto& result = *static_cast<std::uint8_t*>(buffer);
  return SpaceOf(transportContext).Read(MakePacket(0xC0, request, index, value, *length), result);
}

Status RegisterSpace::Write(const WirePacket& packet) {
  Note(packet);
  const bool selected = std::exchange(isSelected_, false);
  if (IndexOf(packet) == 0xFFFF) {
    select_ = packet[2];
    isSelected_ = true;
    return FailureOf(Format("select %u", static_cast<unsigned>(select_)));
  }
  const bool isSensor = select_ >= 2;
  const std::string access = selected
                                 ? Format("write %s %04X=%02X", isSensor ? "sensor" : "bridge",
                                          IndexOf(packet), ValueOf(packet))
                                 : Format("write raw %04X=%04X", IndexOf(packet), ValueOf(packet));
  const Status failure = FailureOf(access);
  accesses_.push_back(failure == 0 ? access : access + " failed");
  if (failure == 0) (isSensor ? Sensor : Bridge)[packet[4]] = packet[2];
  return failure;
}

Status RegisterSpace::Read(const WirePacket& packet, std::uint8_t& result) {
  Note(packet);
  const bool selected = std::exchange(isSelected_, false);
  const bool isSensor = select_ >= 2;
  const std::string access =
      selected ? Format("read %s %04X", isSensor ? "sensor" : "bridge", IndexOf(packet))
               : Format("read raw %04X", IndexOf(packet));
  const Status failure = FailureOf(access);
  if (failure != 0) {
    accesses_.push_back(access + " failed");
    return failure;
  }
  result = (isSensor ? Sensor : Bridge)[packet[4]];
  if (auto answers = SensorAnswers.find(packet[4]);
      isSensor && answers != SensorAnswers.end() && !answers->second.empty()) {
    result = answers->second.front();
    answers->second.pop_front();
  }
  accesses_.push_back(access + Format(" -> %02X", static_cast<unsigned>(result)));
  return 0;
}

void RegisterSpace::Note(const WirePacket& packet) {
  if (OnRequest) OnRequest(packet);
  packets_.push_back(packet);
}

Status RegisterSpace::FailureOf(const std::string& access) const {
  return Failure ? Failure(access) : 0;
}

}  // namespace lidcam::test
