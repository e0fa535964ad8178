#include "library/camera_list.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "camera_model/device/camera_identity.h"
#include "library/camera/controls/sensor_notes.h"
#include "library/camera/source/camera_lock.h"
#include "library/camera/source/camera_share.h"
#include "library/camera/source/camera_source.h"
#include "library/camera/source/plugged_camera.h"

namespace lidcam::api {
namespace {

std::string IdentityOf(std::uint16_t vendor, std::uint16_t product) {
  std::array<char, 10> text{};
  std::snprintf(text.data(), text.size(), "%04x:%04x", unsigned{vendor}, unsigned{product});
  return text.data();
}

void Add(std::vector<std::unique_ptr<CameraEntry>>& entries, const std::string& address,
         std::uint16_t vendor, std::uint16_t product, const std::string& holder) {
  auto entry = std::make_unique<CameraEntry>();
  entry->Address = address;
  entry->Description = DescriptionOf(address, vendor, product);
  app::CameraChoice choice;
  choice.Camera = address;
  entry->Unit = app::UnitOf(choice).value_or("");
  const std::string user = app::LockHolderOf(entry->Unit);
  entry->Holder = user.empty() ? holder : "process " + user;
  entry->Sharer = app::SharerOf(entry->Unit);
  entry->Obstacle = app::StreamObstacleOf(vendor, product);
  entry->Finish(KindOf(address), vendor, product);
  entries.push_back(std::move(entry));
}

}  // namespace

void CameraEntry::Finish(lidcam_camera_kind kind, std::uint16_t vendor, std::uint16_t product) {
  Info = {.address = Address.c_str(),
          .description = Description.c_str(),
          .unit = Unit.c_str(),
          .kind = kind,
          .vendor_id = vendor,
          .product_id = product,
          .in_use_by = Holder.c_str(),
          .shared_by = Sharer.c_str(),
          .obstacle = Obstacle.c_str()};
}

lidcam_camera_kind KindOf(const std::string& address) {
  if (app::IsPluggedIn(address)) return LIDCAM_KIND_PLUGGED_IN;
  return app::CaptureFileOf(address) ? LIDCAM_KIND_RECORDING : LIDCAM_KIND_SIMULATED;
}

std::string DescriptionOf(const std::string& address, std::uint16_t vendor, std::uint16_t product) {
  const std::string name = "Notebook camera " + IdentityOf(vendor, product);
  if (const auto file = app::CaptureFileOf(address)) return name + " (recording " + *file + ")";
  if (!app::IsPluggedIn(address)) return name + " (simulated)";
  return name + " (" + app::ParsePluggedName(address).Path + ")";
}

std::string UsualAddress() {
  const auto plugged = app::PluggedCameras();
  if (plugged.empty()) return "sim";
  const auto streamable = std::ranges::find_if(plugged, [](const bus::PluggedDevice& device) {
    return app::StreamObstacleOf(device.Vendor, device.Product).empty();
  });
  return app::NameOf(streamable == plugged.end() ? plugged.front() : *streamable);
}

std::vector<std::unique_ptr<CameraEntry>> ListCameras() {
  std::vector<std::unique_ptr<CameraEntry>> entries;
  for (const bus::PluggedDevice& device : app::PluggedCameras()) {
    Add(entries, app::NameOf(device), device.Vendor, device.Product, app::HolderOf(device));
  }
  for (const camera_model::CameraIdentity& identity : camera_model::AllIdentities()) {
    Add(entries, "sim:" + IdentityOf(identity.VendorId, identity.ProductId), identity.VendorId,
        identity.ProductId, {});
  }
  return entries;
}

}  // namespace lidcam::api
