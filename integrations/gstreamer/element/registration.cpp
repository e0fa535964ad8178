#include "integrations/gstreamer/element/registration.h"

#include "integrations/gstreamer/element/camera_devices.h"
#include "integrations/gstreamer/element/camera_source.h"

namespace lidcam::gstreamer {

bool RegisterElements(GstPlugin* plugin) {
  // No rank: a program that looks for any camera shall not get the simulated one.
  return gst_element_register(plugin, "lidcamsrc", GST_RANK_NONE, CameraSourceType()) != FALSE &&
         gst_device_provider_register(plugin, "lidcamdeviceprovider", GST_RANK_PRIMARY,
                                      CameraDevicesType()) != FALSE;
}

}  // namespace lidcam::gstreamer
