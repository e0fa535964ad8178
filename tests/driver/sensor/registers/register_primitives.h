#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "driver/sensor/registers/register_access.h"
#include "tests/driver/support/register_space.h"

namespace lidcam::test {

enum class RegisterPath { Application, Frame, None };

/// One register primitive under test, with its packets on the bus.
struct Primitive {
  const char* Name;
  RegisterPath Path;
  bool IsRead;
  bool IsSensor;
  std::vector<WirePacket> Packets;  ///< of an access to address 0xFF12, a write with value 0x34
  std::function<Status(CameraContext& context)> Run;  ///< does that access, reading into ReadByte()
};

inline std::ostream& operator<<(std::ostream& stream, const Primitive& primitive) {
  return stream << primitive.Name;
}

inline std::string PrimitiveName(const testing::TestParamInfo<Primitive>& info) {
  return info.param.Name;
}

/// Where the reads of the primitives put their byte.
inline std::uint8_t& ReadByte() {
  static std::uint8_t byte = 0;
  return byte;
}

/// All nine primitives.
inline const std::vector<Primitive>& AllPrimitives() {
  static const std::vector<Primitive> primitives = {
      {"WriteBridgeRegister",
       RegisterPath::Application,
       false,
       false,
       {{0x40, 0xA0, 0x00, 0x00, 0xFF, 0xFF, 0x00, 0x00},
        {0x40, 0xA0, 0x34, 0x00, 0x12, 0xFF, 0x00, 0x00}},
       [](CameraContext& context) { return WriteBridgeRegister(context, 0xFF12, 0x34); }},
      {"WriteSensorRegister",
       RegisterPath::Application,
       false,
       true,
       {{0x40, 0xA0, 0x02, 0x00, 0xFF, 0xFF, 0x00, 0x00},
        {0x40, 0xA0, 0x34, 0x00, 0x12, 0xFF, 0x00, 0x00}},
       [](CameraContext& context) { return WriteSensorRegister(context, 0xFF12, 0x34); }},
      {"DriverWriteBridgeRegister",
       RegisterPath::Frame,
       false,
       false,
       {{0x40, 0xA0, 0x00, 0x00, 0xFF, 0xFF, 0x00, 0x00},
        {0x40, 0xA0, 0x34, 0x00, 0x12, 0xFF, 0x00, 0x00}},
       [](CameraContext& context) { return DriverWriteBridgeRegister(context, 0xFF12, 0x34); }},
      {"DriverWriteSensorRegister",
       RegisterPath::Frame,
       false,
       true,
       {{0x40, 0xA0, 0x02, 0x00, 0xFF, 0xFF, 0x00, 0x00},
        {0x40, 0xA0, 0x34, 0x00, 0x12, 0xFF, 0x00, 0x00}},
       [](CameraContext& context) { return DriverWriteSensorRegister(context, 0xFF12, 0x34); }},
      {"ReadBridgeRegister",
       RegisterPath::Application,
       true,
       false,
       {{0x40, 0xA0, 0x01, 0x00, 0xFF, 0xFF, 0x00, 0x00},
        {0xC0, 0xA1, 0x01, 0x00, 0x12, 0xFF, 0x01, 0x00}},
       [](CameraContext& context) { return ReadBridgeRegister(context, 0xFF12, ReadByte()); }},
      {"DriverReadBridgeRegister",
       RegisterPath::Frame,
       true,
       false,
       {{0x40, 0xA0, 0x01, 0x00, 0xFF, 0xFF, 0x00, 0x00},
        {0xC0, 0xA1, 0x01, 0x00, 0x12, 0xFF, 0x01, 0x00}},
       [](CameraContext& context) {
         return DriverReadBridgeRegister(context, 0xFF12, ReadByte());
       }},
      {"ReadSensorRegister",
       RegisterPath::None,
       true,
       true,
       {{0x40, 0xA0, 0x03, 0x00, 0xFF, 0xFF, 0x00, 0x00},
        {0xC0, 0xA1, 0x01, 0x00, 0x12, 0xFF, 0x01, 0x00}},
       [](CameraContext& context) { return ReadSensorRegister(context, 0xFF12, ReadByte()); }},
      {"RawWriteRegister",
       RegisterPath::None,
       false,
       false,
       {{0x40, 0xA0, 0x34, 0x00, 0x12, 0xFF, 0x00, 0x00}},
       [](CameraContext& context) { return RawWriteRegister(context, 0xFF12, 0x34); }},
      {"RawReadRegister",
       RegisterPath::None,
       true,
       false,
       {{0xC0, 0xA1, 0x01, 0x00, 0x12, 0xFF, 0x01, 0x00}},
       [](CameraContext& context) { return RawReadRegister(context, 0xFF12, ReadByte()); }},
  };
  return primitives;
}

inline const Primitive& PrimitiveNamed(std::string_view name) {
  return *std::ranges::find(AllPrimitives(), name, &Primitive::Name);
}

/// The primitives of one path.
inline std::vector<Primitive> PrimitivesOf(RegisterPath path) {
  std::vector<Primitive> found;
  for (const Primitive& primitive : AllPrimitives()) {
    if (primitive.Path == path) found.push_back(primitive);
  }
  return found;
}

}  // namespace lidcam::test
