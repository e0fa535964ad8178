#pragma once

#include <boost/asio/ip/tcp.hpp>

#include "viewer/live/hub.h"
#include "viewer/server/site.h"

namespace lidcam::viewer {

/// Serves a client that has connected, until it goes or breaks the protocol. Returns at once.
///
/// @param count  of the connections, which this one counts in for as long as it lasts
void ServeConnection(boost::asio::ip::tcp::socket socket, const Site& site, Hub& hub,
                     std::size_t& count);

}  // namespace lidcam::viewer
