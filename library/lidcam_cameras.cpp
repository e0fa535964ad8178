#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "bus/usb/usb_host.h"
#include "library/api_error.h"
#include "library/base/notices.h"
#include "library/camera/source/camera_share.h"
#include "library/camera/source/plugged_camera.h"
#include "library/camera_list.h"
#include "library/lidcam.h"

namespace lidcam::api {
namespace {

/// A list as it is handed out: by the second of its addresses, ahead of which its own stands.
struct CameraList {
  std::vector<std::unique_ptr<CameraEntry>> Entries;
  std::vector<const void*> Addresses;
};

CameraList* ListOf(const lidcam_camera_info* const* cameras) {
  const void* const own = *reinterpret_cast<const void* const*>(cameras - 1);
  return const_cast<CameraList*>(static_cast<const CameraList*>(own));
}

const lidcam_camera_info* const* HandOut(std::unique_ptr<CameraList> list) {
  list->Addresses.push_back(list.get());
  for (const auto& entry : list->Entries) list->Addresses.push_back(&entry->Info);
  list->Addresses.push_back(nullptr);
  const void* const* const first = list.release()->Addresses.data() + 1;
  return reinterpret_cast<const lidcam_camera_info* const*>(first);
}

}  // namespace
}  // namespace lidcam::api

using lidcam::api::Guard;

lidcam_status lidcam_cameras_list(const lidcam_camera_info* const** cameras, size_t* count) {
  if (cameras == nullptr) return lidcam::api::FailForNull("cameras");
  return Guard([&] {
    auto list = std::make_unique<lidcam::api::CameraList>();
    list->Entries = lidcam::api::ListCameras();
    if (count != nullptr) *count = list->Entries.size();
    *cameras = lidcam::api::HandOut(std::move(list));
    return LIDCAM_OK;
  });
}

void lidcam_cameras_free(const lidcam_camera_info* const* cameras) {
  if (cameras != nullptr) delete lidcam::api::ListOf(cameras);
}

struct lidcam_watch {
  lidcam_cameras_handler Handler;
  void* User;
  std::atomic<bool> IsEnding = false;
  std::thread Thread{};

  lidcam_watch(lidcam_cameras_handler handler, void* user) : Handler(handler), User(user) {}

  void Run() {
    constexpr std::chrono::milliseconds kRound{100};
    lidcam::bus::UsbHost host;
    std::vector<std::string> pluggedBefore = PluggedNames();
    std::vector<std::string> sharedBefore = lidcam::app::SharedUnits();
    while (!IsEnding) {
      // Nothing tells of those that are shared.
      std::vector<std::string> plugged =
          host.WaitForChange(kRound) ? PluggedNames() : pluggedBefore;
      std::vector<std::string> shared = lidcam::app::SharedUnits();
      if (plugged == pluggedBefore && shared == sharedBefore) continue;
      pluggedBefore = std::move(plugged);
      sharedBefore = std::move(shared);
      Handler(User);
    }
  }

  // The number distinguishes a camera that was plugged in again.
  static std::vector<std::string> PluggedNames() {
    std::vector<std::string> names;
    for (const lidcam::bus::PluggedDevice& device : lidcam::app::PluggedCameras()) {
      names.push_back(lidcam::app::NameOf(device) + " " + std::to_string(device.Address));
    }
    return names;
  }
};

lidcam_status lidcam_watch_cameras(lidcam_cameras_handler handler, void* user,
                                   lidcam_watch** watch) {
  if (handler == nullptr) return lidcam::api::FailForNull("handler");
  if (watch == nullptr) return lidcam::api::FailForNull("watch");
  return Guard([&] {
    auto made = std::make_unique<lidcam_watch>(handler, user);
    made->Thread = std::thread([watching = made.get()] { watching->Run(); });
    *watch = made.release();
    return LIDCAM_OK;
  });
}

void lidcam_watch_end(lidcam_watch* watch) {
  if (watch == nullptr) return;
  watch->IsEnding = true;
  watch->Thread.join();
  delete watch;
}

void lidcam_set_notice_handler(lidcam_notice_handler handler, void* user) {
  if (handler == nullptr) {
    lidcam::app::SetNoticeSink({});
    return;
  }
  lidcam::app::SetNoticeSink(
      [handler, user](const std::string& line) { handler(line.c_str(), user); });
}
