#include <utility>

#include "serve/rtsp/rtsp_service.h"

extern "C" [[gnu::visibility("default")]] void lidcam_serve_rtsp(
    lidcam::serve::Listener& listener, const lidcam::serve::rtsp::RtspService& service) {
  lidcam::serve::rtsp::ServeRtsp(std::move(listener), service);
}
