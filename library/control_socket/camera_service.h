#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "library/camera/controls/control_lines.h"
#include "library/camera/opened_camera.h"
#include "library/camera/source/camera_source.h"
#include "library/control_socket/control_server.h"
#include "library/still/still_file.h"

namespace lidcam::app {

/// How the service reaches a camera that is open.
struct ServedCamera {
  CameraChoice Choice;
  std::string Unit{};  ///< as UnitOf()

  /// Calls `use` on the camera's thread and waits. Throws what it throws, and CommandError once the camera is gone.
  std::function<void(const std::function<void(OpenedCamera& opened)>& use)> Run{};
  /// Takes a still of the running camera. Throws.
  std::function<StillPicture(std::uint32_t value)> Still{};
  /// Told of each control that has another value, on the camera's thread; may be empty.
  std::function<void(const CameraControl& control, std::int32_t value)> Changed{};
};

/// What the process does with its camera.
struct ServedStatus {
  bool IsStreaming = false;
  PictureSize Size{};
  std::uint64_t Frames = 0;  ///< delivered
  std::int64_t Drops = 0;    ///< frames that the camera has sent, and that were not delivered
  bool IsAutoExposure = false;
  std::uint32_t Exposure = 0;
  std::string LightState{};
  std::vector<std::string> Viewers{};  ///< who looks at it, and through which way
};

/// Answers requests of other processes for an open camera: get, set, controls, still and status. Values that are set
/// persist as those of `lidcam set`.
class CameraService {
 public:
  /// @param status  called on the service's thread
  CameraService(ServedCamera camera, std::function<ServedStatus()> status);
  CameraService(const CameraService&) = delete;
  CameraService& operator=(const CameraService&) = delete;
  /// The camera must still answer, or refuse.
  ~CameraService() = default;

  /// Takes no more requests. Doesn't wait.
  void Withdraw() { server_.Withdraw(); }
  /// Withdraws, and waits for the answer in progress, which the camera's thread may have to give.
  void End() { server_.End(); }

  /// The answer to a line; empty for one that is no request.
  [[nodiscard]] std::string Answer(const std::string& line);

 private:
  const ServedCamera camera_;
  const std::function<ServedStatus()> status_;
  ControlServer server_;
};

}  // namespace lidcam::app
