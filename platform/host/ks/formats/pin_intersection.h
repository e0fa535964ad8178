#pragma once

#include "platform/kernel.h"

namespace lidcam::host {

/// A caller's ranges and where the format that they agree on goes.
struct IntersectionQuery {
  PKSFILTER Filter;
  PIRP Irp;
  PKSP_PIN Request;  ///< the class's copy: a list of ranges follows, of whatever bytes
  PVOID Data;
};

/// Asks the driver for the format of the first of the caller's ranges and the first of the pin's that
/// meet and that it agrees on.
///
/// @return STATUS_NO_MATCH if there is none, STATUS_INVALID_BUFFER_SIZE for ranges that aren't whole,
///         STATUS_NOT_IMPLEMENTED without a handler, else what the handler said
NTSTATUS Intersect(const IntersectionQuery& query, const KSPIN_DESCRIPTOR_EX& pin);

}  // namespace lidcam::host
