#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <utility>
#include <vector>

#include "bus/usb_types.h"
#include "serve/device/served_camera.h"

namespace lidcam::serve {

/// A client's control requests, answered in their order: a late one holds those behind it, and one that is
/// never answered does so until it is cancelled.
///
/// @tparam Tag  what the client's protocol needs for the answer
template <typename Tag>
class ControlQueue {
 public:
  using Time = std::chrono::steady_clock::time_point;

  struct Request {
    Tag Asked;
    bus::SetupPacket Setup;
    std::vector<std::uint8_t> Data{};  ///< the data stage; OUT: at least Setup.Length bytes
    std::optional<ControlAnswer> Answer{};
    Time Due{};
  };

  [[nodiscard]] std::size_t Count() const { return requests_.size(); }
  /// Bytes of the data stages that were sent with the requests.
  [[nodiscard]] std::size_t KeptBytes() const { return keptBytes_; }

  /// @param data  the data stage OUT
  void Add(Tag asked, const bus::SetupPacket& setup, std::vector<std::uint8_t> data = {}) {
    keptBytes_ += data.size();
    requests_.push_back({std::move(asked), setup, std::move(data)});
  }

  /// Takes back the first request for whose tag `is` holds. @return whether there was one
  template <typename Predicate>
  bool Cancel(const Predicate& is) {
    const auto found = std::ranges::find_if(
        requests_, [&is](const Request& request) { return is(request.Asked); });
    if (found == requests_.end()) return false;
    Forget(*found);
    requests_.erase(found);
    return true;
  }

  /// Carries out the first request, and takes it out once its answer is due. A camera that is gone answers
  /// at once, with UsbStatus::Disconnected.
  std::optional<Request> TakeDue(ServedCamera& camera, Time now) {
    if (requests_.empty()) return std::nullopt;
    Request& first = requests_.front();
    if (!first.Answer) Execute(first, camera, now);
    if (IsSilent(first) || first.Due > now) return std::nullopt;
    Request taken = std::move(first);
    requests_.pop_front();
    return taken;
  }

  /// When the first request is due; nothing if there is none, or it is never answered.
  [[nodiscard]] std::optional<Time> Deadline() const {
    if (requests_.empty() || IsSilent(requests_.front())) return std::nullopt;
    return requests_.front().Due;
  }

 private:
  static bool IsSilent(const Request& request) {
    return request.Answer && request.Answer->Status == bus::UsbStatus::Silent;
  }

  void Forget(const Request& request) {
    if (!request.Answer) keptBytes_ -= request.Data.size();
  }

  void Execute(Request& request, ServedCamera& camera, Time now) {
    Forget(request);
    if (request.Setup.IsDeviceToHost()) request.Data.assign(request.Setup.Length, 0);
    request.Answer = camera.Control(request.Setup, request.Data);
    const bool isGone = request.Answer->Status == bus::UsbStatus::Disconnected;
    request.Due = isGone ? now : now + request.Answer->Delay;
  }

  std::deque<Request> requests_;
  std::size_t keptBytes_ = 0;
};

}  // namespace lidcam::serve
