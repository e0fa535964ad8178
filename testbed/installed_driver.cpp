#include "testbed/installed_driver.h"

#include <utility>
#include <vector>

#include "driver/avstream/entry/driver_entry.h"
#include "platform/host/nt/scheduling/scheduler.h"
#include "platform/image/driver_stack.h"
#include "platform/image/loaded_driver.h"

namespace lidcam::testbed {
namespace {

// A driver that was unloaded or abandoned. Threads that have stopped for good in it are unwound when their world ends.
struct AbandonedDriver {
  std::shared_ptr<const image::ImageFile> File;
  std::unique_ptr<image::LoadedDriver> Loaded;
  LONGLONG Time;  // of its world
};

std::shared_ptr<const image::ImageFile> g_file;
thread_local std::vector<AbandonedDriver> t_abandoned;

// A world in which it is earlier is another one, and the one before has ended.
void ForgetDriversOfOldWorlds() {
  const LONGLONG now = host::CurrentWorld().Now();
  std::erase_if(t_abandoned, [now](const AbandonedDriver& driver) { return driver.Time > now; });
}

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
  Abandon();
}

NTSTATUS InstalledDriver::Load(DRIVER_OBJECT& driver, UNICODE_STRING& registryPath) {
  if (file_ == nullptr) return DriverEntry(&driver, &registryPath);
  ForgetDriversOfOldWorlds();
  loaded_ = std::make_unique<image::LoadedDriver>(*file_);
  return loaded_->Start(&driver, &registryPath);
}

void InstalledDriver::Unload(DRIVER_OBJECT& driver) {
  if (driver.DriverUnload != nullptr) driver.DriverUnload(&driver);
  Abandon();
}

void InstalledDriver::Abandon() {
  if (loaded_ == nullptr) return;
  const host::Scheduler& world = host::CurrentWorld();
  if (world.IsPunctual()) {
    t_abandoned.push_back({file_, std::move(loaded_), world.Now()});
  } else {
    loaded_.reset();  // in real time no thread is unwound later
  }
}

}  // namespace lidcam::testbed
