#pragma once

#include <cstdint>

#include "driver/avstream/properties/property_ids.h"
#include "platform/kernel.h"

// The records that describe the camera to the platform's streaming class: one device, one filter in
// two categories, one output pin with its formats, and the framing of its buffers. The callbacks
// are defined by the code of filter and pin and passed in.

namespace lidcam {

// ---- Formats.

/// Sub-format of all pictures: two pixels in four bytes Y U Y V. The streaming headers lack its name.
inline constexpr GUID kYuy2Subtype =
    GuidOf(0x32595559, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71);

/// The lists of formats, by GetFormatListIndex(). Every entry is the head of a KS_DATARANGE_VIDEO.
///
/// List 0 has 17 entries, of which the first five are set and the rest null; the first is the
/// default format. List 1 has one entry; no camera uses it.
extern const PKSDATARANGE* const CameraFormatList[2];

// ---- Device.

/// No filter descriptor: the filter's factory is created when the device starts.
constexpr KSDEVICE_DESCRIPTOR DeviceDescriptorOf(const KSDEVICE_DISPATCH& dispatch) {
  return {&dispatch, 0, nullptr, KSDEVICE_DESCRIPTOR_VERSION};
}

// ---- Filter.

constexpr KSFILTER_DISPATCH FilterDispatchOf(PFNKSFILTERIRP create) {
  return {create, nullptr, nullptr, nullptr};
}

/// @param sets  the filter's four property sets; there are neither methods nor events
constexpr KSAUTOMATION_TABLE FilterAutomationOf(const KSPROPERTY_SET (&sets)[4]) {
  KSAUTOMATION_TABLE table{};
  table.PropertySetsCount = 4;
  table.PropertyItemSize = sizeof(KSPROPERTY_ITEM);
  table.PropertySets = sets;
  table.MethodItemSize = sizeof(KSMETHOD_ITEM);
  table.EventItemSize = sizeof(KSEVENT_ITEM);
  return table;
}

/// Fills every field. The filter has no pins of its own: each instance adds its pin when it is
/// created. It has no nodes and no topology either.
/// @par Callable at any level
void FillFilterDescriptor(const KSFILTER_DISPATCH& dispatch, const KSAUTOMATION_TABLE& automation,
                          KSFILTER_DESCRIPTOR& descriptor);

// ---- Pin.

/// The pin has neither a clock nor an allocator of its own: it uses the platform's.
constexpr KSPIN_DISPATCH PinDispatchOf(PFNKSPINIRP create, PFNKSPIN process,
                                       PFNKSPINSETDATAFORMAT setDataFormat,
                                       PFNKSPINSETDEVICESTATE setDeviceState) {
  return {create,         nullptr, process, nullptr, setDataFormat,
          setDeviceState, nullptr, nullptr, nullptr, nullptr};
}

inline constexpr GUID kDroppedFramesSet = GuidOf(STATIC_PROPSETID_VIDCAP_DROPPEDFRAMES);
inline constexpr GUID kStillTriggerEvents = GuidOf(STATIC_KSEVENTSETID_VIDCAPTOSTI);

/// The pin's property and event: `Table`.
///
/// Must not be moved or copied: its records point into each other. The event is listed although the
/// add handler always fails: clients find a camera with a still trigger that never fires.
class PinAutomation {
 public:
  constexpr PinAutomation(PFNKSHANDLER getDroppedFrames, PFNKSADDEVENT addEvent)
      : Properties{{KSPROPERTY_DROPPEDFRAMES_CURRENT,
                    {getDroppedFrames},
                    sizeof(KSPROPERTY_DROPPEDFRAMES_CURRENT_S),
                    sizeof(KSPROPERTY_DROPPEDFRAMES_CURRENT_S),
                    {nullptr},
                    nullptr,
                    0,
                    nullptr,
                    nullptr,
                    0}},
        PropertySets{{&kDroppedFramesSet, 1, Properties, 0, nullptr}},
        Events{
            {KSEVENT_VIDCAPTOSTI_EXT_TRIGGER, sizeof(KSEVENTDATA), 0, addEvent, nullptr, nullptr}},
        EventSets{{&kStillTriggerEvents, 1, Events}} {
    Table.PropertySetsCount = 1;
    Table.PropertyItemSize = sizeof(KSPROPERTY_ITEM);
    Table.PropertySets = PropertySets;
    Table.MethodItemSize = sizeof(KSMETHOD_ITEM);
    Table.EventSetsCount = 1;
    Table.EventItemSize = sizeof(KSEVENT_ITEM);
    Table.EventSets = EventSets;
  }

  PinAutomation(const PinAutomation&) = delete;
  PinAutomation& operator=(const PinAutomation&) = delete;

  KSPROPERTY_ITEM Properties[1];
  KSPROPERTY_SET PropertySets[1];
  KSEVENT_ITEM Events[1];
  KSEVENT_SET EventSets[1];
  KSAUTOMATION_TABLE Table{};
};

/// Allocator framing of a pin before it has a format. Every pin has its own copy.
extern const KSALLOCATOR_FRAMING_EX kPinFraming;

/// Changes a pin's own copy of kPinFraming to request five buffers of one picture each.
/// @param imageSize  bytes of a picture of the connection's format
/// @par Callable at any level
void FitFraming(std::uint32_t imageSize, KSALLOCATOR_FRAMING_EX& framing);

/// The parts of a pin's descriptor that the pin's code defines. The first two outlive the filter.
struct PinEntries {
  const KSPIN_DISPATCH* Dispatch;
  const KSAUTOMATION_TABLE* AutomationTable;
  PFNKSINTERSECTHANDLEREX IntersectHandler;
};

/// Fills every field.
///
/// @param formatList   0 or 1, into CameraFormatList
/// @param formatCount  0 to the length of that list; null entries are passed on
/// @par Callable at any level
void FillPinDescriptor(const PinEntries& entries, std::int32_t formatList, std::int32_t formatCount,
                       KSPIN_DESCRIPTOR_EX& descriptor);

}  // namespace lidcam
