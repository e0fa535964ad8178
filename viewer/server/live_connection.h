#pragma once

#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <memory>

#include "viewer/live/hub.h"

namespace lidcam::viewer {

/// Makes a page's WebSocket of a connection that asked for it, and serves it until it ends. Returns at once.
///
/// @param held  kept as long as the connection lasts
void ServeLive(boost::beast::tcp_stream stream,
               const boost::beast::http::request<boost::beast::http::string_body>& request,
               Hub& hub, std::shared_ptr<void> held);

}  // namespace lidcam::viewer
