#pragma once

#include "platform/host/ks/device/ks_objects.h"

namespace lidcam::host {

/// Longest request, and longest value, in bytes. Bounds what the class allocates for an
/// application.
inline constexpr ULONG kLongestBuffer = 0x10000;

/// Answers basic support of a property from its table entry: only its access flags for a buffer
/// that holds no more, the description without its members for one that doesn't hold them, or
/// everything. Without a buffer it returns the size of everything.
///
/// @param value  the class's copy of the buffer, of the request's OutputBufferLength
NTSTATUS AnswerBasicSupport(PIRP irp, const KSPROPERTY_ITEM& item, PVOID value);

}  // namespace lidcam::host
