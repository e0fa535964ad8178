#include <gst/gst.h>

#include "integrations/gstreamer/element/registration.h"
#include "library/lidcam.h"

namespace {

gboolean InitPlugin(GstPlugin* plugin) {
  return lidcam::gstreamer::RegisterElements(plugin);
}

}  // namespace

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, lidcam, "USB 2.0 notebook cameras",
                  InitPlugin, LIDCAM_PROJECT_VERSION, "MIT/X11", "lidcam", "lidcam")
