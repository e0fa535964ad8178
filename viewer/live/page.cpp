#include "viewer/live/page.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "library/settings/stream_size.h"
#include "viewer/live/messages.h"

namespace lidcam::viewer {
const Page::Request Page::kRequests[] = {
    {"watch", &Page::Watch},       {"shown", &Page::Shown},   {"clock", &Page::TellClock},
    {"set", &Page::Set},           {"reset", &Page::Reset},   {"size", &Page::Size},
    {"pixels", &Page::Pixels},     {"record", &Page::Record}, {"stop", &Page::Stop},
    {"register", &Page::Register}, {"trace", &Page::Trace},   {"simulate", &Page::Simulate},
    {"seek", &Page::Seek},         {"play", &Page::Play},     {"step", &Page::Step},
};

void Page::Enter() {
  isOpen_ = true;
  for (std::string& message : hub_.Hello()) link_.SendText(std::move(message));
  hub_.Add(*this);
}

void Page::Leave() {
  isOpen_ = false;
  watched_.clear();
  traced_.clear();
  while (!films_.empty()) {
    EndRecording(films_.begin()->first, {});
  }
  hub_.Remove(*this);
}

bool Page::Receive(std::string_view text) {
  const Json message = Json::parse(text, nullptr, false);
  if (!message.is_object() || !message.contains("do") || !message["do"].is_string()) return false;
  const std::string name = message["do"];
  const auto* const request = std::ranges::find(kRequests, name, &Request::Name);
  try {
    if (request == std::end(kRequests))
      throw std::runtime_error("there is no request '" + name + "'");
    (this->*request->Handle)(message);
  } catch (const Json::exception& error) {
    Answer(message, {{"error", "request '" + name + "' is incomplete: " + error.what()}});
  } catch (const std::exception& error) {
    Answer(message, {{"error", error.what()}});
  }
  return true;
}

bool Page::Wants(std::size_t camera) const {
  const auto isOfCamera = [camera](const auto& film) { return film.second.Camera == camera; };
  return watched_.contains(camera) || std::ranges::any_of(films_, isOfCamera);
}

bool Page::WantsTrace(std::size_t camera) const {
  return traced_.contains(camera);
}

void Page::Offer(std::size_t camera, const std::shared_ptr<SharedPicture>& picture) {
  const auto found = watched_.find(camera);
  if (found == watched_.end()) return;
  Watched& watched = found->second;
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
  if (watched.Sent.size() > kMostUnshown + 1) watched.Sent.pop_front();
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

void Page::TellPassing(const std::string& message) {
  if (isOpen_ && link_.PendingBytes() < kMuchPending) link_.SendText(message);
}

ViewedCamera& Page::CameraIn(const Json& message) const {
  return hub_.Camera(CameraOf(message));
}

std::size_t Page::CameraOf(const Json& message) const {
  const auto& number = message.at("camera");
  const bool isThere =
      number.is_number_unsigned() && number.get<std::size_t>() < hub_.CameraCount();
  if (!isThere) throw std::runtime_error("there is no camera " + number.dump());
  return number.get<std::size_t>();
}

void Page::Watch(const Json& message) {
  std::set<std::size_t> wanted;
  for (const auto& number : message.at("cameras")) wanted.insert(CameraOf({{"camera", number}}));
  std::erase_if(watched_, [&](const auto& entry) { return !wanted.contains(entry.first); });
  for (const std::size_t camera : wanted) {
    if (!watched_.try_emplace(camera).second) continue;
    if (const auto picture = hub_.StandingPicture(camera)) Offer(camera, picture);
  }
  hub_.Reconsider();
  Answer(message, Json::object());
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
  Tell(TextOf({{"clock", {{"sent", message.at("sent")}, {"server", MonotonicMilliseconds()}}}}));
}

void Page::Set(const Json& message) {
  CameraIn(message).SetControl(message.at("name").get<std::string>(),
                               message.at("value").get<std::int32_t>(), AnswerLater(message));
}

void Page::Reset(const Json& message) {
  CameraIn(message).ResetControls(message.value("name", std::string()), AnswerLater(message));
}

void Page::Size(const Json& message) {
  const app::PictureSize size{message.at("width").get<std::int32_t>(),
                              message.at("height").get<std::int32_t>()};
  if (hub_.IsRecording(CameraOf(message))) {
    throw std::runtime_error("the size stays while the camera is recorded: stop that first");
  }
  CameraIn(message).SetSize(app::ParseStreamSize(app::ToString(size)));
  Answer(message, Json::object());
}

void Page::Pixels(const Json& message) {
  constexpr std::int32_t kMostPixels = 4096;
  const auto found = watched_.find(CameraOf(message));
  if (found == watched_.end() || found->second.Sent.empty()) {
    throw std::runtime_error("this page has got no picture of the camera yet");
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
    throw std::runtime_error("pixels outside of the picture, or more than " +
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
  if (!message.contains("id")) return;
  answer["answer"] = message["id"];
  Tell(TextOf(answer));
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
