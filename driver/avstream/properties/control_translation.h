#pragma once

#include "driver/avstream/properties/property_codes.h"
#include "driver/core/control/control_codes.h"
#include "platform/kernel.h"

namespace lidcam {

// A property request and a control record: each says the other's. Pure functions of what they are
// given, at any level and on any thread. A request whose set is none of the camera's four goes on
// under its own id; the platform lets none through.

enum class PropertyDirection { Set, Get };

struct PropertyTranslation;

/// A property request, looked up.
struct CameraProperty {
  ULONG Id;
  const PropertyTranslation* Translation;  ///< null for a set that is none of the camera's
  const PropertyCode* Code;                ///< null for an id that the camera doesn't have

  /// kRefusedCode for a property that can't be set, or asked.
  [[nodiscard]] ControlCode SetCode() const {
    return Code != nullptr ? Code->SetCode : kRefusedCode;
  }
  [[nodiscard]] ControlCode GetCode() const {
    return Code != nullptr ? Code->GetCode : kRefusedCode;
  }
};

/// Looks a request up, once for all that is then done about it.
CameraProperty FindCameraProperty(const KSIDENTIFIER& request);

/// Bytes of the value block that a translation of the request reads or writes.
///
/// @return 0 for a request that has no translation in that direction, and for one that no control
///         answers
ULONG PropertyBlockBytes(const CameraProperty& property, PropertyDirection direction);

/// Puts a set into the record: the code, and those words that the property has a value for. All other
/// words stay as they came.
///
/// @param data  PropertyBlockBytes() of value block; aligned to 8 bytes
/// @return STATUS_NOT_SUPPORTED, with nothing read or written, if the camera can't set the property
NTSTATUS TranslateSet(const CameraProperty& property, const void* data, ControlRecord& record);

/// Puts a get into the record: the code, and for a register read the register. All other words stay
/// as they came.
///
/// @param data  as for TranslateSet()
/// @return STATUS_NOT_SUPPORTED, with nothing read or written, if no control answers the property
NTSTATUS TranslateGet(const CameraProperty& property, const void* data, ControlRecord& record);

/// Puts the answer that GetControl() left in the record into the value block. Words that the property
/// has no answer for stay as they are.
///
/// @param data  as for TranslateSet()
void TranslateReply(const CameraProperty& property, const ControlRecord& record, void* data);

}  // namespace lidcam
