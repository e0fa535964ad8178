#include "testbed/installed_driver.h"

#include <atomic>
#include <cstdlib>
#include <memory>
#include <utility>

#include "driver/avstream/entry/driver_entry.h"
#include "platform/host/nt/scheduling/scheduler.h"
#include "platform/host/nt/verifier/irp_tracker.h"
#include "platform/host/nt/verifier/no_allocation_scope.h"
#include "platform/image/driver_stack.h"
#include "platform/image/loaded_driver.h"
#include "testbed/shared_exposure.h"

namespace lidcam::testbed {
namespace {

// A driver that was unloaded or abandoned. Threads that have stopped for good in it are unwound when their world ends.
struct AbandonedDriver {
  std::shared_ptr<const image::ImageFile> File;
  std::unique_ptr<image::LoadedDriver> Loaded;
};

std::shared_ptr<const image::ImageFile> g_file;

// Cameras that have the compiled driver.
constinit std::atomic<int> g_compiledUsers{0};

// Code that the driver is required not to wait for:
// - completions of transfers that the bus hasn't returned when a removal stops waiting for them; the bus returns them
//   when it is taken down, behind the unloading;
// - what is left of a completion routine behind the event that it sets.
bool RunsBehindUnloading() {
  return host::IrpUsageOfWorld().InFlight != 0 || host::CompletionScope::Count() != 0;
}

}  // namespace

void InstallDriverOf(std::shared_ptr<const image::ImageFile> file) {
  g_file = std::move(file);
}

void InstallDriverOfEnvironment() {
  const char* const path = std::getenv("LIDCAM_DRIVER");
  if (path == nullptr) return;
  InstallDriverOf(std::make_shared<const image::ImageFile>(image::ImageFile::Read(path)));
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
  if (file_ == nullptr) {
    // The platform loads the driver anew, with fresh variables, when its last camera had gone.
    isCompiledUser_ = true;
    if (g_compiledUsers.fetch_add(1) == 0) ResetSharedExposure();
    return DriverEntry(&driver, &registryPath);
  }
  loaded_ = std::make_unique<image::LoadedDriver>(
      *file_, image::BlockCoverage::OfEnvironment(file_->Size()));
  return loaded_->Start(&driver, &registryPath);
}

void InstalledDriver::Unload(DRIVER_OBJECT& driver) {
  if (driver.DriverUnload != nullptr) driver.DriverUnload(&driver);
  if (loaded_ != nullptr && !RunsBehindUnloading()) loaded_->Unload();
  Abandon();
}

void InstalledDriver::Abandon() {
  if (std::exchange(isCompiledUser_, false)) --g_compiledUsers;
  if (loaded_ == nullptr) return;
  host::Scheduler& world = host::CurrentWorld();
  AbandonedDriver abandoned{file_, std::move(loaded_)};
  // In real time no thread is unwound later.
  if (world.IsPunctual()) {
    world.KeepUntilEnd(std::make_shared<const AbandonedDriver>(std::move(abandoned)));
  }
}

}  // namespace lidcam::testbed
