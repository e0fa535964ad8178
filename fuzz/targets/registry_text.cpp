// Any bytes are parsed as a registry file or refused, and a parsed tree is equal after writing and
// parsing, and all its entries are found.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "fuzz/support/input.h"
#include "platform/host/nt/registry/registry_text.h"

namespace {

using lidcam::fuzz::Require;

// Every entry of a tree is found by its name, in upper or lower case, is unchanged by storing it
// again, and is gone after its deletion.
void LookAround(const lidcam::host::RegistryTree& tree) {
  lidcam::host::RegistryTree copy = tree;
  for (const auto& [path, values] : tree.Keys()) {
    Require(tree.HasKey(path));
    for (const auto& [name, value] : values) {
      Require(tree.FindValue(path, name) != nullptr && *tree.FindValue(path, name) == value);
      Require(!copy.SetValue(path, name, value));
      Require(copy.SetValue(path, name, {value.Type + 1, value.Data}));
      copy.DeleteValue(path, name);
      Require(copy.FindValue(path, name) == nullptr);
    }
    Require(!lidcam::host::IsBelowKey(path, path) && lidcam::host::SameRegistryName(path, path));
  }
  Require(tree.FindValue(u"no key", u"") == nullptr);
  while (!copy.Keys().empty()) copy.DeleteKey(std::u16string(copy.Keys().begin()->first));
}

}  // namespace

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
  LookAround(tree);
  LookAround(tree);
  return 0;
}
