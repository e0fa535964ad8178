#include "serve/rtsp/rtsp_service.h"

#include <utility>

#include "serve/rtsp/rtsp_server.h"

namespace lidcam::serve::rtsp {

void ServeRtsp(Listener listener, const RtspService& service) {
  RtspServer server(std::move(listener), service.Media, service.OnlyViewer, service.Log);
  service.IsServing(server.Address());
  server.Run(service.IsOver);
}

}  // namespace lidcam::serve::rtsp
