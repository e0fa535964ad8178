#include "integrations/gstreamer/element/source_errors.h"

namespace lidcam::gstreamer {
namespace {

GstResourceError ResourceErrorOf(lidcam_status status) {
  switch (status) {
    case LIDCAM_ERROR_NOT_FOUND:
      return GST_RESOURCE_ERROR_NOT_FOUND;
    case LIDCAM_ERROR_IN_USE:
      return GST_RESOURCE_ERROR_BUSY;
    case LIDCAM_ERROR_UNPLUGGED:
      return GST_RESOURCE_ERROR_READ;
    case LIDCAM_ERROR_NO_PERMISSION:
      return GST_RESOURCE_ERROR_NOT_AUTHORIZED;
    case LIDCAM_ERROR_INVALID_ARGUMENT:
      return GST_RESOURCE_ERROR_SETTINGS;
    case LIDCAM_ERROR_NO_MEMORY:
      return GST_RESOURCE_ERROR_NO_SPACE_LEFT;
    default:
      return GST_RESOURCE_ERROR_FAILED;
  }
}

void PostElementMessage(GstElement* element, GstStructure* structure) {
  gst_element_post_message(element, gst_message_new_element(GST_OBJECT(element), structure));
}

}  // namespace

void PostError(GstElement* element, lidcam_status status, const std::string& text) {
  gst_element_message_full_with_details(
      element, GST_MESSAGE_ERROR, GST_RESOURCE_ERROR, ResourceErrorOf(status),
      g_strdup(text.c_str()), g_strdup(lidcam_status_name(status)), __FILE__, GST_FUNCTION,
      __LINE__,
      gst_structure_new("details", "lidcam-status", G_TYPE_INT, static_cast<int>(status), nullptr));
}

void PostUnplugged(GstElement* element, const std::string& text) {
  GST_ELEMENT_WARNING(element, RESOURCE, READ,
                      ("%s; the stream continues when it is plugged in again", text.c_str()),
                      (nullptr));
  PostElementMessage(element, gst_structure_new_empty("lidcam-unplugged"));
}

void PostReplugged(GstElement* element) {
  PostElementMessage(element, gst_structure_new_empty("lidcam-replugged"));
}

}  // namespace lidcam::gstreamer
