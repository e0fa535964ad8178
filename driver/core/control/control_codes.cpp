#include "driver/core/control/control_codes.h"

#include <cstddef>
#include <iterator>

#include "driver/core/control/stream_modes.h"
#include "driver/sensor/controls/image_controls.h"
#include "driver/sensor/registers/register_access.h"

namespace lidcam {
namespace {

using SetOperation = Status (*)(const Control& control, CameraContext& context,
                                const ControlRecord& record);
using GetOperation = Status (*)(const Control& control, CameraContext& context,
                                ControlRecord& record);

std::uint32_t ModeFlag(bool isAutomatic) {
  return isAutomatic ? kControlFlagAuto : kControlFlagManual;
}

Status Accept(const Control&, CameraContext&, const ControlRecord&) {
  return 0;
}

// The stored value stays, even if the step fails.
Status Store(const Control& control, CameraContext& context, const ControlRecord& record) {
  control.Field.Store(context, record.Value);
  return control.Step == ImageControlNoStep ? 0 : ApplyImageControl(control.Step, context);
}

// The brightness register lags one change behind: it gets the value that is being replaced.
Status ApplyThenStore(const Control& control, CameraContext& context, const ControlRecord& record) {
  const Status status = ApplyImageControl(control.Step, context);
  if (status == 0) control.Field.Store(context, record.Value);
  return status;
}

Status StoreExposure(const Control& control, CameraContext& context, const ControlRecord& record) {
  context.AutoExposure = record.Flags == kControlFlagAuto ? 1 : 0;
  return Store(control, context, record);
}

Status ResetTrigger(const Control&, CameraContext& context, const ControlRecord&) {
  const std::uint32_t base = context.TriggerBase;
  context.TriggerCopyB = base;
  context.TriggerCopyA = base;
  context.TriggerFlagA = 0;
  context.TriggerFlagB = 0;
  return 0;
}

Status StoreRawRegister(const Control& control, CameraContext& context,
                        const ControlRecord& record) {
  context.RawRegisterAddress = record.Caps;
  return Store(control, context, record);
}

// One change per request: a request for both changes the light mode only.
Status StoreLightOrLed(const Control&, CameraContext& context, const ControlRecord& record) {
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

Status RequestStill(const Control& control, CameraContext& context, const ControlRecord& record) {
  control.Field.Store(context, record.Value);
  context.StillRequested = 1;
  return 0;
}

Status Report(const Control& control, CameraContext& context, ControlRecord& record) {
  record.Value = control.Field.Load(context);
  return 0;
}

Status ReportWhiteBalanceMode(const Control& control, CameraContext& context,
                              ControlRecord& record) {
  Report(control, context, record);
  record.Caps = 1;
  record.Flags = ModeFlag(record.Value != 0);
  return 0;
}

Status ReportWhiteBalance(const Control& control, CameraContext& context, ControlRecord& record) {
  Report(control, context, record);
  record.Caps = 1;
  record.Flags = ModeFlag(context.WhiteBalanceAuto == 1);
  return 0;
}

Status ReportExposure(const Control& control, CameraContext& context, ControlRecord& record) {
  Report(control, context, record);
  record.Caps = kControlFlagAuto | kControlFlagManual;
  record.Flags = ModeFlag(context.AutoExposure != 0);
  return 0;
}

Status ReportTrigger(const Control&, CameraContext& context, ControlRecord& record) {
  record.Flags = kControlFlagManual | (context.TriggerFlagA != 0 ? 0x10U : 0U) |
                 (context.TriggerFlagB != 0 ? 0x20U : 0U);
  record.Caps = kControlFlagManual;
  return 0;
}

Status ReportTriggerCapabilities(const Control&, CameraContext&, ControlRecord& record) {
  record.Caps = 0x30;
  record.Flags = kControlFlagManual;
  return 0;
}

// The long table is used for a camera without the long configuration, too.
Status ReportFrameInterval(const Control&, CameraContext& context, ControlRecord& record) {
  const std::uint32_t row = context.MaxAlternateSetting;
  // Only 0, 3 and 7 occur; an absent row counts as 0.
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

Status ReportStillSizes(const Control&, CameraContext& context, ControlRecord& record) {
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

Status LeaveAsItCame(const Control&, CameraContext&, ControlRecord&) {
  return 0;
}

Status ReportControl33(const Control& control, CameraContext& context, ControlRecord& record) {
  Report(control, context, record);
  record.Flags = kControlFlagAuto;
  record.Caps = 1;
  return 0;
}

// A failed read reports 0.
Status ReadRawRegister(const Control&, CameraContext& context, ControlRecord& record) {
  std::uint8_t byte = 0;
  const auto address =
      static_cast<std::uint16_t>(static_cast<std::uint32_t>(record.Value) & 0xFFFF);
  const Status status = RawReadRegister(context, address, byte);
  record.Value = byte;
  return status;
}

Status ReportLightAndLed(const Control& control, CameraContext& context, ControlRecord& record) {
  Report(control, context, record);
  const std::int32_t led = context.LED;
  record.Caps = static_cast<std::uint32_t>(led);
  return 0;
}

Status ReportAndClear(const Control& control, CameraContext& context, ControlRecord& record) {
  Report(control, context, record);
  context.ClearOnReadValue = 0;
  return 0;
}

Status ReportStreaming(const Control&, CameraContext& context, ControlRecord& record) {
  record.Value = context.Streaming;
  return 0;
}

struct ControlOperations {
  ControlCode Code;
  SetOperation Set;  // null: the code can't be set
  GetOperation Get;
};

// Controls that need more than a stored value.
constexpr ControlOperations kOperations[] = {
    {ControlCode::Brightness, ApplyThenStore, Report},
    {ControlCode::WhiteBalanceMode, Accept, ReportWhiteBalanceMode},
    {ControlCode::WhiteBalance, nullptr, ReportWhiteBalance},
    {ControlCode::FlickerReading, nullptr, Report},
    {ControlCode::Exposure, StoreExposure, ReportExposure},
    {ControlCode::Trigger, ResetTrigger, ReportTrigger},
    {ControlCode::TriggerCapabilities, nullptr, ReportTriggerCapabilities},
    {ControlCode::FrameInterval, nullptr, ReportFrameInterval},
    {ControlCode::StillSizes, nullptr, ReportStillSizes},
    {ControlCode::Unanswered, nullptr, LeaveAsItCame},
    {ControlCode::Stored33, nullptr, ReportControl33},
    {ControlCode::RawRegister, StoreRawRegister, ReadRawRegister},
    {ControlCode::LightAndLed, StoreLightOrLed, ReportLightAndLed},
    {ControlCode::ClearOnRead, nullptr, ReportAndClear},
    {ControlCode::Still, RequestStill, ReportStreaming},
};

constexpr ControlOperations kStoreAndReport = {ControlCode::None, Store, Report};

const ControlOperations& OperationsOf(const Control& control) {
  for (const ControlOperations& operations : kOperations) {
    if (operations.Code == control.Code) return operations;
  }
  return kStoreAndReport;
}

// Manual unless a code sets otherwise, also for unknown codes; the codes around the still sizes
// leave the two words to the caller.
void PresetFlagsAndCaps(ControlRecord& record) {
  if (record.Code >= kFirstListCode && record.Code <= kLastListCode) return;
  record.Flags = kControlFlagManual;
  record.Caps = kControlFlagManual;
}

}  // namespace

Status SetControl(CameraContext& context, const ControlRecord& record) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  const Control* const control = FindControl(ControlCode{record.Code});
  if (control == nullptr) return kUnknownControlCode;
  const SetOperation set = OperationsOf(*control).Set;
  return set != nullptr ? set(*control, context, record) : kUnknownControlCode;
}

Status GetControl(CameraContext& context, ControlRecord& record) {
  PresetFlagsAndCaps(record);
  const Control* const control = FindControl(ControlCode{record.Code});
  if (control == nullptr) {
    record.Value = 0;
    return kUnknownControlCode;
  }
  return OperationsOf(*control).Get(*control, context, record);
}

}  // namespace lidcam
