#include "integrations/gstreamer/element/color_balance.h"

#include <gst/video/colorbalance.h>

#include <algorithm>
#include <string_view>

#include "integrations/gstreamer/element/source_state.h"

namespace lidcam::gstreamer {
namespace {

const ControlProperty* PropertyOf(const GstColorBalanceChannel* channel) {
  for (const ControlProperty& property : ControlProperties()) {
    if (property.BalanceChannel != nullptr &&
        std::string_view(property.BalanceChannel) == channel->label) {
      return &property;
    }
  }
  return nullptr;
}

const GList* ListChannels(GstColorBalance* balance) {
  return StateOf(balance).BalanceChannels;
}

void SetValue(GstColorBalance* balance, GstColorBalanceChannel* channel, gint value) {
  const ControlProperty* const property = PropertyOf(channel);
  if (property == nullptr) return;
  g_object_set(balance, property->Property, std::clamp(value, property->Minimum, property->Maximum),
               nullptr);
}

gint GetValue(GstColorBalance* balance, GstColorBalanceChannel* channel) {
  const ControlProperty* const property = PropertyOf(channel);
  if (property == nullptr) return 0;
  return StateOf(balance).Session.Control(property->Control).value_or(property->Default);
}

GstColorBalanceType BalanceType(GstColorBalance*) {
  return GST_COLOR_BALANCE_HARDWARE;
}

void InitInterface(gpointer interface, gpointer) {
  auto* const balance = static_cast<GstColorBalanceInterface*>(interface);
  balance->list_channels = ListChannels;
  balance->set_value = SetValue;
  balance->get_value = GetValue;
  balance->get_balance_type = BalanceType;
}

}  // namespace

void AddColorBalance(GType elementType) {
  const GInterfaceInfo info{InitInterface, nullptr, nullptr};
  g_type_add_interface_static(elementType, GST_TYPE_COLOR_BALANCE, &info);
}

GList* NewBalanceChannels() {
  GList* channels = nullptr;
  for (const ControlProperty& property : ControlProperties()) {
    if (property.BalanceChannel == nullptr) continue;
    auto* const channel =
        GST_COLOR_BALANCE_CHANNEL(g_object_new(GST_TYPE_COLOR_BALANCE_CHANNEL, nullptr));
    channel->label = g_strdup(property.BalanceChannel);
    channel->min_value = property.Minimum;
    channel->max_value = property.Maximum;
    channels = g_list_append(channels, channel);
  }
  return channels;
}

void FreeBalanceChannels(GList* channels) {
  g_list_free_full(channels, g_object_unref);
}

void TellBalance(GstElement* element, const ControlProperty& property) {
  if (property.BalanceChannel == nullptr) return;
  for (const GList* each = StateOf(element).BalanceChannels; each != nullptr; each = each->next) {
    auto* const channel = GST_COLOR_BALANCE_CHANNEL(each->data);
    if (PropertyOf(channel) != &property) continue;
    gst_color_balance_value_changed(GST_COLOR_BALANCE(element), channel,
                                    GetValue(GST_COLOR_BALANCE(element), channel));
  }
}

}  // namespace lidcam::gstreamer
