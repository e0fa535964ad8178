#pragma once

#include <memory>
#include <string>
#include <vector>

#include "library/camera_list.h"
#include "library/lidcam.h"
#include "library/session/camera_session.h"

/// An open camera with what is handed out of it by address.
struct lidcam_camera {
  std::string Address;
  lidcam::api::CameraEntry Entry;
  std::unique_ptr<lidcam::app::CameraSession> Session;

  std::vector<lidcam_format> Formats;
  std::vector<const lidcam_format*> FormatList;  ///< with a null at the end
  std::vector<std::string> ControlTexts;
  std::vector<lidcam_control> Controls;
  std::vector<const lidcam_control*> ControlList;  ///< with a null at the end

  /// Opens the camera. Throws as the session does.
  explicit lidcam_camera(lidcam::app::SessionOptions options);
  lidcam_camera(const lidcam_camera&) = delete;
  lidcam_camera& operator=(const lidcam_camera&) = delete;

 private:
  void Describe();
  void ListFormats();
  void ListControls();
};

/// Whether a structure of the application's, which may be older than this library, has a field.
#define LIDCAM_HAS_FIELD(options, type, field) \
  ((options)->struct_size >= offsetof(type, field) + sizeof((options)->field))
