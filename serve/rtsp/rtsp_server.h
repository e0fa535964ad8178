#pragma once

#include <gst/rtsp-server/rtsp-server.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "serve/rtsp/camera_media.h"
#include "serve/sockets/listener.h"

namespace lidcam::serve::rtsp {

/// Serves one camera to any number of viewers, at the path `/camera`.
class RtspServer {
 public:
  /// Throws std::runtime_error if GStreamer lacks an element that is needed.
  ///
  /// @param viewer  nothing: everybody who reaches the address
  RtspServer(Listener listener, const CameraMedia& media, const std::optional<Viewer>& viewer,
             const Tell& tell);

  /// For viewers: "rtsp://127.0.0.1:8554/camera".
  [[nodiscard]] std::string Address() const;

  /// Serves until `isOver`, which is called ten times a second, and closes all connections and the camera.
  void Run(const std::function<bool()>& isOver);

 private:
  struct Unref {
    void operator()(GMainContext* context) const { g_main_context_unref(context); }
    void operator()(GstRTSPServer* server) const { g_object_unref(server); }
  };

  void Accept();
  void RequirePassword(const Viewer& viewer);
  void CloseConnections();

  Listener listener_;
  Viewers viewers_ = std::make_shared<ViewerList>();  ///< outlives the clients of server_
  std::unique_ptr<GMainContext, Unref> context_;
  std::unique_ptr<GstRTSPServer, Unref> server_;
  MediaCount mediaCount_;
};

}  // namespace lidcam::serve::rtsp
