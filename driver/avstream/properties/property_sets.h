#pragma once

#include <cstddef>

#include "driver/avstream/properties/property_ids.h"
#include "platform/kernel.h"

namespace lidcam {

/// A default that the platform reads again with every request.
struct DefaultWord {
  const LONG* Place;
};

/// The values that a property reports to clients: a range in steps of 1 and a default. Informative
/// only: no value is checked against it.
///
/// Must not be moved or copied: the platform's records point into each other.
class PropertyRange {
 public:
  constexpr PropertyRange(LONG minimum, LONG maximum, LONG defaultValue)
      : PropertyRange(minimum, maximum, defaultValue, &default_) {}

  constexpr PropertyRange(LONG minimum, LONG maximum, DefaultWord defaultWord)
      : PropertyRange(minimum, maximum, 0, defaultWord.Place) {}

  PropertyRange(const PropertyRange&) = delete;
  PropertyRange& operator=(const PropertyRange&) = delete;

  [[nodiscard]] constexpr const KSPROPERTY_VALUES* Values() const { return &values_; }

  [[nodiscard]] constexpr LONG Minimum() const { return range_.Bounds.SignedMinimum; }
  [[nodiscard]] constexpr LONG Maximum() const { return range_.Bounds.SignedMaximum; }
  [[nodiscard]] constexpr LONG Default() const { return default_; }

 private:
  static constexpr ULONG kSigned32BitVariant = 3;

  constexpr PropertyRange(LONG minimum, LONG maximum, LONG defaultValue, const LONG* defaultWord)
      : range_{1, 0, {{minimum, maximum}}},
        default_{defaultValue},
        members_{{{KSPROPERTY_MEMBER_STEPPEDRANGES, sizeof(range_), 1, 0}, &range_},
                 {{KSPROPERTY_MEMBER_VALUES, sizeof(LONG), 1, KSPROPERTY_MEMBER_FLAG_DEFAULT},
                  defaultWord}},
        values_{{kGeneralPropertyTypes, kSigned32BitVariant, 0}, 2, members_} {}

  KSPROPERTY_STEPPING_LONG range_;
  LONG default_;
  KSPROPERTY_MEMBERSLIST members_[2];
  KSPROPERTY_VALUES values_;
};

/// Default of PrivatePropertyStored44, in writable data. Nothing changes it.
extern LONG DefaultOfStored44;

// The defaults for clients, which are not those that a camera without stored settings starts with.
inline constexpr PropertyRange kBrightnessRange{-100, 100, 0};
inline constexpr PropertyRange kSharpnessRange{0, 8, 4};
inline constexpr PropertyRange kSaturationRange{0, 255, 120};
inline constexpr PropertyRange kContrastRange{1, 16, 10};
inline constexpr PropertyRange kGammaRange{1, 20, 12};
inline constexpr PropertyRange kWhiteBalanceRange{0, 1, 1};
inline constexpr PropertyRange kBacklightRange{0, 1, 0};
inline constexpr PropertyRange kColorEnableRange{0, 1, 1};
inline constexpr PropertyRange kExposureRange{1, 100, 1};
inline constexpr PropertyRange kSharedPrivateRange{0, 500, 1};  // serves no control in particular
inline constexpr PropertyRange kStored44Range{0, 20, DefaultWord{&DefaultOfStored44}};
inline constexpr PropertyRange kStored45Range{0, 40, 20};
inline constexpr PropertyRange kStored46Range{0, 30, 15};

/// @param items  of the set; must live as long as the result
template <std::size_t kCount>
constexpr KSPROPERTY_SET PropertySetOf(const GUID& set, const KSPROPERTY_ITEM (&items)[kCount]) {
  return {&set, kCount, items, 0, nullptr};
}

/// The four property sets of the filter, as its automation table lists them: `Sets`.
///
/// Must not be moved or copied. The items stand in the order in which a client lists them; the
/// platform finds an item by its id.
class CameraPropertySets {
 public:
  /// @param get  called for every get of every property
  /// @param set  called for every set
  constexpr CameraPropertySets(PFNKSHANDLER get, PFNKSHANDLER set)
      : VideoProcAmp{Level(get, set, KSPROPERTY_VIDEOPROCAMP_BRIGHTNESS, kBrightnessRange),
                     Level(get, set, KSPROPERTY_VIDEOPROCAMP_SHARPNESS, kSharpnessRange),
                     Level(get, set, KSPROPERTY_VIDEOPROCAMP_SATURATION, kSaturationRange),
                     Level(get, set, KSPROPERTY_VIDEOPROCAMP_CONTRAST, kContrastRange),
                     Level(get, set, KSPROPERTY_VIDEOPROCAMP_GAMMA, kGammaRange),
                     Level(get, set, KSPROPERTY_VIDEOPROCAMP_WHITEBALANCE, kWhiteBalanceRange),
                     Level(get, set, KSPROPERTY_VIDEOPROCAMP_BACKLIGHT_COMPENSATION,
                           kBacklightRange),
                     Level(get, set, KSPROPERTY_VIDEOPROCAMP_COLORENABLE, kColorEnableRange)},
        CameraControl{Level(get, set, KSPROPERTY_CAMERACONTROL_EXPOSURE, kExposureRange)},
        VideoControl{Plain(get, nullptr, KSPROPERTY_VIDEOCONTROL_CAPS, 32, 32),
                     Plain(get, nullptr, KSPROPERTY_VIDEOCONTROL_ACTUAL_FRAME_RATE, 56, 56),
                     Plain(get, nullptr, KSPROPERTY_VIDEOCONTROL_FRAME_RATES, 40, 0),
                     Plain(get, set, KSPROPERTY_VIDEOCONTROL_MODE, 32, 32)},
        Private{Own(get, set, PrivatePropertyMirror, kSharedPrivateRange),
                Own(get, set, PrivatePropertyVertical, kSharedPrivateRange),
                Own(get, set, PrivatePropertyEffect, kSharedPrivateRange),
                Own(get, set, PrivatePropertyFlicker, kSharedPrivateRange),
                Own(get, set, PrivatePropertyUnused, kSharedPrivateRange),
                Own(get, set, PrivatePropertyClearOnRead, kSharedPrivateRange),
                Own(get, set, PrivatePropertyRegister, kSharedPrivateRange),
                Own(get, set, PrivatePropertyLight, kSharedPrivateRange),
                Own(get, set, PrivatePropertyStill, kSharedPrivateRange),
                Own(get, set, PrivatePropertyStored44, kStored44Range),
                Own(get, set, PrivatePropertyStored45, kStored45Range),
                Own(get, set, PrivatePropertyStored46, kStored46Range),
                // Listed a second time and never reached: the first item is found.
                Own(get, set, PrivatePropertyRegister, kSharedPrivateRange)},
        Sets{PropertySetOf(kVideoProcAmpSet, VideoProcAmp),
             PropertySetOf(kCameraControlSet, CameraControl),
             PropertySetOf(kVideoControlSet, VideoControl),
             PropertySetOf(PROPSETID_CAMERA_PRIVATE, Private)} {}

  CameraPropertySets(const CameraPropertySets&) = delete;
  CameraPropertySets& operator=(const CameraPropertySets&) = delete;

  KSPROPERTY_ITEM VideoProcAmp[8];
  KSPROPERTY_ITEM CameraControl[1];
  KSPROPERTY_ITEM VideoControl[4];
  KSPROPERTY_ITEM Private[13];
  KSPROPERTY_SET Sets[4];

 private:
  static constexpr KSPROPERTY_ITEM Ranged(PFNKSHANDLER get, PFNKSHANDLER set, ULONG id, ULONG bytes,
                                          const PropertyRange& range) {
    return {id, {get}, bytes, bytes, {set}, range.Values(), 0, nullptr, nullptr, sizeof(LONG)};
  }

  static constexpr KSPROPERTY_ITEM Plain(PFNKSHANDLER get, PFNKSHANDLER set, ULONG id,
                                         ULONG minProperty, ULONG minData) {
    return {id, {get}, minProperty, minData, {set}, nullptr, 0, nullptr, nullptr, 0};
  }

  // The blocks of the two published sets of levels are the same.
  static constexpr KSPROPERTY_ITEM Level(PFNKSHANDLER get, PFNKSHANDLER set, ULONG id,
                                         const PropertyRange& range) {
    return Ranged(get, set, id, 40, range);
  }

  static constexpr KSPROPERTY_ITEM Own(PFNKSHANDLER get, PFNKSHANDLER set, ULONG id,
                                       const PropertyRange& range) {
    return Ranged(get, set, id, sizeof(PrivatePropertyBlock), range);
  }
};

static_assert(sizeof(KSPROPERTY_VIDEOPROCAMP_S) == 40);
static_assert(sizeof(KSPROPERTY_CAMERACONTROL_S) == 40);
static_assert(sizeof(KSPROPERTY_VIDEOCONTROL_CAPS_S) == 32);
static_assert(sizeof(KSPROPERTY_VIDEOCONTROL_ACTUAL_FRAME_RATE_S) == 56);
static_assert(sizeof(KSPROPERTY_VIDEOCONTROL_FRAME_RATES_S) == 40);
static_assert(sizeof(KSPROPERTY_VIDEOCONTROL_MODE_S) == 32);

}  // namespace lidcam
