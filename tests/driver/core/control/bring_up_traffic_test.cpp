// All traffic on the bus from power-up to the start and end of a stream, for each sensor type,
// configuration and alternate setting, against golden files that were worked out apart from the
// driver.
//
// Without set files the traffic is the driver's own, with the default settings. Each start negotiates
// 640 by 480 in YUY2. The settings follow one another upwards on one camera, so that setting 1 shows
// the size that creation left, and the registers what the start before left.
//
// With set files all eight are on the disk, each with values of its own, so that a wrong file or a
// wrong section shows. The starts then use other sizes and formats too.

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>
#include <ostream>
#include <string>

#include "driver/core/control/camera_lifecycle.h"
#include "driver/core/control/stream_modes.h"
#include "driver/core/settings/settings_store.h"
#include "platform/host/nt/io/device_object.h"
#include "platform/host/nt/registry/registry.h"
#include "tests/driver/sensor/register_sets/register_set_bytes.h"
#include "tests/driver/support/register_space.h"
#include "tests/driver/support/system_root.h"

namespace lidcam::test {
namespace {

using Registers = std::map<std::uint8_t, std::uint8_t>;

struct Identity {
  const char* Golden;
  std::int32_t Type;
  std::uint16_t Vendor;
  std::uint16_t Product;
  Registers Sensor;  // what the sensor answers to the identification
};

void PrintTo(const Identity& identity, std::ostream* out) {
  *out << identity.Golden;
}

const Identity kIdentities[] = {
    {"vga0408", 1, 0x1AF0, 0x0511, {{0x02, 0x10}}},
    {"reserved3", 3, 0x1B17, 0x6100, {}},
    {"vga7648", 5, 0x1AF0, 0x6010, {{0x0A, 0x76}, {0x0B, 0x48}}},
    {"k82", 6, 0x1AF0, 0x6011, {{0x00, 0x83}}},
    {"ov7660", 7, 0x1AF0, 0x6010, {{0x0A, 0x76}, {0x0B, 0x60}, {0x29, 0x10}}},
    {"ov7663", 8, 0x1AF0, 0x6010, {{0x0A, 0x76}, {0x0B, 0x60}, {0x29, 0x00}}},
    {"vga0708", 9, 0x1AF0, 0x0511, {{0x02, 0x15}}},
    {"mi1318", 10, 0x1AF0, 0x6011, {{0x00, 0x14}}},
    {"ov7670", 11, 0x1AF0, 0x6010, {{0x0A, 0x76}, {0x0B, 0x73}}},
};

// Values at power-up that show which bits every read-modify-write step keeps.
const Registers kBridgeAtPowerUp = {{0x09, 0x11}, {0x0A, 0x12}, {0x0D, 0xC4}, {0x26, 0x4D},
                                    {0x42, 0x99}, {0x64, 0x2A}, {0x68, 0x32}};
const Registers kSensorAtPowerUp = {{0x06, 0x21}, {0x0C, 0x8B}, {0x13, 0xF1},
                                    {0x14, 0x2C}, {0x49, 0x51}, {0xF1, 0xE3}};

struct StreamFormat {
  const char* Name;
  std::int32_t Width;
  std::int32_t Height;
  std::uint16_t BitCount;
  std::uint32_t Compression;
};

constexpr StreamFormat kVgaInYuy2 = {"640 by 480 in YUY2", 640, 480, 16, kFourccYuy2};

// A camera at power-up on a machine without settings for it.
class FreshCamera {
 public:
  explicit FreshCamera(const Identity& identity, std::uint32_t longConfig)
      : identity_(identity), longConfig_(longConfig) {
    host::OpenRegistry({});
    device_.DriverKey = host::ImagingDriverKey(0);
    record_.PhysicalDeviceObject = &device_;
    record_.Space = space_.Transport();
    for (const auto& [number, value] : kBridgeAtPowerUp) space_.Bridge[number] = value;
    for (const auto& [number, value] : kSensorAtPowerUp) space_.Sensor[number] = value;
    for (const auto& [number, value] : identity.Sensor) space_.Sensor[number] = value;
  }
  FreshCamera(const FreshCamera&) = delete;
  FreshCamera& operator=(const FreshCamera&) = delete;
  ~FreshCamera() {
    if (camera_ != nullptr) DestroyCameraContext(camera_);
    host::CloseRegistry();
  }

  CameraContext* BringUp() {
    const CameraTransport transport = {static_cast<TransportRecordHead*>(&record_), OnWrite, OnRead,
                                       nullptr};
    CameraCapabilities capabilities{};
    std::uint8_t descriptor[18] = {};
    descriptor[8] = static_cast<std::uint8_t>(identity_.Vendor & 0xFF);
    descriptor[9] = static_cast<std::uint8_t>(identity_.Vendor >> 8);
    descriptor[10] = static_cast<std::uint8_t>(identity_.Product & 0xFF);
    descriptor[11] = static_cast<std::uint8_t>(identity_.Product >> 8);
    camera_ = CreateCameraContext(transport, capabilities, descriptor, longConfig_);
    return camera_;
  }

  void StartStream(std::uint32_t alternateSetting, const StreamFormat& format) {
    const auto pixels = static_cast<std::uint32_t>(format.Width * format.Height);
    FormatRequest request = {.Width = format.Width,
                             .Height = format.Height,
                             .BitCount = format.BitCount,
                             .Compression = format.Compression,
                             .ImageSize = pixels * format.BitCount / 8,
                             .Spare = 0,
                             .AvgTimePerFrame = 333333,
                             .AlternateSetting = 0};
    std::uint32_t bufferSize = 0;
    std::uint8_t widest = 0;
    MarkStreaming(*camera_);
    NegotiateFormat(*camera_, request, bufferSize, widest);
    request.AlternateSetting = alternateSetting;
    EXPECT_EQ(SelectStreamMode(*camera_, request), 0);
  }

  // The traffic since the last call.
  std::string Traffic() {
    std::string text = space_.AccessText();
    space_.ForgetTraffic();
    return text;
  }

 private:
  // What TransportContext points to: the head through which the settings find their key, with the
  // register space behind it.
  struct Record : TransportRecordHead {
    CameraTransport Space{};
  };

  static Record& RecordOf(void* context) {
    return *static_cast<Record*>(static_cast<TransportRecordHead*>(context));
  }
  static Status OnWrite(void* context, std::uint32_t request, std::uint32_t index,
                        std::uint32_t value, void* buffer, std::uint32_t* length) {
    const CameraTransport& space = RecordOf(context).Space;
    return space.WriteRequest(space.TransportContext, request, index, value, buffer, length);
  }
  static Status OnRead(void* context, std::uint32_t request, std::uint32_t index,
                       std::uint32_t value, void* buffer, std::uint32_t* length) {
    const CameraTransport& space = RecordOf(context).Space;
    return space.ReadRequest(space.TransportContext, request, index, value, buffer, length);
  }

  const Identity& identity_;
  const std::uint32_t longConfig_;
  host::HostDevice device_;
  Record record_{};
  RegisterSpace space_;
  CameraContext* camera_ = nullptr;
};

std::string GoldenText(const std::string& name) {
  std::ifstream file(LIDCAM_SOURCE_ROOT "/tests/driver/core/golden/" + name + ".txt");
  EXPECT_TRUE(file) << name;
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string IdentityText(const Identity& identity) {
  char text[16];
  std::snprintf(text, sizeof(text), "%04X:%04X", identity.Vendor, identity.Product);
  return text;
}

std::string StreamText(const CameraContext& camera) {
  return "stream start, raw size mode " + std::to_string(camera.RawSizeMode) + ", " +
         std::to_string(camera.RawFrameSize) + " bytes a raw frame\n";
}

std::string TrafficText(const Identity& identity, std::uint32_t longConfig) {
  const std::string configuration = longConfig != 0 ? "# long" : "# short";
  FreshCamera fresh(identity, longConfig);
  CameraContext* const camera = fresh.BringUp();
  if (camera == nullptr) return "no camera\n";
  EXPECT_EQ(camera->SensorType, identity.Type);

  std::string text = configuration + " configuration, " + IdentityText(identity) + ": bring-up\n" +
                     fresh.Traffic();
  const std::uint32_t widest = longConfig != 0 ? 7 : 3;
  for (std::uint32_t setting = 1; setting <= widest; ++setting) {
    const std::string heading =
        configuration + " configuration, alternate setting " + std::to_string(setting) + ": ";
    fresh.StartStream(setting, kVgaInYuy2);
    text += heading + StreamText(*camera) + fresh.Traffic();
    EXPECT_EQ(EndStream(*camera), 0);
    text += heading + "stream end\n" + fresh.Traffic();
  }
  return text;
}

class BringUpTraffic : public ::testing::TestWithParam<Identity> {};

INSTANTIATE_TEST_SUITE_P(EverySensor, BringUpTraffic, ::testing::ValuesIn(kIdentities),
                         [](const auto& parameter) { return std::string(parameter.param.Golden); });

TEST_P(BringUpTraffic, BringUpAndStreamStartsSendWhatTheGoldenFileHolds) {
  EXPECT_EQ(TrafficText(GetParam(), 1) + TrafficText(GetParam(), 0),
            GoldenText(std::string("bring_up/") + GetParam().Golden));
}

// The sections of set file `number`. Entries with the markers 0x22, 0x00 and 0x99 write nothing.
Bytes SetupSection(std::uint8_t number) {
  const auto sensor12 = static_cast<std::uint8_t>(0x80 + number);
  const auto bridge0D = static_cast<std::uint8_t>(0xC0 + number);
  return Section(1, {0x11, 0x0A, 0x02,      //
                     0x33, 0x12, sensor12,  //
                     0x22, 0x50, 0xFF,      //
                     0x11, 0x26, 0x9D,      //
                     0x11, 0x64, 0x4A,      //
                     0x11, 0x42, 0x13,      //
                     0x11, 0x0D, bridge0D,  //
                     0x33, 0x0C, 0x05,      //
                     0x00, 0x51, 0x01,      //
                     0x11, 0x68, 0x32});
}

Bytes LowLightSection(std::uint8_t number) {
  const auto sensor20 = static_cast<std::uint8_t>(0x10 + number);
  return Section(2, {0x33, 0x3B, 0x4E,  //
                     0x11, 0x26, 0x81,  //
                     0x11, 0x43, 0x50,  //
                     0x11, 0x78, 0x60,  //
                     0x22, 0x78, 0x00,  //
                     0x11, 0x79, 0x61,  //
                     0x33, 0x20, sensor20});
}

Bytes NormalSection(std::uint8_t number) {
  const auto sensor20 = static_cast<std::uint8_t>(0x20 + number);
  return Section(3, {0x33, 0x3B, 0x8D,  //
                     0x11, 0x26, 0x42,  //
                     0x11, 0x43, 0x50,  //
                     0x11, 0x78, 0x60,  //
                     0x99, 0x79, 0x00,  //
                     0x11, 0x79, 0x61,  //
                     0x33, 0x20, sensor20});
}

// S005 replaces the normal list of S004 only, and S006 has no low-light list.
void InstallSetFiles(const TemporarySystemRoot& disk) {
  for (std::uint8_t number = 0; number < 8; ++number) {
    Bytes file = SetFile({SetupSection(number), LowLightSection(number), NormalSection(number)});
    if (number == 5) file = SetFile({NormalSection(number)});
    if (number == 6) file = SetFile({SetupSection(number), NormalSection(number)});
    disk.Write("S00" + std::to_string(number) + ".set", file);
  }
}

struct Start {
  std::uint32_t AlternateSetting;
  StreamFormat Format;
  std::int32_t Flicker;
  std::int32_t LDMode;
};

// First the lists as the settings patch them, then low light, then sizes and formats that change
// the mode on some of the sensors.
constexpr Start kStartsWithSets[] = {
    {7, kVgaInYuy2, 1, 0},
    {5, kVgaInYuy2, 1, 0},
    {3, kVgaInYuy2, 1, 0},
    {1, kVgaInYuy2, 1, 0},
    {7, kVgaInYuy2, 2, 1},
    {5, kVgaInYuy2, 2, 0},
    {7, {"320 by 240 in I420", 320, 240, 12, kFourccI420}, 1, 0},
    {7, {"1280 by 1024 in RGB24", 1280, 1024, 24, 0}, 1, 0},
};

std::string HeadingOf(const Start& start) {
  return "# alternate setting " + std::to_string(start.AlternateSetting) + ", " +
         start.Format.Name + ", Flicker " + std::to_string(start.Flicker) + ", LDMode " +
         std::to_string(start.LDMode) + ": ";
}

std::string TrafficTextWithSets(const Identity& identity) {
  const TemporarySystemRoot disk;
  InstallSetFiles(disk);
  FreshCamera fresh(identity, 1);
  CameraContext* const camera = fresh.BringUp();
  if (camera == nullptr) return "no camera\n";

  std::string text = "# " + IdentityText(identity) + ": bring-up\n" + fresh.Traffic();
  for (const Start& start : kStartsWithSets) {
    camera->Flicker = start.Flicker;
    camera->LDMode = start.LDMode;
    fresh.StartStream(start.AlternateSetting, start.Format);
    text += HeadingOf(start) + StreamText(*camera) + fresh.Traffic();
    EXPECT_EQ(EndStream(*camera), 0);
    text += HeadingOf(start) + "stream end\n" + fresh.Traffic();
  }
  return text;
}

TEST_P(BringUpTraffic, WithSetFilesItIsWhatTheGoldenFileHolds) {
  EXPECT_EQ(TrafficTextWithSets(GetParam()),
            GoldenText(std::string("bring_up_with_sets/") + GetParam().Golden));
}

}  // namespace
}  // namespace lidcam::test
