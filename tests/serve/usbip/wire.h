#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// USB/IP messages as a client composes and reads them, typed from the protocol's description.
namespace lidcam::serve::usbip::wire {

using Bytes = std::vector<std::uint8_t>;

inline void Put(Bytes& to, std::uint32_t number) {
  for (const int shift : {24, 16, 8, 0}) to.push_back(static_cast<std::uint8_t>(number >> shift));
}

inline std::uint32_t Get(const Bytes& from, std::size_t at) {
  return static_cast<std::uint32_t>(from[at]) << 24 |
         static_cast<std::uint32_t>(from[at + 1]) << 16 |
         static_cast<std::uint32_t>(from[at + 2]) << 8 | static_cast<std::uint32_t>(from[at + 3]);
}

inline Bytes ListRequest() {
  return {0x01, 0x11, 0x80, 0x05, 0, 0, 0, 0};
}

inline Bytes ImportRequest(const std::string& busId = "1-1") {
  Bytes bytes{0x01, 0x11, 0x80, 0x03, 0, 0, 0, 0};
  bytes.insert(bytes.end(), busId.begin(), busId.end());
  bytes.resize(8 + 32);
  return bytes;
}

inline constexpr std::size_t kImportReplySize = 8 + 312;
inline constexpr std::uint32_t kDevice = 0x00010002;
inline constexpr std::uint32_t kOut = 0;
inline constexpr std::uint32_t kIn = 1;

struct SubmitFields {
  std::uint32_t SequenceNumber = 1;
  std::uint32_t Direction = kIn;
  std::uint32_t Endpoint = 0;
  std::uint32_t Length = 0;
  std::uint32_t Packets = 0;
  std::array<std::uint8_t, 8> Setup{};
  std::uint32_t Command = 1;
  std::uint32_t Device = kDevice;
};

inline Bytes Submit(const SubmitFields& fields) {
  Bytes bytes;
  for (const std::uint32_t number :
       {fields.Command, fields.SequenceNumber, fields.Device, fields.Direction, fields.Endpoint,
        std::uint32_t{0}, fields.Length, std::uint32_t{0}, fields.Packets, std::uint32_t{1}}) {
    Put(bytes, number);
  }
  bytes.insert(bytes.end(), fields.Setup.begin(), fields.Setup.end());
  return bytes;
}

inline Bytes ControlIn(std::uint32_t sequenceNumber, const std::array<std::uint8_t, 8>& setup) {
  const auto length = static_cast<std::uint32_t>(setup[6] | setup[7] << 8);
  return Submit({.SequenceNumber = sequenceNumber, .Length = length, .Setup = setup});
}

inline Bytes ControlOut(std::uint32_t sequenceNumber, const std::array<std::uint8_t, 8>& setup) {
  return Submit({.SequenceNumber = sequenceNumber, .Direction = kOut, .Setup = setup});
}

inline Bytes SetConfiguration(std::uint32_t sequenceNumber) {
  return ControlOut(sequenceNumber, {0x00, 9, 1, 0, 0, 0, 0, 0});
}

inline Bytes SetInterface(std::uint32_t sequenceNumber, std::uint8_t setting) {
  return ControlOut(sequenceNumber, {0x01, 11, setting, 0, 0, 0, 0, 0});
}

/// A transfer of the stream: contiguous packets of equal length.
inline Bytes Stream(std::uint32_t sequenceNumber, std::uint32_t packets,
                    std::uint32_t packetLength) {
  Bytes bytes = Submit({.SequenceNumber = sequenceNumber,
                        .Endpoint = 2,
                        .Length = packets * packetLength,
                        .Packets = packets});
  for (std::uint32_t i = 0; i < packets; ++i) {
    for (const std::uint32_t number : {i * packetLength, packetLength, 0U, 0U}) Put(bytes, number);
  }
  return bytes;
}

inline Bytes Unlink(std::uint32_t sequenceNumber, std::uint32_t unlinked) {
  Bytes bytes;
  for (const std::uint32_t number : {2U, sequenceNumber, kDevice, 0U, 0U, unlinked}) {
    Put(bytes, number);
  }
  bytes.resize(48);
  return bytes;
}

}  // namespace lidcam::serve::usbip::wire
