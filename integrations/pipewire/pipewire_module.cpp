#include "integrations/pipewire/pipewire_share.h"

extern "C" [[gnu::visibility("default")]] void lidcam_share_with_pipewire(
    const lidcam::integrations::CameraAddress& address,
    const std::function<void(const std::string& line)>& tell,
    const std::function<bool()>& isEnding) {
  lidcam::integrations::pipewire::ShareWithPipeWire(address, tell, isEnding);
}
