#include "testbed/installed_driver.h"

#include <utility>
#include <vector>

#include "driver/avstream/entry/driver_entry.h"
#include "platform/image/driver_stack.h"
#include "platform/image/loaded_driver.h"

namespace lidcam::testbed {
namespace {

struct AbandonedDriver {
  std::shared_ptr<const image::ImageFile> File;
  std::unique_ptr<image::LoadedDriver> Loaded;
};

std::shared_ptr<const image::ImageFile> g_file;
thread_local std::vector<AbandonedDriver> t_abandoned;

}  // namespace

void InstallDriverOf(std::shared_ptr<const image::ImageFile> file) {
  g_file = std::move(file);
}

std::shared_ptr<const image::ImageFile> DriverImage() {
  return g_file;
}

bool IsDriverOfImage() {
  return g_file != nullptr;
}

std::size_t DeepestStackOfImage() {
  return image::DeepestDriverStack();
}

InstalledDriver::InstalledDriver() : file_(g_file) {}

InstalledDriver::~InstalledDriver() {
  if (loaded_ != nullptr) t_abandoned.push_back({file_, std::move(loaded_)});
}

NTSTATUS InstalledDriver::Load(DRIVER_OBJECT& driver, UNICODE_STRING& registryPath) {
  if (file_ == nullptr) return DriverEntry(&driver, &registryPath);
  t_abandoned.clear();
  loaded_ = std::make_unique<image::LoadedDriver>(*file_);
  return loaded_->Start(&driver, &registryPath);
}

void InstalledDriver::Unload(DRIVER_OBJECT& driver) {
  if (driver.DriverUnload != nullptr) driver.DriverUnload(&driver);
  loaded_.reset();
}

}  // namespace lidcam::testbed
