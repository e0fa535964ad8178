#pragma once

#include <pipewire/pipewire.h>

#include <functional>
#include <map>
#include <memory>
#include <string_view>

namespace lidcam::integrations::pipewire {

/// What PipeWire tells of its clients beyond the registry: the interface that their programs use. Of the loop's thread.
class ClientWatch {
 public:
  /// @param tell  called with a client and its interface, "v4l2" or "pulse" say, if it names one
  explicit ClientWatch(std::function<void(std::uint32_t, std::string_view)> tell);

  /// Clients are objects of PW_TYPE_INTERFACE_Client; others are skipped.
  void Add(pw_registry* registry, std::uint32_t id, std::string_view type);
  void Remove(std::uint32_t id);
  /// Before the connection ends.
  void Clear();

 private:
  struct Destroy {
    void operator()(pw_proxy* client) const;
  };
  struct Client {
    ClientWatch* Watch = nullptr;
    std::unique_ptr<pw_proxy, Destroy> Proxy;
    spa_hook Hook{};
  };
  static const pw_client_events kEvents;

  static void OnInfo(void* user, const pw_client_info* info);

  const std::function<void(std::uint32_t, std::string_view)> tell_;
  std::map<std::uint32_t, Client> clients_;
};

}  // namespace lidcam::integrations::pipewire
