#include "platform/host/ks/formats/pin_intersection.h"

#include "platform/host/ks/formats/data_format.h"

namespace lidcam::host {
namespace {

NTSTATUS AskDriver(const IntersectionQuery& query, const KSPIN_DESCRIPTOR_EX& pin,
                   PKSDATARANGE callerRange, PKSDATARANGE range) {
  PIRP const irp = query.Irp;
  const ULONG length =
      IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl.OutputBufferLength;
  ULONG size = 0;
  const NTSTATUS status = pin.IntersectHandler(query.Filter, irp, query.Request, callerRange, range,
                                               length, query.Data, &size);
  const bool hasSize = NT_SUCCESS(status) || status == STATUS_BUFFER_OVERFLOW;
  irp->IoStatus.Information = hasSize ? size : 0;
  return status;
}

NTSTATUS IntersectRange(const IntersectionQuery& query, const KSPIN_DESCRIPTOR_EX& pin,
                        PKSDATARANGE callerRange) {
  for (ULONG i = 0; i < pin.PinDescriptor.DataRangesCount; ++i) {
    PKSDATARANGE const range = pin.PinDescriptor.DataRanges[i];
    if (range == nullptr || !DoRangesMeet(*callerRange, *range)) continue;
    const NTSTATUS status = AskDriver(query, pin, callerRange, range);
    if (status != STATUS_NO_MATCH) return status;
  }
  return STATUS_NO_MATCH;
}

}  // namespace

NTSTATUS Intersect(const IntersectionQuery& query, const KSPIN_DESCRIPTOR_EX& pin) {
  const ULONG length =
      IoGetCurrentIrpStackLocation(query.Irp)->Parameters.DeviceIoControl.InputBufferLength;
  query.Irp->IoStatus.Information = 0;
  if (length < sizeof(KSP_PIN)) return STATUS_INVALID_BUFFER_SIZE;
  if (pin.IntersectHandler == nullptr) return STATUS_NOT_IMPLEMENTED;
  RangeReader ranges(reinterpret_cast<PKSMULTIPLE_ITEM>(query.Request + 1),
                     length - static_cast<ULONG>(sizeof(KSP_PIN)));
  while (true) {
    PKSDATARANGE callerRange = nullptr;
    NTSTATUS status = ranges.Next(&callerRange);
    if (!NT_SUCCESS(status)) return status;
    if (callerRange == nullptr) return STATUS_NO_MATCH;
    status = IntersectRange(query, pin, callerRange);
    if (status != STATUS_NO_MATCH) return status;
  }
}

}  // namespace lidcam::host
