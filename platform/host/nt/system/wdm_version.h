#pragma once

#include <cstdint>

namespace lidcam::host {

/// Sets the highest driver model version that the host claims to offer: major in the high byte,
/// minor in the low. Initially 0x0130 (1.0x30); 0 offers none.
void SetWdmVersion(std::uint16_t version);

}  // namespace lidcam::host
