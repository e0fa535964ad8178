#pragma once

#include "platform/host/ks/ks_declarations.h"
#include "platform/host/ks/object_bag.h"

namespace lidcam::host {

/// A device of the streaming class: the functional device object on top of a device stack, and the
/// KSDEVICE that its driver works with. Made and destroyed at passive level.
class StreamingDevice : public KSDEVICE {
 public:
  /// @param driver          of the functional device object
  /// @param physicalDevice  what the device stack stands on
  /// @throws std::runtime_error if the kernel gives no device object
  StreamingDevice(PDRIVER_OBJECT driver, PDEVICE_OBJECT physicalDevice);
  StreamingDevice(const StreamingDevice&) = delete;
  StreamingDevice& operator=(const StreamingDevice&) = delete;

  /// Empties the bag, under the mutex, and takes the device object off the stack.
  ~StreamingDevice() noexcept(false);

  /// The mutex of KsAcquireDevice().
  [[nodiscard]] KMUTEX& Mutex() { return mutex_; }

 private:
  KMUTEX mutex_{};
  ObjectBag bag_;
};

}  // namespace lidcam::host
