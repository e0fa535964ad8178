#pragma once

#include <cstddef>
#include <memory>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::image {
class ImageFile;
class LoadedDriver;
}  // namespace lidcam::image

namespace lidcam::testbed {

/// From now on cameras are installed with the driver of this image; null: with the one compiled into this program,
/// which is the initial choice. Not while a camera is installed.
void InstallDriverOf(std::shared_ptr<const image::ImageFile> file);

/// With LIDCAM_DRIVER=FILE cameras of this process are installed with the driver of that image.
///
/// @throws image::ImageError
void InstallDriverOfEnvironment();

/// The image whose driver cameras are installed with; null: the compiled one.
[[nodiscard]] std::shared_ptr<const image::ImageFile> DriverImage();
[[nodiscard]] bool IsDriverOfImage();

/// Most bytes of a stack that a driver of an image has used so far; 0 without one.
[[nodiscard]] std::size_t DeepestStackOfImage();

/// The driver of one installed camera.
class InstalledDriver {
 public:
  InstalledDriver();
  InstalledDriver(const InstalledDriver&) = delete;
  InstalledDriver& operator=(const InstalledDriver&) = delete;
  /// The image stays in memory until the world has ended, which unwinds its threads through the image's functions.
  ~InstalledDriver();

  /// Loads the driver and calls its entry.
  NTSTATUS Load(DRIVER_OBJECT& driver, UNICODE_STRING& registryPath);
  /// Nothing of the driver is in use any more.
  void Unload(DRIVER_OBJECT& driver);

 private:
  void Abandon();

  std::shared_ptr<const image::ImageFile> file_;
  std::unique_ptr<image::LoadedDriver> loaded_;
  bool isCompiledUser_ = false;
};

}  // namespace lidcam::testbed
