#pragma once

#include <gst/rtsp-server/rtsp-server.h>

#include <atomic>
#include <memory>

#include "serve/rtsp/rtsp_service.h"
#include "serve/rtsp/viewer_list.h"

namespace lidcam::serve::rtsp {

/// How many pipelines with the camera there are: one while there are viewers.
using MediaCount = std::shared_ptr<std::atomic<int>>;

using Viewers = std::shared_ptr<ViewerList>;

/// The role that may see the camera, where a password is asked for.
inline constexpr const char* kViewerRole = "viewer";

/// Makes the camera with its encoder when the first viewer comes; all viewers get the same packets, and when
/// the last one has left the camera is closed.
///
/// Throws std::runtime_error if GStreamer lacks an element that is needed.
///
/// @param tell   called until the factory and all that it has made are gone
/// @param count    kept up to date
/// @param viewers  told to the camera
[[nodiscard]] GstRTSPMediaFactory* NewCameraFactory(const CameraMedia& media, const Tell& tell,
                                                    const MediaCount& count,
                                                    const Viewers& viewers);

}  // namespace lidcam::serve::rtsp
