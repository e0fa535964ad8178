#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "driver/core/control/camera_lifecycle.h"
#include "platform/host/nt/io/device_object.h"
#include "platform/host/nt/memory/pool.h"
#include "tests/driver/support/register_space.h"

namespace lidcam::test {

/// The pool tag of the driver's own memory: "Wdm ".
inline constexpr std::uint32_t kTagOfWdm = 0x206D6457;

struct CameraDeleter {
  void operator()(CameraContext* camera) const { DestroyCameraContext(camera); }
};
using CameraPointer = std::unique_ptr<CameraContext, CameraDeleter>;

/// All that a camera's bring-up uses: register space, registry, set files and pool. By default the
/// camera is unknown (type 1), has an installed driver key in an empty registry, and no set files.
class BringUpWorld {
 public:
  BringUpWorld();
  BringUpWorld(const BringUpWorld&) = delete;
  BringUpWorld& operator=(const BringUpWorld&) = delete;
  ~BringUpWorld();

  /// A camera with the host's exposure: 1AF0:0511 that answers as a VGA0708.
  void BeVga0708();

  void SetIdentity(unsigned vendor, unsigned product);

  /// Takes the driver key away: the settings have no root.
  void Uninstall() { Space.SetPhysicalDevice(nullptr); }

  /// Installs a set file with one section of type 1: `entries` of three bytes each.
  void InstallSetupTable(const std::string& fileName,
                         const std::vector<std::array<std::uint8_t, 3>>& entries);

  [[nodiscard]] CameraPointer Create(std::uint32_t longConfig = 0);

  RegisterSpace Space;
  CameraCapabilities Capabilities{};

 private:
  std::filesystem::path systemRoot_;
  host::HostDevice device_;
  std::array<std::uint8_t, 18> descriptor_{};
};

/// Blocks of the camera's own tag.
[[nodiscard]] std::size_t CameraBlocks();

}  // namespace lidcam::test
