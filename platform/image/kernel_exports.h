#pragma once

#include <span>
#include <string_view>

namespace lidcam::image {

/// A function of the platform that images can import.
struct KernelExport {
  std::string_view Library;  ///< in lower case
  std::string_view Name;
  void (*Function)();  ///< with the convention of 64-bit Windows
  bool IsPlain =
      false;  ///< works on memory alone: it runs on the driver's stack, and is no switch point
};

/// @return null if the host has no such function
[[nodiscard]] const KernelExport* FindKernelExport(std::string_view library, std::string_view name);

}  // namespace lidcam::image
