#pragma once

#include <gst/base/gstpushsrc.h>

namespace lidcam::gstreamer {

/// Gives a class the operations of a running source: formats, frames, latency. Its elements have a StateOf().
void InstallStreamOperations(GstPushSrcClass* sourceClass);

}  // namespace lidcam::gstreamer
