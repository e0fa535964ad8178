#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <string_view>

#include "viewer/live/hub.h"

namespace lidcam::viewer {

/// A page's connection. What it is given is sent in order, without waiting.
class PageLink {
 public:
  PageLink() = default;
  PageLink(const PageLink&) = delete;
  PageLink& operator=(const PageLink&) = delete;
  virtual ~PageLink() = default;

  virtual void SendText(std::string text) = 0;
  virtual void SendPicture(std::string header, std::shared_ptr<SharedPicture> picture) = 0;
  /// Bytes that the page has not taken yet.
  [[nodiscard]] virtual std::size_t PendingBytes() const = 0;
  /// Ends the connection, possibly later.
  virtual void Close() = 0;
};

/// One page: what it asks for, and what it gets. A slow page gets fewer pictures: at most two that it has not shown
/// yet. On the pages' thread.
class Page final : public Watcher, public std::enable_shared_from_this<Page> {
 public:
  /// @param hub   outlives the page
  /// @param link  outlives the page's last use by the hub: Leave()
  Page(Hub& hub, PageLink& link) : hub_(hub), link_(link) {}

  /// Greets the page.
  void Enter();
  /// The connection is over.
  void Leave();

  /// @return false for what is no message: the connection is to be closed
  [[nodiscard]] bool Receive(std::string_view text);

  [[nodiscard]] bool Wants(std::size_t camera) const override;
  void Offer(std::size_t camera, const std::shared_ptr<SharedPicture>& picture) override;
  void Tell(const std::string& message) override;
  void TellPassing(const std::string& message) override;
  [[nodiscard]] bool WantsTrace(std::size_t camera) const override;
  void CheckRecordings() override;
  [[nodiscard]] bool IsPage() const override { return true; }

  /// A page that has this much pending is not read any more: it is closed.
  static constexpr std::size_t kMostPending = 8 * 1024 * 1024;
  /// A page with this much pending misses what passes.
  static constexpr std::size_t kMuchPending = 256 * 1024;
  /// Pictures that were sent and not shown yet.
  static constexpr std::size_t kMostUnshown = 2;

 private:
  using Json = nlohmann::json;
  struct Watched {
    std::deque<std::int64_t> Unshown{};                 ///< numbers
    std::deque<std::shared_ptr<SharedPicture>> Sent{};  ///< the last ones, for their pixels
    std::shared_ptr<SharedPicture> Waiting{};           ///< came while too many were not shown
  };
  using Handler = void (Page::*)(const Json& message);
  struct Request {
    std::string_view Name;
    Handler Handle;
  };
  static const Request kRequests[];

  void Watch(const Json& message);
  void Shown(const Json& message);
  void TellClock(const Json& message);
  void Set(const Json& message);
  void Reset(const Json& message);
  void Size(const Json& message);
  void Pixels(const Json& message);
  void Record(const Json& message);
  void Stop(const Json& message);
  void Register(const Json& message);
  void Trace(const Json& message);
  void Simulate(const Json& message);
  void Seek(const Json& message);
  void Play(const Json& message);
  void Step(const Json& message);

  [[nodiscard]] ViewedCamera& CameraIn(const Json& message) const;
  void EndRecording(std::uint64_t id, const std::function<void(const Json& answer)>& tell);
  [[nodiscard]] std::size_t CameraOf(const Json& message) const;
  void Send(std::size_t camera, Watched& watched, const std::shared_ptr<SharedPicture>& picture);
  void Answer(const Json& message, Json answer);
  /// Answers when work has ended.
  [[nodiscard]] ViewedCamera::Done AnswerLater(const Json& message);

  Hub& hub_;
  PageLink& link_;
  bool isOpen_ = false;
  std::map<std::size_t, Watched> watched_;
  std::set<std::size_t> traced_;
  struct Film {
    std::size_t Camera;
    std::shared_ptr<PictureRecording> Recording;
  };
  std::map<std::uint64_t, Film> films_;
};

}  // namespace lidcam::viewer
