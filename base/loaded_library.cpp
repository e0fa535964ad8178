#include "base/loaded_library.h"

#include <dlfcn.h>

#include <stdexcept>

namespace lidcam::base {
namespace {

[[noreturn]] void Fail() {
  const char* const reason = dlerror();
  throw std::runtime_error(reason == nullptr ? "no reason is known" : reason);
}

}  // namespace

void* SymbolOfLibrary(const char* file, const char* symbol) {
  void* const library = dlopen(file, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) Fail();
  void* const found = dlsym(library, symbol);
  if (found == nullptr) Fail();
  return found;
}

}  // namespace lidcam::base
