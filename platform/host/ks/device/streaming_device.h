#pragma once

#include "platform/host/ks/device/device_block.h"

namespace lidcam::host {

/// A device of the streaming class without plug and play: the functional device object on top of a
/// device stack, and the KSDEVICE that its driver works with. Made and destroyed at passive level.
class StreamingDevice : public DeviceBlock {
 public:
  /// @param driver          of the functional device object
  /// @param physicalDevice  the bottom of the device stack
  /// @throws std::runtime_error if the kernel gives no device object, or no memory
  StreamingDevice(PDRIVER_OBJECT driver, PDEVICE_OBJECT physicalDevice);
  StreamingDevice(const StreamingDevice&) = delete;
  StreamingDevice& operator=(const StreamingDevice&) = delete;

  /// Empties the bag, detaches the device object from the stack and deletes it.
  ~StreamingDevice() noexcept(false);

  /// The mutex of KsAcquireDevice().
  [[nodiscard]] KMUTEX& Mutex() { return Device.Mutex; }

 private:
  void TakeOffTheStack();
};

}  // namespace lidcam::host
