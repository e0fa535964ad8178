#pragma once

#include <gst/gst.h>

#include "integrations/gstreamer/camera/control_properties.h"

namespace lidcam::gstreamer {

/// Gives an element type GstColorBalance: the controls with a BalanceChannel. Its elements have a StateOf().
void AddColorBalance(GType elementType);

/// The channels of a new element; freed with FreeBalanceChannels().
[[nodiscard]] GList* NewBalanceChannels();
void FreeBalanceChannels(GList* channels);

/// Tells the listeners of a channel its new value; nothing if the control has no channel.
void TellBalance(GstElement* element, const ControlProperty& property);

}  // namespace lidcam::gstreamer
