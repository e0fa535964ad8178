#pragma once

#include "platform/kernel.h"

namespace lidcam {

/// A GUID made of the numbers that the platform publishes as STATIC_ and the GUID's name.
constexpr GUID GuidOf(ULONG data1, USHORT data2, USHORT data3, UCHAR b0, UCHAR b1, UCHAR b2,
                      UCHAR b3, UCHAR b4, UCHAR b5, UCHAR b6, UCHAR b7) {
  return {data1, data2, data3, {b0, b1, b2, b3, b4, b5, b6, b7}};
}

// The camera's own copies of the published GUIDs: an image needs no library for them.
inline constexpr GUID kVideoProcAmpSet = GuidOf(STATIC_PROPSETID_VIDCAP_VIDEOPROCAMP);
inline constexpr GUID kCameraControlSet = GuidOf(STATIC_PROPSETID_VIDCAP_CAMERACONTROL);
inline constexpr GUID kVideoControlSet = GuidOf(STATIC_PROPSETID_VIDCAP_VIDEOCONTROL);
inline constexpr GUID kGeneralPropertyTypes = GuidOf(STATIC_KSPROPTYPESETID_General);

/// The camera's private set: orientation, mains frequency, light and LED, raw registers, stills.
inline constexpr GUID PROPSETID_CAMERA_PRIVATE =
    GuidOf(0xA4C6088B, 0x6B7D, 0x4F4C, 0x98, 0x19, 0xDC, 0x3A, 0x3C, 0xAD, 0x13, 0x0E);

/// Ids of PROPSETID_CAMERA_PRIVATE. There is no 12.
enum PrivateProperty : ULONG {
  PrivatePropertyUnused = 10,  ///< listed, but neither read nor set: both are refused
  PrivatePropertyEffect = 11,
  PrivatePropertyFlicker = 13,
  PrivatePropertyMirror = 14,
  PrivatePropertyVertical = 15,
  PrivatePropertyRegister = 16,     ///< reads or writes a register under the select in force
  PrivatePropertyClearOnRead = 17,  ///< a set is refused
  PrivatePropertyLight = 18,        ///< light mode and LED
  PrivatePropertyStill = 19,  ///< a set arms a still, a get reports whether the camera streams
  PrivatePropertyStored44 = 20,
  PrivatePropertyStored45 = 21,
  PrivatePropertyStored46 = 22,
};

/// The value block of every private property, in the client's memory.
///
/// The property's head is declared as words: the platform's type is aligned to 8 bytes, which would
/// round the block up to 56.
struct PrivatePropertyBlock {
  ULONG Property[6];  ///< a KSPROPERTY
  LONG Value;
  ULONG Unused;
  ULONG Register;  ///< PrivatePropertyRegister, on a set: the register to write
  ULONG Led;       ///< PrivatePropertyLight: a lidcam::LedPolicy, in and out
  ULONG Spare[3];
};
static_assert(sizeof(KSPROPERTY) == 24);
static_assert(sizeof(PrivatePropertyBlock) == 52);

/// Where a read of PrivatePropertyRegister takes the register from: far behind the block, so that
/// clients pass kRegisterReadBytes at least.
inline constexpr ULONG kRegisterReadOffset = 128;
inline constexpr ULONG kRegisterReadBytes = kRegisterReadOffset + sizeof(LONG);

constexpr bool IsSameGuid(const GUID& a, const GUID& b) {
  if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
  for (int i = 0; i < 8; ++i) {
    if (a.Data4[i] != b.Data4[i]) return false;
  }
  return true;
}

}  // namespace lidcam
