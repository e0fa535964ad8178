#include "viewer/server/web_connection.h"

#include <array>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/file_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>
#include <boost/beast/websocket/rfc6455.hpp>
#include <chrono>
#include <memory>
#include <optional>
#include <utility>

#include "viewer/server/live_connection.h"

namespace lidcam::viewer {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using asio::ip::tcp;
using beast::error_code;

constexpr std::size_t kMostHeaderBytes = std::size_t{8} * 1024;
constexpr std::chrono::seconds kIdleTime{15};  // ahead of a request, and within it
constexpr std::chrono::seconds kUploadTime{60};
constexpr std::chrono::seconds kPictureTime{15};  // an opening camera takes some seconds
constexpr std::chrono::seconds kRefusalTime{1};   // so long does each guess of a secret take

LocalAddress LocalAddressOf(const tcp::endpoint& endpoint) {
  asio::ip::address address = endpoint.address();
  if (address.is_v6() && address.to_v6().is_v4_mapped()) {
    address = asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6());
  }
  const std::string text = address.to_string();
  const std::string port = std::to_string(endpoint.port());
  return {.Text = (address.is_v6() ? "[" + text + "]" : text) + ":" + port,
          .Port = endpoint.port(),
          .IsLoopback = address.is_loopback()};
}

std::string TextOf(beast::string_view text) {
  return {text.data(), text.size()};
}

constexpr const char* kBoundary = "lidcam-frame";

std::string PartHead() {
  return std::string("--") + kBoundary + "\r\nContent-Type: image/jpeg\r\n\r\n";
}

class WebConnection;

/// Another program that takes a camera's pictures: one, or all that it has time for.
class Program final : public Watcher {
 public:
  Program(WebConnection& connection, std::size_t camera)
      : connection_(connection), camera_(camera) {}

  [[nodiscard]] bool Wants(std::size_t camera) const override { return camera == camera_; }
  void Offer(std::size_t camera, const std::shared_ptr<SharedPicture>& picture) override;
  void Tell(const std::string&) override {}

 private:
  WebConnection& connection_;
  const std::size_t camera_;
};

class WebConnection final : public std::enable_shared_from_this<WebConnection> {
 public:
  WebConnection(tcp::socket socket, const Site& site, Hub& hub, std::size_t& count)
      : stream_(std::move(socket)),
        timer_(stream_.get_executor()),
        site_(site),
        hub_(hub),
        held_(&++count, [](std::size_t* held) { --*held; }) {}

  void Begin() {
    error_code error;
    stream_.socket().set_option(tcp::no_delay(true), error);
    const tcp::endpoint local = stream_.socket().local_endpoint(error);
    if (error) return;
    local_ = LocalAddressOf(local);
    ReadHeader();
  }

  void Offer(const std::shared_ptr<SharedPicture>& picture) {
    if (isStream_) {
      WritePart(picture);
    } else {
      WriteSnapshot(picture);
    }
  }

 private:
  using Answer = http::response<http::string_body>;

  void ReadHeader() {
    parser_.emplace();
    parser_->header_limit(kMostHeaderBytes);
    parser_->body_limit(Site::kMostSceneBytes);
    stream_.expires_after(kIdleTime);
    http::async_read_header(
        stream_, buffer_, *parser_,
        [self = shared_from_this()](error_code error, std::size_t) { self->HeaderCame(error); });
  }

  void HeaderCame(error_code error) {
    if (error == http::error::header_limit) {
      Send(ErrorAnswer(431, "the request's header is too long"), true);
    } else if (error == http::error::body_limit) {
      Send(ErrorAnswer(413, "a picture may have 16 MiB at most"), true);
    } else if (error &&
               error.category() == http::make_error_code(http::error::bad_method).category() &&
               error != http::error::end_of_stream && error != http::error::partial_message) {
      Send(ErrorAnswer(400, "this is no request: " + error.message()), true);
    } else if (!error) {
      React();
    }
  }

  void React() {
    const auto& request = parser_->get();
    WebRequest web{.Method = TextOf(request.method_string()),
                   .Target = TextOf(request.target()),
                   .Host = TextOf(request[http::field::host]),
                   .Origin = TextOf(request[http::field::origin]),
                   .Cookies = TextOf(request[http::field::cookie]),
                   .Authorization = TextOf(request[http::field::authorization]),
                   .FetchSite = TextOf(request["Sec-Fetch-Site"]),
                   .IsUpgrade = beast::websocket::is_upgrade(request),
                   .Local = local_};
    std::visit([this](auto&& reaction) { Carry(reaction); }, site_.React(web));
  }

  void Carry(WebAnswer& answer) {
    // A body that nobody asked for is not read.
    const bool isLast = !parser_->is_done();
    if (!answer.IsRefusal) {
      Send(std::move(answer), isLast);
      return;
    }
    stream_.expires_never();
    timer_.expires_after(kRefusalTime);
    timer_.async_wait([self = shared_from_this(), answer = std::move(answer)](error_code) mutable {
      self->Send(std::move(answer), true);
    });
  }

  void Carry(const LiveRequest&) { ServeLive(std::move(stream_), parser_->release(), hub_, held_); }

  void Carry(const SnapshotRequest& request) { Watch(request.Camera, false); }
  void Carry(const StreamRequest& request) { Watch(request.Camera, true); }

  void Carry(const SceneUpload& upload) {
    stream_.expires_after(kUploadTime);
    http::async_read(stream_, buffer_, *parser_,
                     [self = shared_from_this(), upload](error_code error, std::size_t) {
                       if (error == http::error::body_limit) {
                         self->Send(ErrorAnswer(413, "a picture may have 16 MiB at most"), true);
                       } else if (!error) {
                         self->ShowScene(upload.Camera);
                       }
                     });
  }

  void ShowScene(std::size_t camera) {
    stream_.expires_never();
    hub_.ShowScene(camera, std::move(parser_->get().body()),
                   [self = shared_from_this()](const std::string& error) {
                     if (error.empty()) {
                       self->Send({.Status = 204}, false);
                     } else {
                       self->Send(ErrorAnswer(400, error), false);
                     }
                   });
  }

  void Carry(const RecordingRequest& request) {
    const auto file = hub_.Films().Find(request.Id);
    beast::error_code error;
    if (file) file_.body().open(file->Path.c_str(), beast::file_mode::scan, error);
    if (!file || error) {
      Send(ErrorAnswer(404, "there is no such recording"), !parser_->is_done());
      return;
    }
    Describe(file_, false);
    file_.set(http::field::content_type, "application/octet-stream");
    file_.set(http::field::content_disposition, "attachment; filename=\"" + file->Name + "\"");
    file_.prepare_payload();
    fileWriter_.emplace(file_);
    WriteFile();
  }

  // In pieces, each with a time limit of its own: a film may take a slow network minutes.
  void WriteFile() {
    stream_.expires_after(kIdleTime);
    http::async_write_some(stream_, *fileWriter_,
                           [self = shared_from_this()](error_code error, std::size_t) {
                             if (!error && !self->fileWriter_->is_done()) {
                               self->WriteFile();
                             } else {
                               self->Sent(error, false);
                             }
                           });
  }

  void Watch(std::size_t camera, bool isStream) {
    isStream_ = isStream;
    isWriting_ = true;
    program_ = std::make_unique<Program>(*this, camera);
    camera_ = camera;
    stream_.expires_never();
    if (!isStream) {
      isWriting_ = false;
      AwaitPicture();
      hub_.Add(*program_);
      return;
    }
    text_ =
        "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Type: multipart/x-mixed-replace; "
        "boundary=" +
        std::string(kBoundary) + "\r\n";
    for (const auto& [name, value] : CommonFields()) text_ += name + ": " + value + "\r\n";
    text_ += "\r\n" + PartHead();
    stream_.expires_after(kIdleTime);
    asio::async_write(stream_, asio::buffer(text_),
                      [self = shared_from_this()](error_code error, std::size_t) {
                        if (error) return;
                        self->isWriting_ = false;
                        self->hub_.Add(*self->program_);
                        self->AwaitEnd();
                      });
  }

  // A client that goes is noticed by the read, also while the camera sends nothing.
  void AwaitEnd() {
    stream_.expires_never();
    stream_.async_read_some(
        buffer_.prepare(1),
        [self = shared_from_this()](error_code, std::size_t) { self->EndStream(); });
  }

  void EndStream() {
    if (program_) hub_.Remove(*program_);
    program_.reset();
    error_code ignored;
    stream_.socket().close(ignored);
  }

  void AwaitPicture() {
    timer_.expires_after(kPictureTime);
    timer_.async_wait([self = shared_from_this()](error_code error) {
      if (error || !self->program_) return;
      self->hub_.Remove(*self->program_);
      self->program_.reset();
      const CameraState& state = self->hub_.StateOf(self->camera_);
      self->Send(
          ErrorAnswer(503, state.Error.empty() ? "the camera sends no picture" : state.Error),
          true);
    });
  }

  void WriteSnapshot(const std::shared_ptr<SharedPicture>& picture) {
    timer_.cancel();
    hub_.Remove(*program_);
    program_.reset();
    const auto& jpeg = picture->Jpeg();
    Send({.Status = 200, .Type = "image/jpeg", .Body = {jpeg.begin(), jpeg.end()}}, false);
  }

  // Boundary and head of the next part come with a picture: a browser shows it only then.
  void WritePart(const std::shared_ptr<SharedPicture>& picture) {
    if (std::exchange(isWriting_, true)) return;
    text_ = "\r\n" + PartHead();
    const std::array<asio::const_buffer, 2> buffers{asio::buffer(picture->Jpeg()),
                                                    asio::buffer(text_)};
    asio::async_write(stream_, buffers,
                      [self = shared_from_this(), picture](error_code error, std::size_t) {
                        self->isWriting_ = false;
                        if (error) self->EndStream();
                      });
  }

  template <typename Message>
  static void Describe(Message& message, bool keeps) {
    message.set(http::field::server, "lidcam");
    for (const auto& [name, value] : CommonFields()) message.set(name, value);
    message.keep_alive(keeps);
  }

  void Send(WebAnswer answer, bool isLast) {
    const bool hasRequest = parser_ && parser_->is_header_done();
    const bool keeps = !isLast && hasRequest && parser_->keep_alive();
    answer_ = Answer(static_cast<http::status>(answer.Status), 11);
    Describe(answer_, keeps);
    if (!answer.Type.empty()) answer_.set(http::field::content_type, answer.Type);
    for (const auto& [name, value] : answer.Fields) answer_.set(name, value);
    answer_.body() = std::move(answer.Body);
    answer_.prepare_payload();
    stream_.expires_after(kIdleTime);
    http::async_write(stream_, answer_,
                      [self = shared_from_this(), keeps](error_code error, std::size_t) {
                        self->Sent(error, keeps);
                      });
  }

  void Sent(error_code error, bool keeps) {
    if (!error && keeps) {
      ReadHeader();
      return;
    }
    stream_.socket().shutdown(tcp::socket::shutdown_send, error);
  }

  beast::tcp_stream stream_;
  asio::steady_timer timer_;
  const Site& site_;
  Hub& hub_;
  const std::shared_ptr<void> held_;
  LocalAddress local_;
  beast::flat_buffer buffer_{kMostHeaderBytes + 64 * 1024};
  std::optional<http::request_parser<http::string_body>> parser_;
  Answer answer_;
  http::response<http::file_body> file_;
  std::optional<http::response_serializer<http::file_body>> fileWriter_;
  std::unique_ptr<Program> program_;
  std::size_t camera_ = 0;
  bool isStream_ = false;
  bool isWriting_ = false;
  std::string text_;
};

void Program::Offer(std::size_t, const std::shared_ptr<SharedPicture>& picture) {
  connection_.Offer(picture);
}

}  // namespace

void ServeConnection(tcp::socket socket, const Site& site, Hub& hub, std::size_t& count) {
  std::make_shared<WebConnection>(std::move(socket), site, hub, count)->Begin();
}

}  // namespace lidcam::viewer
