#include "serve/rtsp/rtsp_server.h"

#include <fcntl.h>
#include <gio/gio.h>
#include <glib-unix.h>

#include <cstddef>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "integrations/gstreamer/element/registration.h"

namespace lidcam::serve::rtsp {
namespace {

constexpr const char* kPath = "/camera";
constexpr unsigned kPollInterval = 100;  ///< ms
constexpr unsigned kLongestEnd = 800;    ///< ms

void InitGStreamer() {
  static const bool isReady = [] {
    gst_init(nullptr, nullptr);
    return gstreamer::RegisterElements(nullptr);
  }();
  if (!isReady) throw std::runtime_error("GStreamer does not take the camera's element");
}

GstRTSPServer* NewServer() {
  InitGStreamer();
  return gst_rtsp_server_new();
}

/// A session outlives its connection by a minute, in which the camera would run for nobody: the pictures go
/// through that connection.
void EndSessions(GstRTSPClient* client, gpointer) {
  GstRTSPSessionPool* const pool = gst_rtsp_client_get_session_pool(client);
  GList* const sessions = gst_rtsp_client_session_filter(client, nullptr, nullptr);
  for (const GList* each = sessions; each != nullptr; each = each->next) {
    gst_rtsp_session_pool_remove(pool, GST_RTSP_SESSION(each->data));
  }
  g_list_free_full(sessions, g_object_unref);
  g_object_unref(pool);
}

std::string NameOf(GstRTSPClient* client) {
  const GstRTSPUrl* const url = gst_rtsp_connection_get_url(gst_rtsp_client_get_connection(client));
  return std::string("RTSP: ") + url->host + ":" + std::to_string(url->port);
}

void BeginViewing(GstRTSPClient* client, GstRTSPContext*, gpointer viewers) {
  static_cast<ViewerList*>(viewers)->Add(client, NameOf(client));
}

void PauseViewing(GstRTSPClient* client, GstRTSPContext*, gpointer viewers) {
  static_cast<ViewerList*>(viewers)->Remove(client);
}

void EndViewing(GstRTSPClient* client, gpointer viewers) {
  static_cast<ViewerList*>(viewers)->Remove(client);
}

// The list outlives the clients, all of which the server closes at its end.
void WatchClient(GstRTSPServer*, GstRTSPClient* client, gpointer viewers) {
  g_signal_connect(client, "play-request", G_CALLBACK(BeginViewing), viewers);
  g_signal_connect(client, "pause-request", G_CALLBACK(PauseViewing), viewers);
  g_signal_connect(client, "teardown-request", G_CALLBACK(PauseViewing), viewers);
  g_signal_connect(client, "closed", G_CALLBACK(EndViewing), viewers);
  g_signal_connect(client, "closed", G_CALLBACK(EndSessions), nullptr);
}

void Attach(GSource* source, GSourceFunc callback, gpointer data, GMainContext* context) {
  g_source_set_callback(source, callback, data, nullptr);
  g_source_attach(source, context);
  g_source_unref(source);
}

}  // namespace

RtspServer::RtspServer(Listener listener, const CameraMedia& media,
                       const std::optional<Viewer>& viewer, const Tell& tell)
    : listener_(std::move(listener)),
      context_(g_main_context_new()),
      server_(NewServer()),
      mediaCount_(std::make_shared<std::atomic<int>>(0)) {
  GstRTSPMediaFactory* const factory = NewCameraFactory(media, tell, mediaCount_, viewers_);
  GstRTSPMountPoints* const mounts = gst_rtsp_server_get_mount_points(server_.get());
  gst_rtsp_mount_points_add_factory(mounts, kPath, factory);
  g_object_unref(mounts);
  g_signal_connect(server_.get(), "client-connected", G_CALLBACK(WatchClient), viewers_.get());
  if (viewer) RequirePassword(*viewer);
}

std::string RtspServer::Address() const {
  return "rtsp://" + listener_.Name() + kPath;
}

/// By digest: the password itself does not go over the wire.
void RtspServer::RequirePassword(const Viewer& viewer) {
  GstRTSPAuth* const auth = gst_rtsp_auth_new();
  gst_rtsp_auth_set_supported_methods(auth, GST_RTSP_AUTH_DIGEST);
  GstRTSPToken* const token =
      gst_rtsp_token_new(GST_RTSP_TOKEN_MEDIA_FACTORY_ROLE, G_TYPE_STRING, kViewerRole, nullptr);
  gst_rtsp_auth_add_digest(auth, viewer.User.c_str(), viewer.Password.c_str(), token);
  gst_rtsp_token_unref(token);
  gst_rtsp_server_set_auth(server_.get(), auth);
  g_object_unref(auth);
}

void RtspServer::Accept() {
  std::string peer;
  for (Descriptor client = listener_.Accept(peer); client.IsOpen();
       client = listener_.Accept(peer)) {
    GSocket* const socket =
        g_socket_new_from_fd(fcntl(client.Number(), F_DUPFD_CLOEXEC, 0), nullptr);
    if (socket == nullptr) continue;
    // The server takes the socket over.
    const std::size_t colon = peer.rfind(':');
    gst_rtsp_server_transfer_connection(server_.get(), socket, peer.substr(0, colon).c_str(),
                                        std::atoi(peer.c_str() + colon + 1), nullptr);
  }
}

void RtspServer::Run(const std::function<bool()>& isOver) {
  Attach(g_unix_fd_source_new(listener_.Number(), G_IO_IN),
         G_SOURCE_FUNC(+[](gint, GIOCondition, gpointer server) -> gboolean {
           static_cast<RtspServer*>(server)->Accept();
           return G_SOURCE_CONTINUE;
         }),
         this, context_.get());
  // Wakes the loop.
  Attach(
      g_timeout_source_new(kPollInterval), [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; },
      nullptr, context_.get());
  while (!isOver()) g_main_context_iteration(context_.get(), TRUE);
  CloseConnections();
}

/// The camera's light has to be off before the program ends.
void RtspServer::CloseConnections() {
  const GList* const clients = gst_rtsp_server_client_filter(
      server_.get(),
      [](GstRTSPServer*, GstRTSPClient*, gpointer) { return GST_RTSP_FILTER_REMOVE; }, nullptr);
  static_cast<void>(clients);
  for (unsigned waited = 0; *mediaCount_ > 0 && waited < kLongestEnd; waited += kPollInterval) {
    g_main_context_iteration(context_.get(), TRUE);
  }
}

}  // namespace lidcam::serve::rtsp
