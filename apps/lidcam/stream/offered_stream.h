#pragma once

#include <memory>
#include <mutex>

#include "library/camera/streaming/camera_stream.h"
#include "library/control_socket/camera_service.h"
#include "library/session/camera_tasks.h"

namespace lidcam::app {

/// Lets other processes reach the camera of a stream that this one runs.
class OfferedStream {
 public:
  /// @param choice  the stream's camera; a recording is not offered
  OfferedStream(CameraStream& stream, const CameraChoice& choice);
  OfferedStream(const OfferedStream&) = delete;
  OfferedStream& operator=(const OfferedStream&) = delete;
  ~OfferedStream();

  /// Does what was asked for. On the thread that runs the stream, again and again.
  void Serve();

 private:
  [[nodiscard]] ServedCamera Served(const CameraChoice& choice);

  CameraStream& stream_;
  const SetFiles sets_;
  CameraTasks tasks_{std::make_shared<SessionSignal>()};
  std::mutex mutex_;
  ServedStatus status_;  ///< under the mutex
  std::unique_ptr<CameraService> service_;
};

}  // namespace lidcam::app
