#pragma once

#include <gst/rtsp-server/rtsp-server.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

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

/// Receives what happens to the camera, as lines for a person, on any thread.
using Tell = std::function<void(const std::string& line)>;

/// How many pipelines with the camera there are: one while there are viewers.
using MediaCount = std::shared_ptr<std::atomic<int>>;

/// The role that may see the camera, where a password is asked for.
inline constexpr const char* kViewerRole = "viewer";

/// Makes the camera with its encoder when the first viewer comes; all viewers get the same packets, and when
/// the last one has left the camera is closed.
///
/// Throws std::runtime_error if GStreamer lacks an element that is needed.
///
/// @param tell   called until the factory and all that it has made are gone
/// @param count  kept up to date
[[nodiscard]] GstRTSPMediaFactory* NewCameraFactory(const CameraMedia& media, const Tell& tell,
                                                    const MediaCount& count);

}  // namespace lidcam::serve::rtsp
