#pragma once

#include <gst/gst.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace lidcam::serve::rtsp {

/// Who sees the camera, for `lidcam status`: kept by the server, told to the camera of each media. Any thread.
class ViewerList {
 public:
  /// @param client  identifies the viewer
  /// @param name    "RTSP: 192.168.1.7:40112"
  void Add(const void* client, const std::string& name);
  /// Nothing for a client that isn't in the list.
  void Remove(const void* client);

  /// The element `lidcamsrc` that is told, from now on; null for none.
  void SetCamera(GstElement* camera);

 private:
  struct Unref {
    void operator()(GstElement* element) const { gst_object_unref(element); }
  };

  void Tell() const;

  mutable std::mutex mutex_;
  std::map<const void*, std::string> viewers_;
  std::unique_ptr<GstElement, Unref> camera_;
};

}  // namespace lidcam::serve::rtsp
