#include "integrations/pipewire/client_watch.h"

#include <utility>

#ifdef __clang__
// PipeWire's calls are macros of this kind.
#pragma clang diagnostic ignored "-Wgnu-statement-expression"
#endif

namespace lidcam::integrations::pipewire {

const pw_client_events ClientWatch::kEvents = {
    .version = PW_VERSION_CLIENT_EVENTS,
    .info = OnInfo,
    .permissions = nullptr,
};

void ClientWatch::Destroy::operator()(pw_proxy* client) const {
  pw_proxy_destroy(client);
}

ClientWatch::ClientWatch(std::function<void(std::uint32_t, std::string_view)> tell)
    : tell_(std::move(tell)) {}

void ClientWatch::Add(pw_registry* registry, std::uint32_t id, std::string_view type) {
  if (type != PW_TYPE_INTERFACE_Client) return;
  void* const bound =
      pw_registry_bind(registry, id, PW_TYPE_INTERFACE_Client, PW_VERSION_CLIENT, 0);
  if (bound == nullptr) return;
  Client& client = clients_[id];
  client.Watch = this;
  client.Proxy.reset(static_cast<pw_proxy*>(bound));
  pw_proxy_add_object_listener(client.Proxy.get(), &client.Hook, &kEvents, &client);
}

void ClientWatch::Remove(std::uint32_t id) {
  clients_.erase(id);
}

void ClientWatch::Clear() {
  clients_.clear();
}

void ClientWatch::OnInfo(void* user, const pw_client_info* info) {
  const auto& client = *static_cast<const Client*>(user);
  const char* const interface =
      info->props != nullptr ? spa_dict_lookup(info->props, PW_KEY_CLIENT_API) : nullptr;
  if (interface != nullptr) client.Watch->tell_(info->id, interface);
}

}  // namespace lidcam::integrations::pipewire
