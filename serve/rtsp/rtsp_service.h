#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "serve/sockets/listener.h"

namespace lidcam::serve::rtsp {

/// How pictures are sent.
enum class Codec { H264, MotionJpeg };

/// What viewers get.
struct CameraMedia {
  std::string Camera;                 ///< as `--camera` takes it
  std::optional<std::string> Faults;  ///< as `--faults` takes them
  std::uint32_t Width = 640;
  std::uint32_t Height = 480;
  Codec Encoding = Codec::H264;
};

/// Who may see the camera.
struct Viewer {
  std::string User;
  std::string Password;
};

/// Receives what happens to the camera, as lines for a person, on any thread.
using Tell = std::function<void(const std::string& line)>;

struct RtspService {
  CameraMedia Media;
  std::optional<Viewer> OnlyViewer;                           ///< nothing: everybody
  Tell Log;                                                   ///< what happens to the camera
  std::function<void(const std::string& address)> IsServing;  ///< called once with "rtsp://..."
  std::function<bool()> IsOver;                               ///< called ten times a second
};

/// Serves a camera to any number of viewers until IsOver(). Throws std::runtime_error if GStreamer lacks an element
/// that is needed.
void ServeRtsp(Listener listener, const RtspService& service);

/// The module's function that does so.
inline constexpr const char* kServeRtsp = "lidcam_serve_rtsp";
using ServeRtspFunction = void(Listener& listener, const RtspService& service);

}  // namespace lidcam::serve::rtsp
