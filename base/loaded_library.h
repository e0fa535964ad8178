#pragma once

namespace lidcam::base {

/// Loads a shared library, if it isn't loaded yet, and finds a function or an object of it. It stays loaded; its names
/// are not visible to other libraries. Any thread.
///
/// @param file  a path, or a name that the dynamic linker looks for
/// Throws std::runtime_error with the dynamic linker's reason, which names the library.
[[nodiscard]] void* SymbolOfLibrary(const char* file, const char* symbol);

}  // namespace lidcam::base
