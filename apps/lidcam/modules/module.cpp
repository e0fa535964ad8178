#include "apps/lidcam/modules/module.h"

#include <stdexcept>

#include "base/loaded_library.h"
#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

void RequireOwnVersion(const std::string& input, const Module& module) {
  const std::string version =
      static_cast<const char*>(base::SymbolOfLibrary(module.File, "lidcam_module_version"));
  if (version == LIDCAM_VERSION) return;
  throw CommandError(input + ": the module " + module.File + " is of lidcam " + version +
                     ", and this is lidcam " LIDCAM_VERSION "; install both of one version");
}

}  // namespace

void* SymbolOfModule(const std::string& input, const Module& module, const char* function) {
  try {
    RequireOwnVersion(input, module);
    return base::SymbolOfLibrary(module.File, function);
  } catch (const CommandError&) {
    throw;
  } catch (const std::runtime_error& error) {
    throw CommandError(input + ": the module " + module.File + " can't be loaded (" + error.what() +
                       "); it is in the package " + module.Package);
  }
}

}  // namespace lidcam::app
