#include "viewer/server/live_connection.h"

#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket/rfc6455.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <deque>
#include <utility>

#include "viewer/live/page.h"

namespace lidcam::viewer {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
using beast::error_code;

// No request of a page is as long.
constexpr std::size_t kMostMessageBytes = std::size_t{64} * 1024;

class LiveConnection final : public PageLink, public std::enable_shared_from_this<LiveConnection> {
 public:
  LiveConnection(beast::tcp_stream stream, Hub& hub, std::shared_ptr<void> held)
      : stream_(std::move(stream)),
        held_(std::move(held)),
        page_(std::make_shared<Page>(hub, *this)) {}

  void Accept(const beast::http::request<beast::http::string_body>& request) {
    // The stream has time limits of its own.
    beast::get_lowest_layer(stream_).expires_never();
    stream_.set_option(websocket::stream_base::timeout::suggested(beast::role_type::server));
    stream_.read_message_max(kMostMessageBytes);
    stream_.auto_fragment(false);  // a picture is one message in one piece
    stream_.async_accept(request, [self = shared_from_this()](error_code error) {
      if (error) return;
      self->page_->Enter();
      self->Read();
    });
  }

  void SendText(std::string text) override { Push({.Text = std::move(text), .Picture = {}}); }

  void SendPicture(std::string header, std::shared_ptr<SharedPicture> picture) override {
    Push({.Text = std::move(header), .Picture = std::move(picture)});
  }

  [[nodiscard]] std::size_t PendingBytes() const override { return pendingBytes_; }

  // The read in progress ends then, and the connection with it.
  void Close() override {
    error_code ignored;
    beast::get_lowest_layer(stream_).socket().close(ignored);
  }

 private:
  struct Outgoing {
    std::string Text;
    std::shared_ptr<SharedPicture> Picture;

    [[nodiscard]] std::size_t Size() const {
      return Text.size() + (Picture ? Picture->Jpeg().size() : 0);
    }
  };

  void Read() {
    stream_.async_read(buffer_, [self = shared_from_this()](error_code error, std::size_t) {
      if (error || !self->Take()) {
        self->End();
      } else {
        self->Read();
      }
    });
  }

  bool Take() {
    const auto data = buffer_.cdata();
    const std::string_view text(static_cast<const char*>(data.data()), data.size());
    const bool isMessage = stream_.got_text() && page_->Receive(text);
    buffer_.consume(buffer_.size());
    return isMessage;
  }

  void End() {
    if (std::exchange(isOver_, true)) return;
    page_->Leave();
    Close();
  }

  void Push(Outgoing message) {
    if (isOver_) return;
    pendingBytes_ += message.Size();
    outgoing_.push_back(std::move(message));
    if (outgoing_.size() == 1) Write();
  }

  void Write() {
    const Outgoing& message = outgoing_.front();
    std::array<asio::const_buffer, 2> buffers{asio::buffer(message.Text), asio::const_buffer()};
    if (message.Picture) buffers[1] = asio::buffer(message.Picture->Jpeg());
    stream_.binary(message.Picture != nullptr);
    stream_.async_write(buffers, [self = shared_from_this()](error_code error, std::size_t) {
      self->Written(error);
    });
  }

  void Written(error_code error) {
    pendingBytes_ -= outgoing_.front().Size();
    outgoing_.pop_front();
    if (error) {
      End();
    } else if (!isOver_ && !outgoing_.empty()) {
      Write();
    }
  }

  websocket::stream<beast::tcp_stream> stream_;
  const std::shared_ptr<void> held_;
  const std::shared_ptr<Page> page_;
  beast::flat_buffer buffer_;
  std::deque<Outgoing> outgoing_;  ///< the first is being written
  std::size_t pendingBytes_ = 0;
  bool isOver_ = false;
};

}  // namespace

void ServeLive(beast::tcp_stream stream,
               const beast::http::request<beast::http::string_body>& request, Hub& hub,
               std::shared_ptr<void> held) {
  std::make_shared<LiveConnection>(std::move(stream), hub, std::move(held))->Accept(request);
}

}  // namespace lidcam::viewer
