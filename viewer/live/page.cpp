#include "viewer/live/page.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "library/settings/stream_size.h"
#include "viewer/live/messages.h"

namespace lidcam::viewer {
namespace {

/// A message that can't be carried out. what() is for the person at the page.
class MessageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace

const Page::Request Page::kRequests[] = {
    {"watch", &Page::Watch},   {"shown", &Page::Shown}, {"clock", &Page::TellClock},
    {"set", &Page::Set},       {"reset", &Page::Reset}, {"size", &Page::Size},
    {"pixels", &Page::Pixels},
};

void Page::Enter() {
  isOpen_ = true;
  link_.SendText(hub_.Hello());
  hub_.Add(*this);
}

void Page::Leave() {
  isOpen_ = false;
  watched_.clear();
  hub_.Remove(*this);
}

bool Page::Receive(std::string_view text) {
  const Json message = Json::parse(text, nullptr, false);
  if (!message.is_object() || !message.contains("do") || !message["do"].is_string()) return false;
  const std::string name = message["do"];
  const auto* const request = std::ranges::find(kRequests, name, &Request::Name);
  try {
    if (request == std::end(kRequests)) throw MessageError("there is no request '" + name + "'");
    (this->*request->Handle)(message);
  } catch (const Json::exception& error) {
    Answer(message, {{"error", "request '" + name + "' is incomplete: " + error.what()}});
  } catch (const std::exception& error) {
    Answer(message, {{"error", error.what()}});
  }
  return true;
}

bool Page::Wants(std::size_t camera) const {
  return watched_.contains(camera);
}

void Page::Offer(std::size_t camera, const std::shared_ptr<SharedPicture>& picture) {
  Watched& watched = watched_.at(camera);
  if (watched.Unshown.size() < kMostUnshown) {
    Send(camera, watched, picture);
  } else {
    watched.Waiting = picture;
  }
}

void Page::Send(std::size_t camera, Watched& watched,
                const std::shared_ptr<SharedPicture>& picture) {
  watched.Waiting.reset();
  watched.Unshown.push_back(picture->Raw().Number);
  watched.Sent.push_back(picture);
  if (watched.Sent.size() > kMostUnshown) watched.Sent.pop_front();
  static_cast<void>(picture->Jpeg());  // first: what is sent is when it leaves
  link_.SendPicture(PictureHeader(camera, picture->Raw(), MonotonicMilliseconds()), picture);
}

void Page::Tell(const std::string& message) {
  if (!isOpen_) return;
  if (link_.PendingBytes() > kMostPending) {
    link_.Close();
    return;
  }
  link_.SendText(message);
}

std::size_t Page::CameraOf(const Json& message) const {
  const auto& number = message.at("camera");
  const bool isThere =
      number.is_number_unsigned() && number.get<std::size_t>() < hub_.CameraCount();
  if (!isThere) throw MessageError("there is no camera " + number.dump());
  return number.get<std::size_t>();
}

void Page::Watch(const Json& message) {
  std::map<std::size_t, Watched> watched;
  for (const auto& number : message.at("cameras")) {
    const std::size_t camera = CameraOf({{"camera", number}});
    const auto before = watched_.find(camera);
    if (before != watched_.end()) {
      watched.insert(watched_.extract(before));
    } else {
      watched.try_emplace(camera);
    }
  }
  watched_ = std::move(watched);
  hub_.Reconsider();
}

void Page::Shown(const Json& message) {
  const auto found = watched_.find(CameraOf(message));
  if (found == watched_.end()) return;
  Watched& watched = found->second;
  const auto number = message.at("number").get<std::int64_t>();
  const auto shown = std::ranges::find(watched.Unshown, number);
  if (shown == watched.Unshown.end()) return;
  // Those ahead of it were replaced before they were drawn.
  watched.Unshown.erase(watched.Unshown.begin(), shown + 1);
  if (const auto waiting = std::exchange(watched.Waiting, nullptr)) {
    Send(found->first, watched, waiting);
  }
}

void Page::TellClock(const Json& message) {
  link_.SendText(
      TextOf({{"clock", {{"sent", message.at("sent")}, {"server", MonotonicMilliseconds()}}}}));
}

void Page::Set(const Json& message) {
  hub_.Camera(CameraOf(message))
      .SetControl(message.at("name").get<std::string>(), message.at("value").get<std::int32_t>(),
                  AnswerLater(message));
}

void Page::Reset(const Json& message) {
  hub_.Camera(CameraOf(message))
      .ResetControls(message.value("name", std::string()), AnswerLater(message));
}

void Page::Size(const Json& message) {
  const app::PictureSize size{message.at("width").get<std::int32_t>(),
                              message.at("height").get<std::int32_t>()};
  hub_.Camera(CameraOf(message)).SetSize(app::ParseStreamSize(app::ToString(size)));
  Answer(message, Json::object());
}

void Page::Pixels(const Json& message) {
  constexpr std::int32_t kMostPixels = 4096;
  const auto found = watched_.find(CameraOf(message));
  if (found == watched_.end() || found->second.Sent.empty()) {
    throw MessageError("this page has got no picture of the camera yet");
  }
  const auto& sent = found->second.Sent;
  std::shared_ptr<SharedPicture> picture = sent.back();
  const auto number = message.value("number", picture->Raw().Number);
  for (const auto& one : sent) {
    if (one->Raw().Number == number) picture = one;
  }
  const Picture& raw = picture->Raw();
  const auto x = message.at("x").get<std::int32_t>();
  const auto y = message.at("y").get<std::int32_t>();
  const auto width = message.at("width").get<std::int32_t>();
  const auto height = message.at("height").get<std::int32_t>();
  const bool isInside = x >= 0 && y >= 0 && width > 0 && height > 0 &&
                        x <= raw.Size.Width - width && y <= raw.Size.Height - height;
  if (!isInside || width > kMostPixels / height) {
    throw MessageError("pixels outside of the picture, or more than " +
                       std::to_string(kMostPixels));
  }
  Json luma = Json::array();
  Json blue = Json::array();
  Json red = Json::array();
  for (std::int32_t row = y; row < y + height; ++row) {
    for (std::int32_t column = x; column < x + width; ++column) {
      const std::size_t pixel =
          2 * (static_cast<std::size_t>(row) * static_cast<std::size_t>(raw.Size.Width) +
               static_cast<std::size_t>(column));
      const std::size_t pair = pixel / 4 * 4;
      luma.push_back(raw.Yuy2[pixel]);
      blue.push_back(raw.Yuy2[pair + 1]);
      red.push_back(raw.Yuy2[pair + 3]);
    }
  }
  Answer(message, {{"number", raw.Number},
                   {"y", std::move(luma)},
                   {"u", std::move(blue)},
                   {"v", std::move(red)}});
}

void Page::Answer(const Json& message, Json answer) {
  if (!isOpen_ || !message.contains("id")) return;
  answer["answer"] = message["id"];
  link_.SendText(TextOf(answer));
}

ViewedCamera::Done Page::AnswerLater(const Json& message) {
  Json head = Json::object();
  if (message.contains("id")) head["id"] = message["id"];
  return [page = weak_from_this(), head](const std::string& error) {
    const auto self = page.lock();
    if (!self) return;
    self->Answer(head, error.empty() ? Json::object() : Json{{"error", error}});
  };
}

}  // namespace lidcam::viewer
