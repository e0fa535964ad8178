#pragma once

/// The one header through which driver/ sees the platform.
///
/// The published kernel interfaces stand here under their published names and with their published
/// layouts: from the platform's own headers on Windows, from the declarations under host/
/// everywhere else. Nothing in driver/ may ask which of the two it got.

// LIDCAM_HOST_DECLARATIONS takes our declarations on Windows too: only to check their layouts there.
#if defined(_WIN32) && !defined(LIDCAM_HOST_DECLARATIONS)

// The platform headers clash with the compiler's intrinsics on these two names.
#define __INTRINSIC_DEFINED_InterlockedBitTestAndSet
#define __INTRINSIC_DEFINED_InterlockedBitTestAndReset

#if !defined(NOMINMAX)
#define NOMINMAX
#endif
#include <ntddk.h>
#include <windef.h>

// The streaming headers declare a clock's interface only behind the one that all interfaces derive
// from, whose header expects these three.
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

// The platform's headers take this word for themselves; USB devices have interfaces.
#undef interface

#if defined(_WIN64)
// The platform's headers give these inline: there is nothing to do where the system keeps every
// thread's registers. Those of mingw-w64 lack them.
inline NTSTATUS KeSaveFloatingPointState(PKFLOATING_SAVE) {
  return STATUS_SUCCESS;
}
inline NTSTATUS KeRestoreFloatingPointState(PKFLOATING_SAVE) {
  return STATUS_SUCCESS;
}
#endif

// The annotations of interrupt levels, which the platform's analysis reads.
#include <driverspecs.h>

// The host's verifier looks at the order of holds and locks, and at interrupt levels; here nothing does.
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

/// A wide string literal of the platform's character type: 16 bits, whatever wchar_t is here.
#define KERNEL_TEXT(text) u##text

#endif
