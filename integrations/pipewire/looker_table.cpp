#include "integrations/pipewire/looker_table.h"

#include <pipewire/pipewire.h>

#include <algorithm>
#include <charconv>

namespace lidcam::integrations::pipewire {
namespace {

std::string TextOf(const spa_dict* properties, const char* key) {
  const char* const text = properties != nullptr ? spa_dict_lookup(properties, key) : nullptr;
  return text != nullptr ? text : "";
}

std::uint32_t NumberOf(const spa_dict* properties, const char* key) {
  const std::string text = TextOf(properties, key);
  std::uint32_t number = PW_ID_ANY;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

}  // namespace

void LookerTable::Add(std::uint32_t id, std::string_view type, const spa_dict* properties) {
  if (type == PW_TYPE_INTERFACE_Link) {
    links_[id] = {.Source = NumberOf(properties, PW_KEY_LINK_OUTPUT_NODE),
                  .Target = NumberOf(properties, PW_KEY_LINK_INPUT_NODE)};
  } else if (type == PW_TYPE_INTERFACE_Node) {
    nodes_[id] = {.Client = NumberOf(properties, PW_KEY_CLIENT_ID),
                  .Name = TextOf(properties, PW_KEY_NODE_NAME)};
  } else if (type == PW_TYPE_INTERFACE_Client) {
    const std::string process = TextOf(properties, PW_KEY_SEC_PID);
    clients_[id] =
        TextOf(properties, PW_KEY_APP_NAME) + (process.empty() ? "" : " (" + process + ")");
  }
}

void LookerTable::Remove(std::uint32_t id) {
  links_.erase(id);
  nodes_.erase(id);
  clients_.erase(id);
  interfaces_.erase(id);
}

void LookerTable::SetInterface(std::uint32_t client, std::string_view interface) {
  interfaces_[client] = interface;
}

std::vector<std::string> LookerTable::LookersAt(std::uint32_t node) const {
  std::vector<std::string> lookers;
  for (const auto& [id, link] : links_) {
    if (link.Source == node) lookers.push_back(NameOf(link.Target));
  }
  std::ranges::sort(lookers);
  return lookers;
}

bool LookerTable::IsSeenByV4l2(std::uint32_t node) const {
  return std::ranges::any_of(links_, [this, node](const auto& each) {
    const auto looker = nodes_.find(each.second.Target);
    if (each.second.Source != node || looker == nodes_.end()) return false;
    const auto interface = interfaces_.find(looker->second.Client);
    return interface != interfaces_.end() && interface->second == "v4l2";
  });
}

std::string LookerTable::NameOf(std::uint32_t node) const {
  const auto found = nodes_.find(node);
  if (found == nodes_.end()) return "a program";
  const auto client = clients_.find(found->second.Client);
  return client != clients_.end() ? client->second : found->second.Name;
}

}  // namespace lidcam::integrations::pipewire
