#include "integrations/gstreamer/element/registration.h"

#include "integrations/gstreamer/element/camera_source.h"

namespace lidcam::gstreamer {

bool RegisterElements(GstPlugin* plugin) {
  // No rank: a program that looks for any camera shall not get the simulated one.
  return gst_element_register(plugin, "lidcamsrc", GST_RANK_NONE, CameraSourceType()) != FALSE;
}

}  // namespace lidcam::gstreamer
