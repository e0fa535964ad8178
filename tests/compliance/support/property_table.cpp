#include "tests/compliance/support/property_table.h"

namespace lidcam::compliance {

constinit const GUID kVideoAmplifier = {
    0xC6E13360, 0x30AC, 0x11D0, {0xA1, 0x8C, 0x00, 0xA0, 0xC9, 0x11, 0x89, 0x56}};
constinit const GUID kCameraControl = {
    0xC6E13370, 0x30AC, 0x11D0, {0xA1, 0x8C, 0x00, 0xA0, 0xC9, 0x11, 0x89, 0x56}};
constinit const GUID kVideoControl = {
    0x6A2E0670, 0x28E4, 0x11D0, {0xA1, 0x8C, 0x00, 0xA0, 0xC9, 0x11, 0x89, 0x56}};
constinit const GUID kPrivate = {
    0xA4C6088B, 0x6B7D, 0x4F4C, {0x98, 0x19, 0xDC, 0x3A, 0x3C, 0xAD, 0x13, 0x0E}};

namespace {

constexpr PropertyRow kRows[] = {
    {"Brightness", &kVideoAmplifier, 0, -100, 100, 0, 20, 2, 2, true},
    {"Sharpness", &kVideoAmplifier, 4, 0, 8, 4, 3, 2, 2, true},
    {"Saturation", &kVideoAmplifier, 3, 0, 255, 120, 120, 2, 2, true},
    {"Contrast", &kVideoAmplifier, 1, 1, 16, 10, 10, 2, 2, true},
    {"Gamma", &kVideoAmplifier, 5, 1, 20, 12, 11, 2, 2, true},
    {"BacklightCompensation", &kVideoAmplifier, 8, 0, 1, 0, 0, 2, 2, true},
    {"ColorEnable", &kVideoAmplifier, 6, 0, 1, 1, 1, 2, 2, true},
    {"Exposure", &kCameraControl, 4, 1, 100, 1, 1, 1, 3, true},
    {"Mirror", &kPrivate, 14, 0, 500, 1, 0, 0, 0, true},
    {"Vertical", &kPrivate, 15, 0, 500, 1, 0, 0, 0, true},
    {"Effect", &kPrivate, 11, 0, 500, 1, 0, 0, 0, true},
    {"Flicker", &kPrivate, 13, 0, 500, 1, 1, 0, 0, true},
    {"Stored44", &kPrivate, 20, 0, 20, 0, 0, 0, 0, false},
    {"Stored45", &kPrivate, 21, 0, 40, 20, 20, 0, 0, false},
    {"Stored46", &kPrivate, 22, 0, 30, 15, 15, 0, 0, false},
};

}  // namespace

std::span<const PropertyRow> PropertyRows() {
  return kRows;
}

}  // namespace lidcam::compliance
