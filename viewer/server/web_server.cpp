#include "viewer/server/web_server.h"

#include <sys/socket.h>
#include <unistd.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <stdexcept>
#include <utility>

#include "viewer/server/access.h"
#include "viewer/server/site.h"
#include "viewer/server/web_connection.h"

namespace lidcam::viewer {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

struct WebServer::Parts {
  explicit Parts(serve::Listener listening, Options options)
      : Listening(std::move(listening)),
        Most(options.MostConnections),
        Rules(std::move(options.Password), std::move(options.ProgramToken)),
        Pages(Rules, options.Cameras.size(), std::move(options.PageFolder)),
        Cameras({.Cameras = std::move(options.Cameras),
                 .Version = std::move(options.Version),
                 .SnapshotToken = Rules.SnapshotToken(),
                 .Forms = std::move(options.Forms),
                 .MakeWriter = std::move(options.MakeWriter)},
                [this](std::function<void()> work) { asio::post(Context, std::move(work)); }),
        Acceptor(Context),
        Retry(Context),
        Tick(Context) {
    // Both close it.
    const int socket = ::dup(Listening.Number());
    sockaddr_storage address{};
    socklen_t size = sizeof(address);
    error_code error;
    if (socket < 0 || ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
      throw std::runtime_error("'" + Listening.Name() + "' can't be served");
    }
    Acceptor.assign(address.ss_family == AF_INET6 ? tcp::v6() : tcp::v4(), socket, error);
    if (error) throw std::runtime_error("'" + Listening.Name() + "' can't be served");
  }

  void Accept() {
    Acceptor.async_accept([this](error_code error, tcp::socket socket) {
      if (error) {
        // Such as no free descriptors, which a connection that ends gives back.
        Retry.expires_after(std::chrono::milliseconds(100));
        Retry.async_wait([this](error_code stopped) {
          if (!stopped) Accept();
        });
        return;
      }
      // One above the limit is closed.
      if (Connections < Most) ServeConnection(std::move(socket), Pages, Cameras, Connections);
      Accept();
    });
  }

  void Watch(const std::function<bool()>& isOver) {
    Tick.expires_after(Hub::kTickInterval);
    Tick.async_wait([this, &isOver](error_code) {
      Cameras.Tick();
      if (isOver()) {
        Context.stop();
      } else {
        Watch(isOver);
      }
    });
  }

  const serve::Listener Listening;
  const std::size_t Most;
  std::size_t Connections =
      0;  ///< ahead of the context, whose connections count in it until they end
  asio::io_context Context{1};
  const Access Rules;
  const Site Pages;
  Hub Cameras;
  tcp::acceptor Acceptor;
  asio::steady_timer Retry;
  asio::steady_timer Tick;
};

WebServer::WebServer(serve::Listener listener, Options options)
    : parts_(std::make_unique<Parts>(std::move(listener), std::move(options))) {}

WebServer::~WebServer() = default;

std::string WebServer::Address() const {
  const std::string address = "http://" + parts_->Listening.Name() + "/";
  return parts_->Rules.NeedsPassword() ? address : address + "?token=" + parts_->Rules.Token();
}

void WebServer::Run(const std::function<bool()>& isOver) {
  parts_->Accept();
  parts_->Watch(isOver);
  parts_->Context.run();
}

}  // namespace lidcam::viewer
