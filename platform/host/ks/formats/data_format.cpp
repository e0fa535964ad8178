#include "platform/host/ks/formats/data_format.h"

#include <cstring>

#include "platform/host/ks/declarations/guid_of.h"

namespace lidcam::host {
namespace {

constexpr ULONG kPoolTag = 0x6D46534B;  // "KSFm"
constexpr GUID kWildcard = GuidOf(STATIC_GUID_NULL);

bool IsFree(const GUID& one) {
  return IsSameGuid(one, kWildcard);
}

bool Meet(const GUID& one, const GUID& other) {
  return IsSameGuid(one, other) || IsFree(one) || IsFree(other);
}

bool Fits(const GUID& format, const GUID& range) {
  return IsSameGuid(format, range) || IsFree(range);
}

}  // namespace

bool IsSameGuid(const GUID& one, const GUID& other) {
  return std::memcmp(&one, &other, sizeof(GUID)) == 0;
}

bool FitsRange(const KSDATAFORMAT& format, const KSDATARANGE& range) {
  return Fits(format.MajorFormat, range.MajorFormat) && Fits(format.SubFormat, range.SubFormat) &&
         Fits(format.Specifier, range.Specifier);
}

bool DoRangesMeet(const KSDATARANGE& one, const KSDATARANGE& other) {
  return Meet(one.MajorFormat, other.MajorFormat) && Meet(one.SubFormat, other.SubFormat) &&
         Meet(one.Specifier, other.Specifier);
}

bool IsWholeFormat(const KSDATAFORMAT& format, ULONG bytes) {
  return bytes >= sizeof(KSDATAFORMAT) && format.FormatSize >= sizeof(KSDATAFORMAT) &&
         format.FormatSize <= bytes;
}

PKSDATAFORMAT CopyFormat(const KSDATAFORMAT& format) {
  const ULONG size = format.FormatSize;
  PVOID const copy = ExAllocatePoolWithTag(NonPagedPool, size, kPoolTag);
  if (copy != nullptr) std::memcpy(copy, &format, size);
  return static_cast<PKSDATAFORMAT>(copy);
}

RangeReader::RangeReader(PKSMULTIPLE_ITEM list, ULONG bytes)
    : position_(reinterpret_cast<PUCHAR>(list + 1)) {
  isWhole_ = bytes >= sizeof(KSMULTIPLE_ITEM) && list->Size >= sizeof(KSMULTIPLE_ITEM) &&
             list->Size <= bytes;
  if (!isWhole_) return;
  bytesLeft_ = list->Size - static_cast<ULONG>(sizeof(KSMULTIPLE_ITEM));
  rangesLeft_ = list->Count;
}

NTSTATUS RangeReader::Next(PKSDATARANGE* range) {
  *range = nullptr;
  if (!isWhole_) return STATUS_INVALID_BUFFER_SIZE;
  if (rangesLeft_ == 0) return STATUS_SUCCESS;
  auto* const found = reinterpret_cast<PKSDATARANGE>(position_);
  if (reinterpret_cast<ULONG_PTR>(position_) % kRangeAlignment != 0 ||
      !IsWholeFormat(*found, bytesLeft_)) {
    isWhole_ = false;
    return STATUS_INVALID_BUFFER_SIZE;
  }
  // The last one needs no padding to the next.
  const ULONG padding =
      AlignedRangeSize(found->FormatSize % kRangeAlignment) - found->FormatSize % kRangeAlignment;
  const ULONG behind = bytesLeft_ - found->FormatSize;
  const ULONG skipped = padding < behind ? padding : behind;
  position_ += found->FormatSize + skipped;
  bytesLeft_ = behind - skipped;
  --rangesLeft_;
  *range = found;
  return STATUS_SUCCESS;
}

}  // namespace lidcam::host
