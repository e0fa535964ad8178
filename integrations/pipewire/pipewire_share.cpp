#include "integrations/pipewire/pipewire_share.h"

#include <pipewire/pipewire.h>

#include <chrono>
#include <optional>
#include <thread>

#include "integrations/camera/share_lock.h"
#include "integrations/pipewire/camera_node.h"

namespace lidcam::integrations::pipewire {
namespace {

constexpr std::chrono::milliseconds kLook{100};

class PipeWireLibrary {
 public:
  PipeWireLibrary() { pw_init(nullptr, nullptr); }
  PipeWireLibrary(const PipeWireLibrary&) = delete;
  PipeWireLibrary& operator=(const PipeWireLibrary&) = delete;
  ~PipeWireLibrary() { pw_deinit(); }
};

}  // namespace

void ShareWithPipeWire(const CameraAddress& address,
                       const std::function<void(const std::string& line)>& tell,
                       const std::function<bool()>& isEnding) {
  const std::optional<CameraDescription> camera = DescribeCamera(address, tell, isEnding);
  if (!camera) return;
  const ShareLock lock(*camera, "through PipeWire");
  const PipeWireLibrary library;
  CameraNode node({.Camera = *camera, .Tell = tell});
  tell("camera '" + camera->Address.Text + "' is shared through PipeWire as '" + camera->Text +
       "'");
  while (!isEnding()) {
    const std::string reason = node.EndReason();
    if (!reason.empty()) throw ShareError(reason);
    std::this_thread::sleep_for(kLook);
  }
}

}  // namespace lidcam::integrations::pipewire
