#pragma once

#include <filesystem>

#include "platform/host/nt/registry/registry_store.h"
#include "platform/host/nt/registry/registry_tree.h"

namespace lidcam::app {

/// The settings of a run: a copy of the user's, in which the driver loads and saves as it always does.
/// It is discarded at the end of the run, unless it is stored.
class RunSettings {
 public:
  /// Opens the registry with the copy.
  ///
  /// @param file  the user's settings; empty for a camera that begins with the default settings
  explicit RunSettings(std::filesystem::path file);

  /// Writes only the run's changes into the user's current settings, which other runs may have
  /// changed meanwhile. Throws CommandError.
  void Store() const;

 private:
  [[nodiscard]] int WriteChanges(host::RegistryStore& store) const;

  std::filesystem::path file_;
  host::RegistryTree before_;
};

}  // namespace lidcam::app
