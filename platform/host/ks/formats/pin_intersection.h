#pragma once

#include "platform/kernel.h"

namespace lidcam::host {

/// A caller's ranges, and the memory for the format they result in.
struct IntersectionQuery {
  PKSFILTER Filter;
  PIRP Irp;
  PKSP_PIN Request;  ///< the class's copy: a list of ranges follows, which may be invalid
  PVOID Data;
};

/// Calls the driver's intersection handler for each pair of a caller's range and a pin's range that
/// match, in order, until one gives a format.
///
/// @return STATUS_NO_MATCH if no pair does, STATUS_INVALID_BUFFER_SIZE for incomplete ranges,
///         STATUS_NOT_IMPLEMENTED without a handler, else the handler's status
NTSTATUS Intersect(const IntersectionQuery& query, const KSPIN_DESCRIPTOR_EX& pin);

}  // namespace lidcam::host
