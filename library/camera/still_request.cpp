#include "library/camera/still_request.h"

#include "driver/avstream/properties/property_codes.h"
#include "driver/avstream/properties/property_ids.h"
#include "library/base/command_error.h"

namespace lidcam::app {

void AskForStill(const OpenedCamera& opened, std::uint32_t value) {
  PrivatePropertyBlock block{};
  block.Value = static_cast<LONG>(value);
  const NTSTATUS status =
      opened.Camera().Properties().SetBlock(PROPSETID_CAMERA_PRIVATE, PrivatePropertyStill, block);
  if (NT_SUCCESS(status)) return;
  throw CommandError(opened.IsUnplugged() ? "the camera was unplugged: no still was taken"
                                          : "the camera refuses to take a still");
}

}  // namespace lidcam::app
