// For processors that can't run the image.

#include "platform/image/driver_stack.h"
#include "platform/image/loaded_driver.h"

namespace lidcam::image {

TrappedCode::~TrappedCode() = default;

BlockCoverage* BlockCoverage::OfEnvironment(std::size_t) {
  return nullptr;
}

LoadedDriver::LoadedDriver(const ImageFile& file, BlockCoverage*) : file_(file) {
  throw ImageError(file.Name() + ": is for 64-bit x86 processors, and this is another one");
}

LoadedDriver::~LoadedDriver() = default;

NTSTATUS LoadedDriver::Start(PDRIVER_OBJECT, PUNICODE_STRING) {
  return STATUS_NOT_SUPPORTED;
}

void LoadedDriver::Unload() {}

std::size_t DeepestDriverStack() {
  return 0;
}

}  // namespace lidcam::image
