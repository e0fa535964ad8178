#include <gtest/gtest.h>

#include "tests/driver/usb/support/transport_world.h"

#include <fstream>
#include <sstream>

#include "platform/host/nt/io/device_object.h"

namespace lidcam::test {

KS_VIDEOINFOHEADER VideoInfo(LONG width, LONG height) {
  KS_VIDEOINFOHEADER info{};
  info.AvgTimePerFrame = 333333;
  info.bmiHeader.biSize = sizeof(info.bmiHeader);
  info.bmiHeader.biWidth = width;
  info.bmiHeader.biHeight = height;
  info.bmiHeader.biBitCount = 16;
  info.bmiHeader.biCompression = 0x32595559;
  info.bmiHeader.biSizeImage = static_cast<DWORD>(width * height * 2);
  return info;
}

TransportWorld::TransportWorld() {
  host::InitializeDriverObject(driver_);
  ks_ = std::make_unique<host::StreamingDevice>(&driver_, Stack.Device());
  EXPECT_EQ(AddCameraDevice(Ks()), STATUS_SUCCESS);
}

TransportWorld::~TransportWorld() noexcept(false) {
  if (std::uncaught_exceptions() != 0) return;
  if (Device().UsbDevice != nullptr) {
    Stack.Decide = nullptr;
    Device().PauseStream();
    Device().OnDeviceGone(0);
    Device().StopHardware();
    while (Stack.IsoOut() != 0) Stack.CompleteIso(USBD_STATUS_CANCELED);
  }
}

NTSTATUS TransportWorld::Start() {
  return Device().StartHardware(Ks());
}

NTSTATUS TransportWorld::Acquire(LONG width, LONG height) {
  KS_VIDEOINFOHEADER info = VideoInfo(width, height);
  return Device().AcquireStream(&Pin, &info);
}

void TransportWorld::ExpectGolden(const std::string& name, const std::function<void()>& action) {
  host::Sleep(host::kMillisecond);  // until a tick that has woken the caller ends
  Log.Clear();
  action();
  const std::string path =
      std::string(LIDCAM_SOURCE_ROOT) + "/tests/driver/usb/golden/" + name + ".txt";
  std::ifstream file(path);
  std::stringstream golden;
  golden << file.rdbuf();
  EXPECT_EQ(Log.Text(), golden.str()) << path;
}

void InWorld(const std::function<void(TransportWorld&)>& test) {
  host::Simulate({.Seed = 1}, [&] {
    TransportWorld world;
    test(world);
  });
}

}  // namespace lidcam::test
