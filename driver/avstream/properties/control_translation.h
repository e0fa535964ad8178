#pragma once

#include "driver/core/control/control_codes.h"
#include "platform/kernel.h"

namespace lidcam {

// A property request and a control record: each says the other's. Pure functions of what they are
// given, at any level and on any thread. A request whose set is none of the camera's four goes on
// under its own id; the platform lets none through.

enum class PropertyDirection { Set, Get };

/// The code of the private properties that are settable by the table and have no control: above all
/// codes of the camera, so that SetControl() refuses it.
inline constexpr std::uint32_t kNoControlCode = 48;

/// Bytes of the value block that a translation of the request reads or writes.
///
/// @return 0 for a request that has no translation in that direction, and for one that no control
///         answers
ULONG PropertyBlockBytes(const KSIDENTIFIER& request, PropertyDirection direction);

/// Puts a set into the record: the code, and those words that the property has a value for. All other
/// words stay as they came.
///
/// @param data  PropertyBlockBytes() of value block; aligned to 8 bytes
/// @return STATUS_NOT_SUPPORTED, with nothing read or written, if the camera can't set the property
NTSTATUS TranslateSet(const KSIDENTIFIER& request, const void* data, ControlRecord& record);

/// Puts a get into the record: the code, and for a register read the register. All other words stay
/// as they came.
///
/// @param data  as for TranslateSet()
/// @return STATUS_NOT_SUPPORTED, with nothing read or written, if no control answers the property
NTSTATUS TranslateGet(const KSIDENTIFIER& request, const void* data, ControlRecord& record);

/// Puts the answer that GetControl() left in the record into the value block. Words that the property
/// has no answer for stay as they are.
///
/// @param data  as for TranslateSet()
void TranslateReply(const KSIDENTIFIER& request, const ControlRecord& record, void* data);

}  // namespace lidcam
