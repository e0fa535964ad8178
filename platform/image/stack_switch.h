#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/image/kernel_exports.h"

namespace lidcam::image {

/// One import of a loaded image.
struct ImportedCall {
  void (*Function)();
  const KernelExport* Export;  ///< null: made for the driver, which didn't call
};

/// Bytes of a piece of code that begins a call.
inline constexpr std::size_t kThunkSize = 32;

/// Code for an import's pointer: the calls of the driver go through it to the host's function. It changes to the
/// host's stack, and checks that the driver keeps the rules for calls: an aligned stack, and the direction flag
/// clear.
///
/// @param call  exists as long as the code
void WriteImportThunk(std::uint8_t* code, const ImportedCall& call);

/// Code for a function of the driver whose address the host may get: its calls by the host go through it. It changes
/// to the driver's stack, unless the caller runs on that already.
void WriteEntryThunk(std::uint8_t* code, std::uintptr_t function);

}  // namespace lidcam::image

extern "C" {

// For code that a signal handler continues with, as if the driver had called it. Both leave the driver's stack.

/// r11 has the address of an ImportedCall that doesn't return, the other registers its arguments. The stack above the
/// return address is left as it is: it may be the driver's own return address.
void LidcamFault();
/// One turn of a spin loop: other threads run. Preserves all registers.
void LidcamSpin();

}  // extern "C"
