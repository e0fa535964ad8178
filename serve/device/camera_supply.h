#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>

#include "serve/device/served_camera.h"

namespace lidcam::serve {

/// Makes a camera for each client, up to a limit. Callable from any thread.
class CameraSupply {
 public:
  struct Options {
    /// Makes a free-running bus with the camera on it; called from several threads at once.
    std::function<std::unique_ptr<bus::UsbBus>()> Plug{};
    std::optional<bus::FaultScript> Faults{};
    std::size_t Limit = 16;  ///< cameras at a time
  };

  /// A camera that is given back when it is destroyed.
  class Lease {
   public:
    Lease(CameraSupply& supply, std::unique_ptr<ServedCamera> camera)
        : supply_(supply), camera_(std::move(camera)) {}
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;
    ~Lease() { --supply_.taken_; }

    [[nodiscard]] ServedCamera& Camera() { return *camera_; }

   private:
    CameraSupply& supply_;
    std::unique_ptr<ServedCamera> camera_;
  };

  /// Looks at one camera for what all of them say of themselves. Throws what Plug throws, and
  /// bus::EnumerationError.
  explicit CameraSupply(Options options);

  [[nodiscard]] const bus::UsbDeviceInfo& Device() const { return device_; }

  /// @return nothing if all cameras are taken. The supply outlives what it gave. Throws what Plug throws.
  [[nodiscard]] std::unique_ptr<Lease> Take();

 private:
  const Options options_;
  const bus::UsbDeviceInfo device_;
  std::atomic<std::size_t> taken_ = 0;
};

}  // namespace lidcam::serve
