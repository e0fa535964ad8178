#pragma once

#include "driver/avstream/properties/property_codes.h"
#include "driver/core/control/control_codes.h"
#include "platform/kernel.h"

namespace lidcam {

// Translation between property requests and control records. Pure functions, for any level and
// thread. A request with an unknown property set is passed on under its own id; the platform lets
// none through.

enum class PropertyDirection { Set, Get };

struct PropertyTranslation;

/// A property request, looked up.
struct CameraProperty {
  ULONG Id;
  const PropertyTranslation* Translation;  ///< null for an unknown set
  const PropertyCode* Code;                ///< null for an unknown id

  /// kRefusedCode for a property that can't be set or read, respectively.
  [[nodiscard]] ControlCode SetCode() const {
    return Code != nullptr ? Code->SetCode : kRefusedCode;
  }
  [[nodiscard]] ControlCode GetCode() const {
    return Code != nullptr ? Code->GetCode : kRefusedCode;
  }
};

/// Looks a request up once; all steps below use the result.
CameraProperty FindCameraProperty(const KSIDENTIFIER& request);

/// Bytes of the value block that a translation of the request reads or writes.
///
/// @return 0 for a request without a translation in that direction, and for one without a control
ULONG PropertyBlockBytes(const CameraProperty& property, PropertyDirection direction);

/// Puts a set into the record: the code, and those words that the property has a value for. All
/// other words are unchanged.
///
/// @param data  PropertyBlockBytes() of value block; aligned to 8 bytes
/// @return STATUS_NOT_SUPPORTED, with nothing read or written, if the camera can't set the property
NTSTATUS TranslateSet(const CameraProperty& property, const void* data, ControlRecord& record);

/// Puts a get into the record: the code, and for a register read the register. All other words are
/// unchanged.
///
/// @param data  as for TranslateSet()
/// @return STATUS_NOT_SUPPORTED, with nothing read or written, if the property has no control to
///         read
NTSTATUS TranslateGet(const CameraProperty& property, const void* data, ControlRecord& record);

/// Puts the answer that GetControl() left in the record into the value block. Words that the
/// property has no answer for are unchanged.
///
/// @param data  as for TranslateSet()
void TranslateReply(const CameraProperty& property, const ControlRecord& record, void* data);

}  // namespace lidcam
