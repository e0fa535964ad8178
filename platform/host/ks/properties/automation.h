#pragma once

#include "platform/host/ks/device/ks_objects.h"

namespace lidcam::host {

/// Longest request, and longest value, that an application may hand in or have filled, in bytes. What
/// the class copies for it is bounded by this.
inline constexpr ULONG kLongestBuffer = 0x10000;

/// Answers basic support of a property from its table entry: its access flags alone for a buffer that
/// holds no more, the description without its members for one that doesn't hold them, or everything.
/// With no buffer the size of everything is told.
///
/// @param value  the class's copy of the buffer, of the request's OutputBufferLength
NTSTATUS AnswerBasicSupport(PIRP irp, const KSPROPERTY_ITEM& item, PVOID value);

}  // namespace lidcam::host
