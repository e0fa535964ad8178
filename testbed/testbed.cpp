#include "testbed/testbed.h"

#include "platform/host/nt/io/device_object.h"

namespace lidcam::testbed {

// No kernel object is destroyed while an exception unwinds.
void Testbed::Build(const std::function<void()>& bringDriver,
                    const std::function<void()>& takeDriverDown) {
  std::exception_ptr error;
  try {
    PlugIn();
    bringDriver();
  } catch (const std::exception&) {
    error = std::current_exception();
  }
  if (error == nullptr) return;
  TakeDown(takeDriverDown);
  std::rethrow_exception(error);
}

void Testbed::PlugIn() {
  stack_ = std::make_unique<host::UsbDeviceStack>(
      meter_, host::UsbStackOptions{.FirstFrame = options_.FirstBusFrame});
  host::FindHostDevice(PhysicalDevice())->DriverKey = options_.DriverKey;
  if (options_.Filter != nullptr) options_.Filter->Attach(PhysicalDevice());
  host::InitializeDriverObject(driver_);
}

// A world that stops meanwhile throws, which reset() can't pass on.
void Testbed::TakeDown(const std::function<void()>& takeDriverDown) {
  takeDriverDown();
  if (options_.Filter != nullptr) options_.Filter->Detach();
  delete stack_.release();
}

}  // namespace lidcam::testbed
