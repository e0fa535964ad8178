#pragma once

#include <glib-object.h>

#include <cstdint>
#include <optional>
#include <span>

namespace lidcam::gstreamer {

enum class PropertyKind { Number, Switch, Mains, Led };

/// A control of the camera as a property of an element.
struct ControlProperty {
  const char* Control;   ///< the library's name
  const char* Property;  ///< the element's
  const char* Blurb;
  PropertyKind Kind;
  std::int32_t Minimum;
  std::int32_t Maximum;
  std::int32_t Default;
  const char* BalanceChannel;  ///< the channel of GstColorBalance; null: none
};

/// All of them. Properties exist before a camera is open, and so don't come from one.
[[nodiscard]] std::span<const ControlProperty> ControlProperties();

/// The property of a control, or null.
[[nodiscard]] const ControlProperty* PropertyOfControl(const char* control);

/// Adds the properties to a class, with ids from `firstId` on.
void InstallControlProperties(GObjectClass* objectClass, unsigned firstId);

/// The control's value in a property's value.
[[nodiscard]] std::int32_t ControlValueOf(const ControlProperty& property, const GValue* value);

/// The converse of ControlValueOf().
void StoreControlValue(const ControlProperty& property, std::int32_t control, GValue* value);

}  // namespace lidcam::gstreamer
