#include <gst/gst.h>

#include "integrations/gstreamer/element/registration.h"
#include "library/lidcam.h"

namespace {

gboolean InitPlugin(GstPlugin* plugin) {
  return lidcam::gstreamer::RegisterElements(plugin);
}

}  // namespace

// The macro gives its texts to members that are not const.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wcast-qual"
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, lidcam, "USB 2.0 notebook cameras",
                  InitPlugin, LIDCAM_PROJECT_VERSION, "MIT/X11", "lidcam", "lidcam")
#pragma GCC diagnostic pop
