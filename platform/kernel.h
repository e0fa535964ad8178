#pragma once

/// The only header by which driver/ includes the platform.
///
/// The published kernel interfaces are declared here with their published names and layouts: by the
/// platform's own headers on Windows, by the declarations under host/ everywhere else. Code in
/// driver/ must not depend on which of the two it uses.

// LIDCAM_HOST_DECLARATIONS includes our declarations on Windows too, only to check their layouts.
#if defined(_WIN32) && !defined(LIDCAM_HOST_DECLARATIONS)

// The platform headers clash with the compiler's intrinsics on these two names.
#define __INTRINSIC_DEFINED_InterlockedBitTestAndSet
#define __INTRINSIC_DEFINED_InterlockedBitTestAndReset

#if !defined(NOMINMAX)
#define NOMINMAX
#endif
#include <ntddk.h>
#include <windef.h>

// The streaming headers declare a clock's interface only if the base interface's header is
// included, which expects these three.
#if !defined(DECLSPEC_NOVTABLE)
#define DECLSPEC_NOVTABLE
#endif
#if !defined(DECLSPEC_NOTHROW)
#define DECLSPEC_NOTHROW __declspec(nothrow)
#endif
#include <unknown.h>
using TCHAR = WCHAR;
#include <ks.h>
#include <ksmedia.h>

extern "C" {
#include <usb.h>
#include <usbdlib.h>
#include <usbioctl.h>
}

// The platform's headers define this word as a macro; USB devices have interfaces.
#undef interface

#if defined(_WIN64)
// The platform's headers define these inline: they do nothing where the system saves every thread's
// registers. Those of mingw-w64 lack them.
inline NTSTATUS KeSaveFloatingPointState(PKFLOATING_SAVE) {
  return STATUS_SUCCESS;
}
inline NTSTATUS KeRestoreFloatingPointState(PKFLOATING_SAVE) {
  return STATUS_SUCCESS;
}
#endif

// The annotations of interrupt levels, which the platform's analysis reads.
#include <driverspecs.h>

// Only the host's verifier checks the order of holds and locks, and interrupt levels; here these do
// nothing.
namespace lidcam {
inline void RequireLevelAtMost(KIRQL) {}
inline void NoteHoldTaken(const void*) {}
inline void NoteHoldReleased(const void*) {}
inline void NoteHoldsAwaited(const void*) {}
}  // namespace lidcam

/// A wide string literal of the platform's character type.
#define KERNEL_TEXT(text) L##text

#else

#include "platform/host/ks/declarations/ks_declarations.h"
#include "platform/host/ks/declarations/ks_filter_declarations.h"
#include "platform/host/ks/declarations/ks_guid_declarations.h"
#include "platform/host/ks/declarations/ks_property_declarations.h"
#include "platform/host/ks/declarations/ks_stream_declarations.h"
#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/host/nt/declarations/pnp_declarations.h"
#include "platform/host/nt/declarations/verifier_declarations.h"
#include "platform/host/usbd/declarations/usb_declarations.h"

#define _IRQL_requires_max_(level)

/// Ends the caller with a violation if the condition does not hold; on Windows in checked builds only.
#define NT_ASSERT(condition) \
  ((condition) ? static_cast<void>(0) : lidcam::ReportFailedAssertion(#condition))

/// A wide string literal of the platform's character type: always 16 bits, unlike wchar_t here.
#define KERNEL_TEXT(text) u##text

#endif
