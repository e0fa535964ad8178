#include "library/camera/controls/sensor_notes.h"
#include "library/camera/bring_up/virtual_time.h"

#include <memory>
#include <string_view>

#include "camera_model/bus_adapter/simulated_bus.h"
#include "camera_model/device/camera_identity.h"
#include "driver/core/control/stream_modes.h"
#include "library/camera/bring_up/camera_identity.h"
#include "library/camera/bring_up/started_camera.h"
#include "library/camera/opened_camera.h"
#include "library/settings/stream_size.h"

namespace lidcam::app {
namespace {

// Header and closing bytes.
constexpr std::uint32_t kBesidePixels = 66;
constexpr std::uint32_t kBytesPerPixel = 2;

std::string MissingText(const std::string& sensor, PictureSize raw, std::uint32_t pixelBytes) {
  const std::uint32_t lineBytes = static_cast<std::uint32_t>(raw.Width) * kBytesPerPixel;
  const std::uint32_t lines = pixelBytes / lineBytes;
  const std::uint32_t missing = static_cast<std::uint32_t>(raw.Yuy2Bytes()) - pixelBytes;
  if (missing < lineBytes) {
    return sensor + " leaves out the last " + std::to_string(missing / kBytesPerPixel) +
           " pixels of its frames, at the bottom right: what shows there was in the buffer before";
  }
  return sensor + " sends " + std::to_string(lines) + " of " + std::to_string(raw.Height) +
         " lines: the strip below them is what was in the buffer before, green at first";
}

std::string SurplusText(const std::string& sensor, PictureSize raw, std::uint32_t pixelBytes) {
  const std::uint32_t lineBytes = static_cast<std::uint32_t>(raw.Width) * kBytesPerPixel;
  const std::uint32_t lines = (pixelBytes + lineBytes - 1) / lineBytes;
  return sensor + " sends " + std::to_string(lines) + " lines for a picture of " +
         std::to_string(raw.Height) + ": the lowest " +
         std::to_string(lines - static_cast<std::uint32_t>(raw.Height)) + " are cut off";
}

std::string ObstacleOf(bus::UsbBus& bus, std::string_view sensor) {
  std::int32_t taken = 0;
  WithStartedCamera(bus, [&taken](CameraContext& camera) { taken = camera.SensorType; });
  if (const std::string obstacle = StreamObstacle(taken); !obstacle.empty()) return obstacle;
  const std::optional<std::int32_t> real = SensorTypeOf(sensor);
  if (!real || RawFrameBytes(*real, RawMode640x480) == RawFrameBytes(taken, RawMode640x480)) {
    return {};
  }
  return "it is taken for the sensor " + std::string(SensorName(taken)) +
         ", whose frames have another size";
}

}  // namespace

std::string PictureNote(std::int32_t sensorType, PictureSize raw, std::uint32_t rawBytes) {
  if (rawBytes <= kBesidePixels) return {};
  const std::uint32_t pixelBytes = rawBytes - kBesidePixels;
  const auto pictureBytes = static_cast<std::uint32_t>(raw.Yuy2Bytes());
  const std::string sensor = "the sensor " + std::string(SensorName(sensorType));
  if (pixelBytes < pictureBytes) return MissingText(sensor, raw, pixelBytes);
  return pixelBytes > pictureBytes ? SurplusText(sensor, raw, pixelBytes) : std::string();
}

std::string PictureNoteOf(const CameraContext& context) {
  const std::optional<PictureSize> raw = RawSizeOf(context.RawSizeMode);
  return raw ? PictureNote(context.SensorType, *raw, context.RawFrameSize) : std::string();
}

std::string StreamObstacle(std::int32_t sensorType) {
  return RawFrameBytes(sensorType, RawMode640x480) == 0 ? "its frame size is not known" : "";
}

std::string StreamObstacleOf(std::uint16_t vendor, std::uint16_t product) {
  const camera_model::CameraIdentity* const identity = camera_model::FindIdentity(vendor, product);
  std::string obstacle;
  if (identity == nullptr) return obstacle;
  for (const camera_model::SensorModel model : identity->Sensors) {
    const std::optional<std::int32_t> type = SensorTypeOf(camera_model::NameOf(model));
    obstacle = type ? StreamObstacle(*type) : std::string();
    if (obstacle.empty()) return obstacle;
  }
  return obstacle;
}

std::string StreamObstacle(const camera_model::CameraOptions& options) {
  std::string obstacle;
  RunInVirtualTime([&] {
    const auto bus = bus::MakeSimulatedBus(options, bus::Pacing::FreeRunning);
    obstacle = ObstacleOf(*bus, camera_model::NameOf(options.Sensor));
  });
  return obstacle;
}

}  // namespace lidcam::app
