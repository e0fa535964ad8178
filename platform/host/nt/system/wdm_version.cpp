#include "platform/host/nt/system/wdm_version.h"

#include <atomic>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {
namespace {

constinit std::atomic<std::uint16_t> g_wdmVersion{0x0130};

}  // namespace

void SetWdmVersion(std::uint16_t version) {
  g_wdmVersion = version;
}

}  // namespace lidcam::host

BOOLEAN IoIsWdmVersionAvailable(UCHAR major, UCHAR minor) {
  const auto asked = static_cast<std::uint16_t>((major << 8) | minor);
  return asked <= lidcam::host::g_wdmVersion ? TRUE : FALSE;
}
