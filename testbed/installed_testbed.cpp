#include "testbed/installed_testbed.h"

#include <exception>
#include <stdexcept>
#include <utility>

#include "platform/host/nt/io/device_object.h"
#include "platform/host/nt/io/plug_and_play.h"

namespace lidcam::testbed {
namespace {

constexpr char16_t kServiceKey[] =
    u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\lidcam";

void Require(NTSTATUS status, const char* what) {
  if (!NT_SUCCESS(status)) throw std::runtime_error(what);
}

}  // namespace

InstalledTestbed::InstalledTestbed(bus::UsbBus& bus, InstalledTestbedOptions options)
    : Testbed(bus, {std::move(options.DriverKey), options.FirstBusFrame, options.Filter}, [] {}) {
  Build([this] { Install(); }, [this] { Unload(); });
}

void InstalledTestbed::Install() {
  std::u16string key = kServiceKey;
  UNICODE_STRING registryPath{};
  registryPath.Buffer = key.data();
  registryPath.Length = static_cast<USHORT>(key.size() * sizeof(char16_t));
  registryPath.MaximumLength = registryPath.Length;
  Require(installedDriver_.Load(DriverObject(), registryPath),
          "the camera's driver can't be loaded");
  Require(DriverObject().DriverExtension->AddDevice(&DriverObject(), PhysicalDevice()),
          "the driver has no room for the camera's device");
}

void InstalledTestbed::Unload() {
  installedDriver_.Unload(DriverObject());
}

InstalledTestbed::~InstalledTestbed() noexcept(false) {
  if (std::uncaught_exceptions() == 0) Close();
}

void InstalledTestbed::Close() {
  if (!IsPluggedIn()) return;
  Remove();
  TakeDown([this] { Unload(); });
}

NTSTATUS InstalledTestbed::Start() {
  return host::StartDevice(TopDevice());
}

NTSTATUS InstalledTestbed::PowerDown() {
  return host::SetDevicePower(TopDevice(), PowerDeviceD3);
}

NTSTATUS InstalledTestbed::PowerUp() {
  return host::SetDevicePower(TopDevice(), PowerDeviceD0);
}

NTSTATUS InstalledTestbed::Remove() {
  return FunctionalDevice() != nullptr ? host::RemoveDevice(TopDevice()) : STATUS_SUCCESS;
}

NTSTATUS InstalledTestbed::SurpriseRemove() {
  PullPlug();
  return host::SurpriseRemoveDevice(TopDevice());
}

PDEVICE_OBJECT InstalledTestbed::TopDevice() const {
  PDEVICE_OBJECT device = PhysicalDevice();
  while (device->AttachedDevice != nullptr) device = device->AttachedDevice;
  return device;
}

PDEVICE_OBJECT InstalledTestbed::FunctionalDevice() const {
  PDEVICE_OBJECT device = PhysicalDevice();
  while (device != nullptr && device->DriverObject != &DriverObject())
    device = device->AttachedDevice;
  return device;
}

const CaptureDevice& InstalledTestbed::Device() const {
  return Driver();
}

void InstalledTestbed::WithCamera(const std::function<void(CameraContext& camera)>& use) const {
  if (FunctionalDevice() == nullptr) return;
  const CameraHold hold(Driver());
  if (hold.Camera() != nullptr) use(*hold.Camera());
}

// A streaming class's device extension begins with the address of the object that drivers see.
CaptureDevice& InstalledTestbed::Driver() const {
  return *CaptureDeviceOf(*static_cast<PKSDEVICE*>(FunctionalDevice()->DeviceExtension));
}

}  // namespace lidcam::testbed
