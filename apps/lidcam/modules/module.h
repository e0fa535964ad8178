#pragma once

#include <string>

namespace lidcam::app {

/// A part of the program in a file of its own, which is loaded when it is used first.
struct Module {
  const char* File;     ///< also where the dynamic linker looks for it: below the program's RUNPATH
  const char* Package;  ///< of Debian
};

inline constexpr Module kFilmModule{"lidcam-film.so", "lidcam-film"};
inline constexpr Module kPipeWireModule{"lidcam-pipewire.so", "lidcam-pipewire"};
inline constexpr Module kRtspModule{"lidcam-rtsp.so", "lidcam-rtsp"};

/// A function of a module, which is loaded first if need be.
///
/// @param input  begins the error: what the module is needed for
/// Throws CommandError if the module is missing, can't be loaded, or is of another version.
[[nodiscard]] void* SymbolOfModule(const std::string& input, const Module& module,
                                   const char* function);

template <typename Function>
[[nodiscard]] Function* FunctionOfModule(const std::string& input, const Module& module,
                                         const char* function) {
  return reinterpret_cast<Function*>(SymbolOfModule(input, module, function));
}

}  // namespace lidcam::app
