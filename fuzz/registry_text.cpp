// Any bytes are read as a registry file or refused, and what was read comes back from its text.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/host/nt/registry_text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  lidcam::host::RegistryTree tree;
  lidcam::host::RegistryTextError error;
  if (!ParseRegistryText(bytes, tree, error)) {
    if (error.What.empty()) std::abort();
    return 0;
  }
  lidcam::host::RegistryTree again;
  if (!ParseRegistryText(WriteRegistryText(tree), again, error) || again != tree) std::abort();
  return 0;
}
