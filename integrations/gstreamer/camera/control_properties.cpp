#include "integrations/gstreamer/camera/control_properties.h"

#include <gst/gst.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace lidcam::gstreamer {
namespace {

using enum PropertyKind;

constexpr std::array kProperties = std::to_array<ControlProperty>({
    {"Brightness", "brightness", "Added to the luminance", Number, -100, 100, 0, "BRIGHTNESS"},
    {"Contrast", "contrast", "Contrast; 10 is neutral", Number, 1, 16, 10, "CONTRAST"},
    {"Saturation", "saturation", "Strength of the colours", Number, 0, 255, 120, "SATURATION"},
    {"Sharpness", "sharpness", "Edge enhancement", Number, 0, 8, 4, "SHARPNESS"},
    {"Gamma", "gamma", "Gamma; lower brightens the shadows", Number, 1, 20, 12, "GAMMA"},
    {"WhiteBalance", "white-balance",
     "Reported only: the camera accepts any value and keeps its own", Switch, 0, 1, 1, nullptr},
    {"BacklightCompensation", "backlight-compensation", "Light comes from behind", Switch, 0, 1, 0,
     nullptr},
    {"ColorEnable", "color-enable", "Colours; otherwise monochrome", Switch, 0, 1, 1, nullptr},
    {"Exposure", "exposure", "Exposure by hand; turns auto-exposure off", Number, 1, 100, 1,
     nullptr},
    {"AutoExposure", "auto-exposure", "The camera exposes by itself", Switch, 0, 1, 1, nullptr},
    {"Mirror", "mirror", "Left and right exchanged", Switch, 0, 1, 0, nullptr},
    {"Vertical", "vertical", "Upside down", Switch, 0, 1, 0, nullptr},
    {"Flicker", "flicker", "Frequency of the mains, whose lamps flicker", Mains, 0, 2, 1, nullptr},
    {"Effect", "effect", "Picture effect; 0 is none", Number, 0, 5, 0, nullptr},
    {"LDMode", "ld-mode", "Holds the registers for low light", Switch, 0, 1, 0, nullptr},
    {"LED", "led", "The light beside the lens", Led, 2, 4, 4, nullptr},
});

GType MainsType() {
  static const GEnumValue values[] = {{0, "No mains light", "none"},
                                      {1, "50 Hz", "50hz"},
                                      {2, "60 Hz", "60hz"},
                                      {0, nullptr, nullptr}};
  static const GType type = g_enum_register_static("LidcamMains", values);
  return type;
}

GType LedType() {
  static const GEnumValue values[] = {{2, "Always on", "on"},
                                      {3, "Always off", "off"},
                                      {4, "Follows the light", "follow-light"},
                                      {0, nullptr, nullptr}};
  static const GType type = g_enum_register_static("LidcamLed", values);
  return type;
}

constexpr auto kFlags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                 GST_PARAM_MUTABLE_PLAYING);

GParamSpec* SpecOf(const ControlProperty& property) {
  const char* const name = property.Property;
  switch (property.Kind) {
    case Number:
      return g_param_spec_int(name, property.Control, property.Blurb, property.Minimum,
                              property.Maximum, property.Default, kFlags);
    case Switch:
      return g_param_spec_boolean(name, property.Control, property.Blurb, property.Default != 0,
                                  kFlags);
    case Mains:
      return g_param_spec_enum(name, property.Control, property.Blurb, MainsType(),
                               property.Default, kFlags);
    case Led:
      return g_param_spec_enum(name, property.Control, property.Blurb, LedType(), property.Default,
                               kFlags);
  }
  return nullptr;
}

}  // namespace

std::span<const ControlProperty> ControlProperties() {
  return kProperties;
}

const ControlProperty* PropertyOfControl(const char* control) {
  const auto found =
      std::ranges::find(kProperties, std::string_view(control),
                        [](const ControlProperty& each) { return std::string_view(each.Control); });
  return found == kProperties.end() ? nullptr : &*found;
}

void InstallControlProperties(GObjectClass* objectClass, unsigned firstId) {
  for (const ControlProperty& property : kProperties) {
    g_object_class_install_property(objectClass, firstId++, SpecOf(property));
  }
}

std::int32_t ControlValueOf(const ControlProperty& property, const GValue* value) {
  switch (property.Kind) {
    case Number:
      return g_value_get_int(value);
    case Switch:
      return g_value_get_boolean(value) ? 1 : 0;
    case Mains:
    case Led:
      return g_value_get_enum(value);
  }
  return 0;
}

void StoreControlValue(const ControlProperty& property, std::int32_t control, GValue* value) {
  switch (property.Kind) {
    case Number:
      return g_value_set_int(value, control);
    case Switch:
      return g_value_set_boolean(value, control != 0);
    case Mains:
    case Led:
      return g_value_set_enum(value, control);
  }
}

}  // namespace lidcam::gstreamer
