#pragma once

#include "driver/avstream/device/capture_device.h"
#include "platform/kernel.h"

namespace lidcam {

/// The object behind an opened filter: it gives the filter its one kind of pin. Allocated by the
/// filter's create entry, owned by the filter's bag.
class CaptureFilter {
 public:
  explicit CaptureFilter(PKSFILTER filter) : Filter(filter) {}
  CaptureFilter(const CaptureFilter&) = delete;
  CaptureFilter& operator=(const CaptureFilter&) = delete;

  /// Links the object to its filter and adds the pin with the formats that the camera has.
  ///
  /// Succeeds before the hardware has started, too, and after a start that failed half-way: the pin
  /// then has the formats known so far, possibly none.
  ///
  /// @return the status of the bag or of the pin factory's creation
  /// @par Takes the filter's control mutex
  _IRQL_requires_max_(PASSIVE_LEVEL)
  virtual NTSTATUS Create(PKSFILTER filter, PIRP irp);

  PKSFILTER Filter;

 protected:
  ~CaptureFilter() = default;
};

/// The filter as the device shows it: how one is created, and its properties.
extern const FilterEntries kFilterEntries;

}  // namespace lidcam
