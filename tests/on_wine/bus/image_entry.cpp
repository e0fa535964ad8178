// The image's entry. Kernels that are a process treat an image that imports a process's libraries
// as a library: they call its entry first as a library's, and then as a driver's.

#include "platform/kernel.h"

extern "C" {

extern const UCHAR __ImageBase;
DRIVER_INITIALIZE DriverEntry;

/// The run-time library's own entry of a library: constructors, destructors, ends of threads.
BOOL WINAPI DllMainCRTStartup(HANDLE image, DWORD reason, PVOID reserved);

#if defined(_WIN64)

/// @param first   the image itself, if it is entered as a library; its driver object otherwise
/// @param second  the reason, or the driver's registry path
ULONG_PTR NTAPI ImageEntry(PVOID first, PVOID second, PVOID reserved) {
  if (first == &__ImageBase) {
    const auto reason = static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(second));
    return static_cast<ULONG_PTR>(DllMainCRTStartup(first, reason, reserved));
  }
  return static_cast<ULONG>(
      DriverEntry(static_cast<PDRIVER_OBJECT>(first), static_cast<PUNICODE_STRING>(second)));
}

#else

// A library's entry takes one argument more than a driver's, and each removes its own from the
// stack: only a jump can end in either.
// The first argument is the image itself for a call as a library, else its driver object.
__asm__(
    ".globl _ImageEntry\n"
    "_ImageEntry:\n"
    "  cmpl $___ImageBase, 4(%esp)\n"
    "  je _DllMainCRTStartup@12\n"
    "  jmp _DriverEntry@8\n");

#endif

}  // extern "C"
