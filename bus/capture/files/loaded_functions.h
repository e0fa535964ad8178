#pragma once

#include <stdexcept>
#include <string>
#include <utility>

#include "base/loaded_library.h"
#include "bus/capture/files/capture_error.h"

namespace lidcam::bus {

/// A function of a library that is loaded at the first call: most uses of a camera have no file, and the libraries
/// for those bring sixteen others along.
template <typename Function>
class LoadedFunction {
 public:
  /// @param library  as the dynamic linker looks for it
  /// Throws CaptureError if it can't be loaded.
  LoadedFunction(const char* library, const char* name) : function_(Find(library, name)) {}

  template <typename... Arguments>
  auto operator()(Arguments&&... arguments) const {
    return function_(std::forward<Arguments>(arguments)...);
  }

 private:
  static Function* Find(const char* library, const char* name) {
    try {
      return reinterpret_cast<Function*>(base::SymbolOfLibrary(library, name));
    } catch (const std::runtime_error& error) {
      throw CaptureError(std::string("the library for this file can't be loaded: ") + error.what());
    }
  }

  Function* const function_;
};

}  // namespace lidcam::bus
