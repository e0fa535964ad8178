#pragma once

#include "platform/kernel.h"

namespace lidcam::host {

/// Answers a property of varying size: a request without a buffer gets the size with
/// STATUS_BUFFER_OVERFLOW, one with too small a buffer gets STATUS_BUFFER_TOO_SMALL.
///
/// @param data  the buffer, of the request's output length
NTSTATUS AnswerWithBytes(PIRP irp, PVOID data, const VOID* bytes, ULONG size);

/// Answers a property whose size the property's table has checked already.
template <typename Value>
NTSTATUS AnswerWith(PIRP irp, PVOID data, const Value& value) {
  return AnswerWithBytes(irp, data, &value, sizeof(value));
}

/// Begins the answer of a list. A request with room for the head only gets the head.
///
/// @param itemsSize  bytes of all items
/// @param items      zeroed room for them; null if the status is the whole answer
NTSTATUS AnswerWithList(PIRP irp, PVOID data, ULONG itemsSize, ULONG count, PUCHAR* items);

}  // namespace lidcam::host
