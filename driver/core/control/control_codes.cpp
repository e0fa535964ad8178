#include "driver/core/control/control_codes.h"

#include <cstddef>
#include <iterator>

#include "driver/core/control/stream_modes.h"
#include "driver/core/record/setting_field.h"
#include "driver/sensor/controls/image_controls.h"
#include "driver/sensor/registers/register_access.h"

namespace lidcam {
namespace {

constexpr std::uint32_t kNoStep = 0;

struct ControlRow;
using SetOperation = Status (*)(const ControlRow& row, CameraContext& context,
                                const ControlRecord& record);
using GetOperation = Status (*)(const ControlRow& row, CameraContext& context,
                                ControlRecord& record);

struct ControlRow {
  std::uint32_t Code;
  SettingField Field;
  std::uint32_t Step;
  SetOperation Set;  // null: the code can't be set
  GetOperation Get;  // null: the code can't be asked
};

std::uint32_t ModeFlag(bool isAutomatic) {
  return isAutomatic ? kControlFlagAuto : kControlFlagManual;
}

Status Accept(const ControlRow&, CameraContext&, const ControlRecord&) {
  return 0;
}

// What is stored stays, also if the step fails.
Status Store(const ControlRow& row, CameraContext& context, const ControlRecord& record) {
  row.Field.Store(context, record.Value);
  return row.Step == kNoStep ? 0 : ApplyImageControl(row.Step, context);
}

// The brightness register lags one change behind: it gets the value that is about to be replaced.
Status ApplyThenStore(const ControlRow& row, CameraContext& context, const ControlRecord& record) {
  const Status status = ApplyImageControl(row.Step, context);
  if (status == 0) row.Field.Store(context, record.Value);
  return status;
}

Status StoreExposure(const ControlRow& row, CameraContext& context, const ControlRecord& record) {
  context.AutoExposure = record.Flags == kControlFlagAuto ? 1 : 0;
  return Store(row, context, record);
}

Status ResetTrigger(const ControlRow&, CameraContext& context, const ControlRecord&) {
  const std::uint32_t base = context.TriggerBase;
  context.TriggerCopyB = base;
  context.TriggerCopyA = base;
  context.TriggerFlagA = 0;
  context.TriggerFlagB = 0;
  return 0;
}

Status StoreRawRegister(const ControlRow& row, CameraContext& context,
                        const ControlRecord& record) {
  context.RawRegisterAddress = record.Caps;
  return Store(row, context, record);
}

// One change a request: a request for both changes the light mode only.
Status StoreLightOrLed(const ControlRow&, CameraContext& context, const ControlRecord& record) {
  const auto led = static_cast<std::int32_t>(record.Caps);
  if (record.Value != context.LDMode) {
    context.LDMode = record.Value;
    context.LightSwitchKind = 1;
    return ApplyImageControl(ImageControlLDMode, context);
  }
  if (led != context.LED) {
    context.LED = led;
    context.LightSwitchKind = 0;
    return ApplyImageControl(ImageControlLed, context);
  }
  return 0;
}

Status RequestStill(const ControlRow& row, CameraContext& context, const ControlRecord& record) {
  row.Field.Store(context, record.Value);
  context.StillRequested = 1;
  return 0;
}

Status Report(const ControlRow& row, CameraContext& context, ControlRecord& record) {
  record.Value = row.Field.Load(context);
  return 0;
}

Status ReportWhiteBalanceMode(const ControlRow& row, CameraContext& context,
                              ControlRecord& record) {
  Report(row, context, record);
  record.Caps = 1;
  record.Flags = ModeFlag(record.Value != 0);
  return 0;
}

Status ReportWhiteBalance(const ControlRow& row, CameraContext& context, ControlRecord& record) {
  Report(row, context, record);
  record.Caps = 1;
  record.Flags = ModeFlag(context.WhiteBalanceAuto == 1);
  return 0;
}

Status ReportExposure(const ControlRow& row, CameraContext& context, ControlRecord& record) {
  Report(row, context, record);
  record.Caps = kControlFlagAuto | kControlFlagManual;
  record.Flags = ModeFlag(context.AutoExposure != 0);
  return 0;
}

Status ReportTrigger(const ControlRow&, CameraContext& context, ControlRecord& record) {
  record.Flags = kControlFlagManual | (context.TriggerFlagA != 0 ? 0x10U : 0U) |
                 (context.TriggerFlagB != 0 ? 0x20U : 0U);
  record.Caps = kControlFlagManual;
  return 0;
}

Status ReportTriggerCapabilities(const ControlRow&, CameraContext&, ControlRecord& record) {
  record.Caps = 0x30;
  record.Flags = kControlFlagManual;
  return 0;
}

// The long table also answers for a camera without the long configuration.
Status ReportFrameInterval(const ControlRow&, CameraContext& context, ControlRecord& record) {
  const std::uint32_t row = context.MaxAlternateSetting;
  // Only 0, 3 and 7 occur; a row that isn't there counts as 0.
  record.Value = row < std::size(kLongBandwidthTable)
                     ? static_cast<std::int32_t>(kLongBandwidthTable[row].Interval)
                     : 0;
  record.Value2 = context.CaptureWidth < 640 ? 333333 : 666666;
  return 0;
}

// RGB24, the product wraps.
std::uint32_t BytesOfStill(std::uint32_t width, std::uint32_t height) {
  return width * height * 3;
}

void PutFirstSize(ControlRecord& record, std::uint32_t width, std::uint32_t height) {
  record.Flags = width;
  record.Caps = height;
  record.Words[0] = BytesOfStill(width, height);
  record.Words[1] = 0;
}

void PutSecondSize(ControlRecord& record, std::uint32_t width, std::uint32_t height) {
  record.Words[2] = width;
  record.Words[3] = height;
  record.Words[4] = BytesOfStill(width, height);
  record.Words[5] = 0;
}

Status ReportStillSizes(const ControlRow&, CameraContext& context, ControlRecord& record) {
  const std::int32_t width = context.CaptureWidth;
  const std::int32_t height = context.CaptureHeight;
  const bool isEnlarged = context.RequestedWidth == 800;
  record.Value = 0;
  if (!isEnlarged && !(width == 640 && height == 480)) {
    record.Value2 = 1;
    PutFirstSize(record, static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height));
    return 0;
  }
  record.Value2 = 2;
  PutFirstSize(record, 1280, 960);
  if (isEnlarged) {
    PutSecondSize(record, 800, 600);
  } else {
    PutSecondSize(record, 640, 480);
  }
  return 0;
}

Status LeaveAsItCame(const ControlRow&, CameraContext&, ControlRecord&) {
  return 0;
}

Status ReportControl33(const ControlRow& row, CameraContext& context, ControlRecord& record) {
  Report(row, context, record);
  record.Flags = kControlFlagAuto;
  record.Caps = 1;
  return 0;
}

// A failed read reports 0.
Status ReadRawRegister(const ControlRow&, CameraContext& context, ControlRecord& record) {
  std::uint8_t byte = 0;
  const auto address =
      static_cast<std::uint16_t>(static_cast<std::uint32_t>(record.Value) & 0xFFFF);
  const Status status = RawReadRegister(context, address, byte);
  record.Value = byte;
  return status;
}

Status ReportLightAndLed(const ControlRow& row, CameraContext& context, ControlRecord& record) {
  Report(row, context, record);
  const std::int32_t led = context.LED;
  record.Caps = static_cast<std::uint32_t>(led);
  return 0;
}

Status ReportAndClear(const ControlRow& row, CameraContext& context, ControlRecord& record) {
  Report(row, context, record);
  context.ClearOnReadValue = 0;
  return 0;
}

Status ReportStreaming(const ControlRow&, CameraContext& context, ControlRecord& record) {
  record.Value = context.Streaming;
  return 0;
}

using Camera = CameraContext;

constexpr ControlRow kControls[] = {
    {0, &Camera::Brightness, ImageControlBrightness, ApplyThenStore, Report},
    {1, &Camera::Contrast, ImageControlContrast, Store, Report},
    {2, &Camera::Saturation, ImageControlSaturation, Store, Report},
    {3, &Camera::Sharpness, ImageControlSharpness, Store, Report},
    {4, &Camera::Gamma, ImageControlGamma, Store, Report},
    {5, &Camera::ColorEnable, ImageControlColorEnable, Store, Report},
    {6, &Camera::WhiteBalanceAuto, kNoStep, Accept, ReportWhiteBalanceMode},
    {7, &Camera::BackLight, ImageControlBackLight, Store, Report},
    {8, &Camera::WhiteBalance, kNoStep, nullptr, ReportWhiteBalance},
    {9, &Camera::Flicker, kNoStep, nullptr, Report},
    {12, &Camera::Exposure, ImageControlExposure, StoreExposure, ReportExposure},
    {23, {}, kNoStep, ResetTrigger, ReportTrigger},
    {24, {}, kNoStep, nullptr, ReportTriggerCapabilities},
    {25, {}, kNoStep, nullptr, ReportFrameInterval},
    {28, {}, kNoStep, nullptr, ReportStillSizes},
    {30, {}, kNoStep, nullptr, LeaveAsItCame},
    {33, &Camera::StoredControl33, kNoStep, nullptr, ReportControl33},
    {37, &Camera::RawRegisterValue, ImageControlRawRegister, StoreRawRegister, ReadRawRegister},
    {38, &Camera::Mirror, ImageControlMirror, Store, Report},
    {39, &Camera::Vertical, ImageControlVertical, Store, Report},
    {40, &Camera::Flicker, ImageControlFlicker, Store, Report},
    {41, &Camera::LDMode, kNoStep, StoreLightOrLed, ReportLightAndLed},
    {42, &Camera::ClearOnReadValue, kNoStep, nullptr, ReportAndClear},
    {kControlStill, &Camera::StillRequestValue, kNoStep, RequestStill, ReportStreaming},
    {44, &Camera::StoredControl44, kNoStep, Store, Report},
    {45, &Camera::StoredControl45, kNoStep, Store, Report},
    {46, &Camera::StoredControl46, kNoStep, Store, Report},
    {47, &Camera::Effect, ImageControlEffect, Store, Report},
};

const ControlRow* FindControl(std::uint32_t code) {
  for (const ControlRow& row : kControls) {
    if (row.Code == code) return &row;
  }
  return nullptr;
}

// Manual unless a code says otherwise, also for codes that don't exist; the codes around the still
// sizes leave the two words to the caller.
void PresetFlagsAndCaps(ControlRecord& record) {
  if (record.Code >= 27 && record.Code <= 30) return;
  record.Flags = kControlFlagManual;
  record.Caps = kControlFlagManual;
}

}  // namespace

Status SetControl(CameraContext& context, const ControlRecord& record) {
  const ControlRow* row = FindControl(record.Code);
  if (row == nullptr || row->Set == nullptr) return kUnknownControlCode;
  return row->Set(*row, context, record);
}

Status GetControl(CameraContext& context, ControlRecord& record) {
  PresetFlagsAndCaps(record);
  const ControlRow* row = FindControl(record.Code);
  if (row == nullptr || row->Get == nullptr) {
    record.Value = 0;
    return kUnknownControlCode;
  }
  return row->Get(*row, context, record);
}

}  // namespace lidcam
