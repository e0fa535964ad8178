#include "serve/rtsp/viewer_list.h"

#include <utility>
#include <vector>

#include "integrations/gstreamer/element/camera_source.h"

namespace lidcam::serve::rtsp {

void ViewerList::Add(const void* client, const std::string& name) {
  const std::scoped_lock lock(mutex_);
  viewers_[client] = name;
  Tell();
}

void ViewerList::Remove(const void* client) {
  const std::scoped_lock lock(mutex_);
  if (viewers_.erase(client) > 0) Tell();
}

void ViewerList::SetCamera(GstElement* camera) {
  const std::scoped_lock lock(mutex_);
  camera_.reset(camera == nullptr ? nullptr : GST_ELEMENT(gst_object_ref(camera)));
  Tell();
}

void ViewerList::Tell() const {
  if (!camera_) return;
  std::vector<std::string> names;
  for (const auto& [client, name] : viewers_) names.push_back(name);
  gstreamer::SetViewers(camera_.get(), std::move(names));
}

}  // namespace lidcam::serve::rtsp
