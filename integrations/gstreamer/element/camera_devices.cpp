#include "integrations/gstreamer/element/camera_devices.h"

#include <algorithm>
#include <cstddef>
#include <mutex>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "integrations/gstreamer/camera/camera_caps.h"
#include "integrations/gstreamer/element/camera_source.h"
#include "library/lidcam.h"

namespace lidcam::gstreamer {
namespace {

// ------------------------------------------------------------------------------------------- a camera

struct CameraDevice {
  GstDevice Parent;
  char* Address;
};

struct CameraDeviceClass {
  GstDeviceClass Parent;
};

GstElement* CreateElement(GstDevice* device, const gchar* name) {
  auto* const camera = reinterpret_cast<CameraDevice*>(device);
  return GST_ELEMENT(
      g_object_new(CameraSourceType(), "name", name, "camera", camera->Address, nullptr));
}

gboolean ReconfigureElement(GstDevice* device, GstElement* element) {
  if (!G_TYPE_CHECK_INSTANCE_TYPE(element, CameraSourceType())) return FALSE;
  g_object_set(element, "camera", reinterpret_cast<CameraDevice*>(device)->Address, nullptr);
  return TRUE;
}

void FinalizeDevice(GObject* object) {
  g_free(reinterpret_cast<CameraDevice*>(object)->Address);
  G_OBJECT_CLASS(g_type_class_peek(GST_TYPE_DEVICE))->finalize(object);
}

void InitDeviceClass(gpointer classPointer, gpointer) {
  GST_DEVICE_CLASS(classPointer)->create_element = CreateElement;
  GST_DEVICE_CLASS(classPointer)->reconfigure_element = ReconfigureElement;
  G_OBJECT_CLASS(classPointer)->finalize = FinalizeDevice;
}

GType CameraDeviceType() {
  static const GType type = g_type_register_static_simple(
      GST_TYPE_DEVICE, "LidcamDevice", sizeof(CameraDeviceClass), InitDeviceClass,
      sizeof(CameraDevice), nullptr, static_cast<GTypeFlags>(0));
  return type;
}

const char* KindOf(const lidcam_camera_info& camera) {
  return camera.kind == LIDCAM_KIND_SIMULATED ? "simulated" : "plugged-in";
}

/// @return floating
GstDevice* NewDevice(const lidcam_camera_info& camera) {
  GstStructure* const properties = gst_structure_new(
      "lidcam-properties", "device.api", G_TYPE_STRING, "lidcam", "device.path", G_TYPE_STRING,
      camera.address, "lidcam.unit", G_TYPE_STRING, camera.unit, "lidcam.kind", G_TYPE_STRING,
      KindOf(camera), "device.vendor.id", G_TYPE_UINT, static_cast<guint>(camera.vendor_id),
      "device.product.id", G_TYPE_UINT, static_cast<guint>(camera.product_id), nullptr);
  GstCaps* const caps = CapsOfAnyCamera();
  gpointer const device =
      g_object_new(CameraDeviceType(), "display-name", camera.description, "caps", caps,
                   "device-class", "Video/Source", "properties", properties, nullptr);
  gst_caps_unref(caps);
  gst_structure_free(properties);
  static_cast<CameraDevice*>(device)->Address = g_strdup(camera.address);
  return GST_DEVICE(device);
}

std::vector<GstDevice*> PresentDevices(GstDeviceProvider* provider) {
  std::vector<GstDevice*> devices;
  const lidcam_camera_info* const* cameras = nullptr;
  std::size_t count = 0;
  if (lidcam_cameras_list(&cameras, &count) < 0) {
    GST_WARNING_OBJECT(provider, "%s", lidcam_error_text());
    return devices;
  }
  for (const lidcam_camera_info* camera : std::span(cameras, count)) {
    // A shared camera is in choosers by that other way, and one without a known frame size gives no pictures.
    if (*camera->shared_by != '\0' || *camera->obstacle != '\0') continue;
    devices.push_back(NewDevice(*camera));
  }
  lidcam_cameras_free(cameras);
  return devices;
}

const char* AddressOf(GstDevice* device) {
  return reinterpret_cast<CameraDevice*>(device)->Address;
}

// ------------------------------------------------------------------------------------- the provider

struct CameraDevices {
  GstDeviceProvider Parent;
  lidcam_watch* Watch;
};

struct CameraDevicesClass {
  GstDeviceProviderClass Parent;
};

GList* Probe(GstDeviceProvider* provider) {
  GList* list = nullptr;
  for (GstDevice* device : PresentDevices(provider)) {
    list = g_list_append(list, gst_object_ref_sink(device));
  }
  return list;
}

/// What the provider has announced; each with a reference.
std::vector<GstDevice*> AnnouncedDevices(GstDeviceProvider* provider) {
  std::vector<GstDevice*> devices;
  GST_OBJECT_LOCK(provider);
  for (const GList* each = provider->devices; each != nullptr; each = each->next) {
    devices.push_back(GST_DEVICE(gst_object_ref(each->data)));
  }
  GST_OBJECT_UNLOCK(provider);
  return devices;
}

bool Contains(std::span<GstDevice* const> devices, GstDevice* wanted) {
  return std::ranges::any_of(devices, [wanted](GstDevice* device) {
    return g_strcmp0(AddressOf(device), AddressOf(wanted)) == 0;
  });
}

/// Announces what has come and gone since the last time.
void Announce(void* providerPointer) {
  static std::mutex announcing;
  const std::scoped_lock lock(announcing);
  auto* const provider = static_cast<GstDeviceProvider*>(providerPointer);
  const std::vector<GstDevice*> before = AnnouncedDevices(provider);
  const std::vector<GstDevice*> now = PresentDevices(provider);
  for (GstDevice* device : before) {
    if (!Contains(now, device)) gst_device_provider_device_remove(provider, device);
    gst_object_unref(device);
  }
  for (GstDevice* device : now) {
    if (Contains(before, device)) {
      gst_object_unref(gst_object_ref_sink(device));
    } else {
      gst_device_provider_device_add(provider, device);
    }
  }
}

gboolean Start(GstDeviceProvider* provider) {
  auto* const devices = reinterpret_cast<CameraDevices*>(provider);
  if (lidcam_watch_cameras(Announce, provider, &devices->Watch) < 0) {
    GST_WARNING_OBJECT(provider, "cameras that come and go are not seen: %s", lidcam_error_text());
  }
  Announce(provider);
  return TRUE;
}

void Stop(GstDeviceProvider* provider) {
  auto* const devices = reinterpret_cast<CameraDevices*>(provider);
  lidcam_watch_end(std::exchange(devices->Watch, nullptr));
}

void InitProviderClass(gpointer classPointer, gpointer) {
  auto* const provider = GST_DEVICE_PROVIDER_CLASS(classPointer);
  provider->probe = Probe;
  provider->start = Start;
  provider->stop = Stop;
  gst_device_provider_class_set_static_metadata(provider, "lidcam notebook cameras", "Source/Video",
                                                "Cameras that are plugged in, and simulated ones",
                                                "The lidcam developers");
}

}  // namespace

GType CameraDevicesType() {
  static const GType type = g_type_register_static_simple(
      GST_TYPE_DEVICE_PROVIDER, "LidcamDeviceProvider", sizeof(CameraDevicesClass),
      InitProviderClass, sizeof(CameraDevices), nullptr, static_cast<GTypeFlags>(0));
  return type;
}

}  // namespace lidcam::gstreamer
