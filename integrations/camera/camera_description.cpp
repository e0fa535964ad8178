#include "integrations/camera/camera_description.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <thread>
#include <utility>

#include "integrations/camera/library_calls.h"

namespace lidcam::integrations {
namespace {

constexpr std::chrono::milliseconds kLook{100};
constexpr int kLooksATry = 10;

struct CloseCamera {
  void operator()(lidcam_camera* camera) const { lidcam_close(camera); }
};
using OpenedCamera = std::unique_ptr<lidcam_camera, CloseCamera>;

bool IsTemporary(lidcam_status status) {
  return status == LIDCAM_ERROR_NOT_FOUND || status == LIDCAM_ERROR_IN_USE ||
         status == LIDCAM_ERROR_UNPLUGGED;
}

/// @return whether it is time to end
bool Wait(const std::function<bool()>& isEnding) {
  for (int look = 0; look < kLooksATry; ++look) {
    if (isEnding()) return true;
    std::this_thread::sleep_for(kLook);
  }
  return isEnding();
}

OpenedCamera OpenWhenThere(const CameraAddress& address,
                           const std::function<void(const std::string& line)>& tell,
                           const std::function<bool()>& isEnding) {
  std::string told;
  while (true) {
    lidcam_camera* camera = nullptr;
    const lidcam_status status = OpenCamera(address, address.Text, &camera);
    if (status >= LIDCAM_OK) return OpenedCamera(camera);
    const std::string reason = lidcam_error_text();
    if (status == LIDCAM_ERROR_INVALID_ARGUMENT) throw ShareUsageError(reason);
    if (!IsTemporary(status)) throw ShareError(reason);
    if (reason != told) tell(reason + "; waiting for it");
    told = reason;
    if (Wait(isEnding)) return nullptr;
  }
}

std::vector<PictureSize> ReadSizes(lidcam_camera* camera) {
  const lidcam_format* const* formats = nullptr;
  std::size_t count = 0;
  if (lidcam_formats_list(camera, &formats, &count) < LIDCAM_OK) {
    throw ShareError(lidcam_error_text());
  }
  std::vector<PictureSize> sizes;
  for (std::size_t index = 0; index < count; ++index) {
    sizes.push_back({.Width = formats[index]->width, .Height = formats[index]->height});
  }
  return sizes;
}

/// The camera's address from then on. Not its port: it may be plugged in at another one next time.
std::string LastingAddress(const std::string& given, lidcam_camera_kind kind) {
  if (!given.empty()) return given;
  return kind == LIDCAM_KIND_PLUGGED_IN ? "usb" : "sim";
}

}  // namespace

lidcam_status OpenCamera(const CameraAddress& address, const std::string& text,
                         lidcam_camera** camera) {
  lidcam_open_options options = LIDCAM_OPEN_OPTIONS_INIT;
  options.light = address.Light ? address.Light->c_str() : nullptr;
  options.faults = address.Faults ? address.Faults->c_str() : nullptr;
  return lidcam_open(text.c_str(), &options, camera);
}

std::vector<CameraControl> ReadCameraControls(lidcam_camera* camera) {
  const lidcam_control* const* controls = nullptr;
  std::size_t count = 0;
  if (lidcam_controls_list(camera, &controls, &count) < LIDCAM_OK) return {};
  std::vector<CameraControl> read;
  for (std::size_t index = 0; index < count; ++index) {
    const lidcam_control& control = *controls[index];
    std::int32_t value = 0;
    if (lidcam_control_get(camera, control.name, &value) < LIDCAM_OK) return {};
    read.push_back({.Name = control.name,
                    .Description = control.description,
                    .Minimum = control.minimum,
                    .Maximum = control.maximum,
                    .Step = control.step,
                    .Default = control.default_value,
                    .Flags = control.flags,
                    .Value = value});
  }
  return read;
}

std::optional<CameraDescription> DescribeCamera(
    CameraAddress address, const std::function<void(const std::string& line)>& tell,
    const std::function<bool()>& isEnding) {
  const OpenedCamera camera = OpenWhenThere(address, tell, isEnding);
  if (!camera) return std::nullopt;
  const lidcam_camera_info& info = *lidcam_camera_get_info(camera.get());
  if (*info.obstacle != '\0') {
    throw ShareError("camera '" + std::string(info.address) +
                     "' can't be streamed: " + info.obstacle);
  }
  CameraDescription description{.Address = std::move(address),
                                .Unit = *info.unit != '\0' ? info.unit : "recording",
                                .Text = info.description,
                                .Sizes = ReadSizes(camera.get()),
                                .Controls = ReadCameraControls(camera.get())};
  description.Address.Text = LastingAddress(description.Address.Text, info.kind);
  if (description.Controls.empty()) throw ShareError(lidcam_error_text());
  return description;
}

}  // namespace lidcam::integrations
