#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "library/api_error.h"
#include "library/camera_handle.h"
#include "library/lidcam.h"
#include "library/session/camera_session.h"

using lidcam::api::FailForNull;
using lidcam::api::Guard;
namespace app = lidcam::app;

namespace {

app::SessionOptions OptionsOf(const char* address, const lidcam_open_options* options) {
  app::SessionOptions session;
  session.Choice.Camera =
      address != nullptr && *address != '\0' ? address : lidcam::api::UsualAddress();
  session.Patience = {.Waits = false, .IsQuiet = true, .HowToWait = ""};
  if (options == nullptr) return session;
  if (LIDCAM_HAS_FIELD(options, lidcam_open_options, wait_milliseconds)) {
    session.Patience.Waits = options->wait_milliseconds != 0;
    if (options->wait_milliseconds > 0) {
      session.Patience.Limit = std::chrono::milliseconds(options->wait_milliseconds);
    }
  }
  if (LIDCAM_HAS_FIELD(options, lidcam_open_options, light) && options->light != nullptr) {
    session.Choice.Light = options->light;
  }
  if (LIDCAM_HAS_FIELD(options, lidcam_open_options, faults) && options->faults != nullptr) {
    session.Faults = options->faults;
  }
  return session;
}

lidcam_event_kind KindOf(app::SessionEventKind kind) {
  switch (kind) {
    case app::SessionEventKind::Unplugged:
      return LIDCAM_EVENT_UNPLUGGED;
    case app::SessionEventKind::Replugged:
      return LIDCAM_EVENT_REPLUGGED;
    case app::SessionEventKind::Control:
      return LIDCAM_EVENT_CONTROL;
    case app::SessionEventKind::StreamFailed:
      return LIDCAM_EVENT_STREAM_FAILED;
    case app::SessionEventKind::Light:
      break;
  }
  return LIDCAM_EVENT_LIGHT;
}

}  // namespace

lidcam_status lidcam_open(const char* address, const lidcam_open_options* options,
                          lidcam_camera** camera) {
  if (camera == nullptr) return FailForNull("camera");
  return Guard([&] {
    *camera = std::make_unique<lidcam_camera>(OptionsOf(address, options)).release();
    return LIDCAM_OK;
  });
}

void lidcam_close(lidcam_camera* camera) {
  if (camera == nullptr) return;
  if (camera->Session->IsOwnThread()) {
    lidcam::api::Fail(LIDCAM_ERROR_WRONG_STATE,
                      "camera '" + camera->Address + "' can't be closed in one of its handlers");
    return;
  }
  delete camera;
}

const lidcam_camera_info* lidcam_camera_get_info(const lidcam_camera* camera) {
  return camera != nullptr ? &camera->Entry.Info : nullptr;
}

const char* lidcam_camera_sensor(const lidcam_camera* camera) {
  return camera != nullptr ? camera->Session->Facts().Sensor.c_str() : "";
}

lidcam_status lidcam_set_viewers(lidcam_camera* camera, const char* const* viewers) {
  if (camera == nullptr) return FailForNull("camera");
  return Guard([&] {
    std::vector<std::string> texts;
    for (; viewers != nullptr && *viewers != nullptr; ++viewers) texts.emplace_back(*viewers);
    camera->Session->SetViewers(std::move(texts));
    return LIDCAM_OK;
  });
}

lidcam_status lidcam_formats_list(lidcam_camera* camera, const lidcam_format* const** formats,
                                  size_t* count) {
  if (camera == nullptr) return FailForNull("camera");
  if (formats == nullptr) return FailForNull("formats");
  *formats = camera->FormatList.data();
  if (count != nullptr) *count = camera->Formats.size();
  return LIDCAM_OK;
}

lidcam_status lidcam_set_event_handler(lidcam_camera* camera, lidcam_event_handler handler,
                                       void* user) {
  if (camera == nullptr) return FailForNull("camera");
  return Guard([&] {
    if (handler == nullptr) {
      camera->Session->SetEventHandler({});
      return LIDCAM_OK;
    }
    camera->Session->SetEventHandler([camera, handler, user](const app::SessionEvent& event) {
      const std::string control(event.Control);
      const lidcam_event told = {.kind = KindOf(event.Kind),
                                 .address = event.Camera.c_str(),
                                 .control = control.c_str(),
                                 .value = event.Value,
                                 .text = event.Text.c_str()};
      handler(camera, &told, user);
    });
    return LIDCAM_OK;
  });
}

lidcam_status lidcam_controls_list(lidcam_camera* camera, const lidcam_control* const** controls,
                                   size_t* count) {
  if (camera == nullptr) return FailForNull("camera");
  if (controls == nullptr) return FailForNull("controls");
  *controls = camera->ControlList.data();
  if (count != nullptr) *count = camera->Controls.size();
  return LIDCAM_OK;
}

lidcam_status lidcam_control_get(lidcam_camera* camera, const char* name, int32_t* value) {
  if (camera == nullptr) return FailForNull("camera");
  if (name == nullptr) return FailForNull("name");
  if (value == nullptr) return FailForNull("value");
  return Guard([&] {
    *value = camera->Session->GetControl(name);
    return LIDCAM_OK;
  });
}

lidcam_status lidcam_control_set(lidcam_camera* camera, const char* name, int32_t value) {
  if (camera == nullptr) return FailForNull("camera");
  if (name == nullptr) return FailForNull("name");
  return Guard([&] {
    camera->Session->SetControl(name, value);
    return LIDCAM_OK;
  });
}

lidcam_status lidcam_control_reset(lidcam_camera* camera, const char* name) {
  if (camera == nullptr) return FailForNull("camera");
  if (name == nullptr) return FailForNull("name");
  return Guard([&] {
    camera->Session->ResetControl(name);
    return LIDCAM_OK;
  });
}

lidcam_status lidcam_control_save(lidcam_camera* camera, const char* name) {
  if (camera == nullptr) return FailForNull("camera");
  if (name == nullptr) return FailForNull("name");
  return Guard([&] {
    camera->Session->SaveControl(name);
    return LIDCAM_OK;
  });
}
