#include "tests/on_wine/client/camera/control_trial.h"

#include "tests/on_wine/client/report.h"

namespace lidcam::wine {
namespace {

constexpr GUID kVideoAmplifier = {
    0xC6E13360, 0x30AC, 0x11D0, {0xA1, 0x8C, 0x00, 0xA0, 0xC9, 0x11, 0x89, 0x56}};
constexpr GUID kCameraControl = {
    0xC6E13370, 0x30AC, 0x11D0, {0xA1, 0x8C, 0x00, 0xA0, 0xC9, 0x11, 0x89, 0x56}};
constexpr GUID kPrivate = {
    0xA4C6088B, 0x6B7D, 0x4F4C, {0x98, 0x19, 0xDC, 0x3A, 0x3C, 0xAD, 0x13, 0x0E}};

constexpr ULONG kManual = 2;
constexpr ULONG kExposureId = 4;
constexpr ULONG kWhiteBalanceId = 7;

constexpr Control kControls[] = {
    {"Brightness", &kVideoAmplifier, 0, -100, 100, 0, 20, -33, true},
    {"Sharpness", &kVideoAmplifier, 4, 0, 8, 4, 3, 6, true},
    {"Saturation", &kVideoAmplifier, 3, 0, 255, 120, 120, 200, true},
    {"Contrast", &kVideoAmplifier, 1, 1, 16, 10, 10, 13, true},
    {"Gamma", &kVideoAmplifier, 5, 1, 20, 12, 11, 7, true},
    {"BackLight", &kVideoAmplifier, 8, 0, 1, 0, 0, 1, true},
    {"ColorEnable", &kVideoAmplifier, 6, 0, 1, 1, 1, 0, true},
    {"Exposure", &kCameraControl, kExposureId, 1, 100, 1, 1, 50, true},
    {"Mirror", &kPrivate, 14, 0, 500, 1, 0, 1, true},
    {"Vertical", &kPrivate, 15, 0, 500, 1, 0, 1, true},
    {"Effect", &kPrivate, 11, 0, 500, 1, 0, 3, true},
    {"Flicker", &kPrivate, 13, 0, 500, 1, 1, 2, true},
    {"Stored44", &kPrivate, 20, 0, 20, 0, 0, 5, false},
    {"Stored45", &kPrivate, 21, 0, 40, 20, 20, 5, false},
    {"Stored46", &kPrivate, 22, 0, 30, 15, 15, 5, false},
};

struct Refusal {
  const GUID* Set;
  ULONG Id;
  NTSTATUS Status;
};

constexpr auto kNotFound = static_cast<NTSTATUS>(0xC0000225);
constexpr auto kNotSupported = static_cast<NTSTATUS>(0xC00000BB);

constexpr Refusal kRefusals[] = {
    {&kVideoAmplifier, 2, kNotFound}, {&kVideoAmplifier, 99, kNotFound},
    {&kCameraControl, 0, kNotFound},  {&kCameraControl, 6, kNotFound},
    {&kPrivate, 12, kNotFound},       {&kPrivate, 10, kNotSupported},
};

std::string Text(NTSTATUS status) {
  return Hex(static_cast<std::uint32_t>(status));
}

LONG ValueOf(const CameraFile& camera, const Control& control) {
  Level level;
  const NTSTATUS status = camera.GetLevel(*control.Set, control.Id, level);
  Require(status >= 0, std::string("read ") + control.Name + ": status " + Text(status));
  return level.Value;
}

void RequireValue(const CameraFile& camera, const Control& control, LONG value) {
  const LONG told = ValueOf(camera, control);
  Require(told == value, std::string(control.Name) + " is " + std::to_string(told) +
                             " instead of " + std::to_string(value));
}

void Set(const CameraFile& camera, const Control& control, LONG value) {
  const NTSTATUS status = camera.SetLevel(*control.Set, control.Id, {value, kManual, 0});
  Require(status >= 0, std::string("set ") + control.Name + " to " + std::to_string(value) +
                           ": status " + Text(status));
}

void RequireRange(const CameraFile& camera, const Control& control) {
  const LevelRange range = camera.RangeOf(*control.Set, control.Id);
  Require(range.Minimum == control.Minimum && range.Maximum == control.Maximum && range.Step == 1 &&
              range.Default == control.Default,
          std::string("range of ") + control.Name);
}

// A change of brightness is written to the hardware at the next set: the last value is set twice.
void TryControl(const CameraFile& camera, const Control& control) {
  RequireRange(camera, control);
  RequireValue(camera, control, control.First);
  const LONG middle = control.Minimum + (control.Maximum - control.Minimum) / 2;
  const LONG values[] = {control.Minimum,     control.Maximum, middle,       control.Maximum + 1,
                         control.Minimum - 1, control.First,   control.First};
  for (const LONG value : values) {
    Set(camera, control, value);
    RequireValue(camera, control, value);
  }
}

void TryRefusals(const CameraFile& camera) {
  for (const Refusal& refusal : kRefusals) {
    Level level;
    const NTSTATUS status = camera.GetLevel(*refusal.Set, refusal.Id, level);
    Require(status == refusal.Status,
            "property " + std::to_string(refusal.Id) + " that isn't there: " + Text(status));
  }
}

// The camera accepts any value and keeps its own.
void TryWhiteBalance(const CameraFile& camera) {
  const NTSTATUS status = camera.SetLevel(kVideoAmplifier, kWhiteBalanceId, {1, 1, 0});
  Require(status >= 0, "set the white balance: status " + Text(status));
  Level level;
  Require(camera.GetLevel(kVideoAmplifier, kWhiteBalanceId, level) >= 0 && level.Value == 0 &&
              level.Flags == kManual,
          "the white balance stays as it is");
}

}  // namespace

std::span<const Control> Controls() {
  return kControls;
}

void TryControls(const CameraFile& camera) {
  for (const Control& control : kControls) {
    TryControl(camera, control);
    Ok(std::string(control.Name) + ": range, default, first value, sets in and out of range");
  }
  TryWhiteBalance(camera);
  TryRefusals(camera);
  Ok("white balance kept, properties that aren't there refused");
}

void SetKeptControls(const CameraFile& camera) {
  for (const Control& control : kControls) {
    if (control.IsKept) Set(camera, control, control.Kept);
  }
}

void CheckKeptControls(const CameraFile& camera) {
  for (const Control& control : kControls) {
    if (control.IsKept) RequireValue(camera, control, control.Kept);
  }
}

void SetFirstControls(const CameraFile& camera) {
  for (const Control& control : kControls) Set(camera, control, control.First);
  Set(camera, kControls[0], kControls[0].First);
}

}  // namespace lidcam::wine
