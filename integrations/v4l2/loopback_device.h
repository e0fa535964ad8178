#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "integrations/camera/camera_description.h"

namespace lidcam::integrations::v4l2 {

/// The system calls that a device node is used with. They return as the system's, and set errno.
class DeviceCalls {
 public:
  virtual ~DeviceCalls() = default;
  virtual int Open(const char* path) = 0;
  virtual int Control(int descriptor, unsigned long request, void* argument) = 0;
  virtual std::ptrdiff_t Write(int descriptor, std::span<const std::uint8_t> bytes) = 0;
  virtual void Close(int descriptor) = 0;
};

/// Those of this machine.
DeviceCalls& SystemCalls();

/// A device node of v4l2loopback, as the program that supplies its pictures has it: of one size, in YUY2.
///
/// It stays open as long as this object lives, since nobody sees the device as a camera otherwise.
class LoopbackDevice {
 public:
  struct Options {
    std::string Path;  ///< "/dev/video9"
    PictureSize Size;
    std::function<void(const std::string& line)> Tell;  ///< gets warnings
  };

  /// @throws ShareError with the command that helps, if there is no such device
  LoopbackDevice(Options options, DeviceCalls& calls = SystemCalls());
  LoopbackDevice(const LoopbackDevice&) = delete;
  LoopbackDevice& operator=(const LoopbackDevice&) = delete;
  ~LoopbackDevice();

  /// Passes a picture to all that look. It doesn't wait for them.
  ///
  /// @throws ShareError if the device is gone
  void Write(std::span<const std::uint8_t> picture);

 private:
  [[nodiscard]] int Open() const;
  void CheckDevice() const;
  void SetFormat() const;
  void SetRate() const;
  void StartOutput() const;
  /// @return as the system call
  int Control(unsigned long request, void* argument) const;

  const Options options_;
  DeviceCalls& calls_;
  const int descriptor_;
};

}  // namespace lidcam::integrations::v4l2
