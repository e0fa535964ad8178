#include "integrations/gstreamer/element/exposure_messages.h"

#include <utility>

namespace lidcam::gstreamer {
namespace {

const char* NameOf(lidcam_light_state state) {
  switch (state) {
    case LIDCAM_LIGHT_NORMAL:
      return "normal";
    case LIDCAM_LIGHT_LOW:
      return "low";
    case LIDCAM_LIGHT_INITIAL:
      return "initial";
    case LIDCAM_LIGHT_DUMMY:
      return "dummy";
  }
  return "unknown";
}

void Post(GstElement* element, GstStructure* structure) {
  gst_element_post_message(element, gst_message_new_element(GST_OBJECT(element), structure));
}

}  // namespace

void ExposureMessages::Observe(GstElement* element, const lidcam_frame& frame,
                               GstClockTime runningTime) {
  const Exposure exposure{frame.auto_exposure, frame.exposure, frame.coarse_gain, frame.fine_gain,
                          frame.exposure_lines};
  if (std::exchange(exposure_, exposure) != exposure) {
    Post(element,
         gst_structure_new("lidcam-exposure", "auto-exposure", G_TYPE_BOOLEAN,
                           frame.auto_exposure != 0, "exposure", G_TYPE_UINT, frame.exposure,
                           "coarse-gain", G_TYPE_UINT, frame.coarse_gain, "fine-gain", G_TYPE_UINT,
                           frame.fine_gain, "exposure-lines", G_TYPE_UINT, frame.exposure_lines,
                           "running-time", G_TYPE_UINT64, runningTime, nullptr));
  }
  if (std::exchange(light_, frame.light_state) != frame.light_state) {
    Post(element,
         gst_structure_new("lidcam-light", "state", G_TYPE_STRING, NameOf(frame.light_state),
                           "running-time", G_TYPE_UINT64, runningTime, nullptr));
  }
}

}  // namespace lidcam::gstreamer
