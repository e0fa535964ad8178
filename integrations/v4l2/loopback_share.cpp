#include "integrations/v4l2/loopback_share.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <vector>

#include "integrations/camera/notice_picture.h"
#include "integrations/camera/share_lock.h"
#include "integrations/camera/shared_camera.h"
#include "integrations/v4l2/device_lookers.h"

namespace lidcam::integrations::v4l2 {
namespace {

constexpr std::chrono::milliseconds kLook{100};
// More than the device keeps, whatever number it was loaded with up to this one.
constexpr int kKeptPictures = 8;

/// The device as a camera's receiver.
class DeviceReceiver : public PictureReceiver {
 public:
  DeviceReceiver(LoopbackDevice& device, PictureSize size)
      : device_(device), resting_(DrawNotice(size.Width, size.Height, "camera starts")) {
    CameraRests();
  }

  void TakePicture(const StreamShape&, Picture& picture) override {
    isResting_ = false;
    Write(picture.Data);
  }

  // What the device keeps is what the next looker sees first: that must not be the last picture of hours ago.
  void CameraRests() override {
    if (isResting_) return;
    isResting_ = true;
    for (int count = 0; count < kKeptPictures; ++count) Write(resting_);
  }

  void ControlsChanged() override {}

  /// Why the device takes no more pictures; empty while it does.
  [[nodiscard]] std::string EndReason() const {
    const std::lock_guard lock(mutex_);
    return endReason_;
  }

 private:
  void Write(std::span<const std::uint8_t> picture) {
    try {
      device_.Write(picture);
    } catch (const ShareError& error) {
      const std::lock_guard lock(mutex_);
      endReason_ = error.what();
    }
  }

  LoopbackDevice& device_;
  const std::vector<std::uint8_t> resting_;
  bool isResting_ = false;
  mutable std::mutex mutex_;
  std::string endReason_;
};

void RequireSize(const PictureSize& size, const std::vector<PictureSize>& sizes) {
  if (std::ranges::find(sizes, size) != sizes.end()) return;
  std::string list;
  for (const PictureSize& other : sizes) {
    list += (list.empty() ? "" : ", ") + std::to_string(other.Width) + "x" +
            std::to_string(other.Height);
  }
  throw ShareUsageError("the camera has no size " + std::to_string(size.Width) + "x" +
                        std::to_string(size.Height) + ", but " + list);
}

/// "ffmpeg (1234)", one each.
std::vector<std::string> NamesOf(const std::vector<base::FileUser>& lookers) {
  std::vector<std::string> names;
  for (const base::FileUser& looker : lookers) {
    names.push_back(looker.Program + " (" + std::to_string(looker.Process) + ")");
  }
  return names;
}

std::string ListOf(const std::vector<std::string>& names) {
  std::string list;
  for (const std::string& name : names) list += (list.empty() ? "" : ", ") + name;
  return list.empty() ? "nobody" : list;
}

}  // namespace

void ShareWithV4l2(const ShareOptions& options,
                   const std::function<void(const std::string& line)>& tell,
                   const std::function<bool()>& isEnding, DeviceCalls& calls) {
  const std::optional<CameraDescription> description =
      DescribeCamera(options.Address, tell, isEnding);
  if (!description) return;
  RequireSize(options.Size, description->Sizes);
  const ShareLock lock(*description, "as " + options.Device);
  LoopbackDevice device({.Path = options.Device, .Size = options.Size, .Tell = tell}, calls);
  DeviceLookers lookers(options.Device);
  DeviceReceiver receiver(device, options.Size);
  SharedCamera camera({.Address = description->Address, .Tell = tell}, description->Controls,
                      receiver);
  tell("camera '" + description->Address.Text + "' is shared as " + options.Device);
  while (!isEnding()) {
    const std::string reason = receiver.EndReason();
    if (!reason.empty()) throw ShareError(reason);
    const auto now = lookers.AwaitChange(kLook);
    if (!now) continue;
    std::vector<std::string> names = NamesOf(*now);
    tell(ListOf(names) + " looks at " + options.Device);
    for (std::string& name : names) name.insert(0, "V4L2 " + options.Device + ": ");
    camera.SetViewers(std::move(names));
    if (now->empty()) {
      camera.Hide();
    } else {
      camera.Show({.Width = options.Size.Width, .Height = options.Size.Height});
    }
  }
}

}  // namespace lidcam::integrations::v4l2
