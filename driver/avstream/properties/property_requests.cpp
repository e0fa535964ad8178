#include "driver/avstream/properties/property_requests.h"

#include <cstddef>
#include <span>

#include "driver/avstream/properties/control_translation.h"
#include "driver/avstream/properties/frame_rates.h"
#include "driver/avstream/properties/property_ids.h"
#include "driver/core/control/control_codes.h"

namespace lidcam {
namespace {

bool AsksForFrameRates(const KSIDENTIFIER& request) {
  return request.Id == KSPROPERTY_VIDEOCONTROL_FRAME_RATES &&
         IsSameGuid(request.Set, kVideoControlSet);
}

NTSTATUS RequireBytes(const PropertyBuffer& buffer, ULONG needed) {
  if (buffer.Length >= needed) return STATUS_SUCCESS;
  *buffer.Information = needed;
  return STATUS_BUFFER_TOO_SMALL;
}

// For clients that first query the length of the answer.
NTSTATUS TellOrRequireBytes(const PropertyBuffer& buffer, ULONG needed) {
  const NTSTATUS status = RequireBytes(buffer, needed);
  return buffer.Length == 0 ? STATUS_BUFFER_OVERFLOW : status;
}

// Size counts the intervals only and leaves the header out.
NTSTATUS ReplyFrameRates(const KSIDENTIFIER& request, const PropertyBuffer& buffer) {
  const auto& asked = reinterpret_cast<const KSPROPERTY_VIDEOCONTROL_FRAME_RATES_S&>(request);
  const std::span<const LONGLONG> rates = FrameRatesFor(asked.Dimensions.cx);
  const auto size = static_cast<ULONG>(rates.size_bytes());
  const auto needed = static_cast<ULONG>(sizeof(KSMULTIPLE_ITEM)) + size;
  const NTSTATUS status = TellOrRequireBytes(buffer, needed);
  if (!NT_SUCCESS(status)) return status;
  auto* const header = static_cast<KSMULTIPLE_ITEM*>(buffer.Data);
  header->Size = size;
  header->Count = static_cast<ULONG>(rates.size());
  static_assert(sizeof(KSMULTIPLE_ITEM) == sizeof(LONGLONG));
  LONGLONG* const intervals = static_cast<LONGLONG*>(buffer.Data) + 1;
  for (std::size_t i = 0; i < rates.size(); ++i) intervals[i] = rates[i];
  *buffer.Information = needed;
  return STATUS_SUCCESS;
}

}  // namespace

NTSTATUS SetCameraProperty(CameraContext& camera, const KSIDENTIFIER& request,
                           const PropertyBuffer& buffer) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  const CameraProperty property = FindCameraProperty(request);
  NTSTATUS status = RequireBytes(buffer, PropertyBlockBytes(property, PropertyDirection::Set));
  if (!NT_SUCCESS(status)) return status;
  ControlRecord record{};
  status = TranslateSet(property, buffer.Data, record);
  if (!NT_SUCCESS(status)) return status;
  return SetControl(camera, record) == 0 ? STATUS_SUCCESS : STATUS_NOT_SUPPORTED;
}

NTSTATUS GetCameraProperty(CameraContext& camera, const KSIDENTIFIER& request,
                           const PropertyBuffer& buffer) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  if (AsksForFrameRates(request)) return ReplyFrameRates(request, buffer);
  const CameraProperty property = FindCameraProperty(request);
  const ULONG needed = PropertyBlockBytes(property, PropertyDirection::Get);
  NTSTATUS status = property.GetCode() == ControlCode::FrameInterval
                        ? TellOrRequireBytes(buffer, needed)
                        : RequireBytes(buffer, needed);
  if (!NT_SUCCESS(status)) return status;
  ControlRecord record{};
  status = TranslateGet(property, buffer.Data, record);
  if (!NT_SUCCESS(status)) return status;
  if (GetControl(camera, record) != 0) return STATUS_NOT_SUPPORTED;
  TranslateReply(property, record, buffer.Data);
  return STATUS_SUCCESS;
}

}  // namespace lidcam
