#include "driver/avstream/pin/capture_pin_formats.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "driver/avstream/properties/property_ids.h"

namespace lidcam {
namespace {

constexpr GUID kVideoInfoSpecifier = GuidOf(STATIC_KSDATAFORMAT_SPECIFIER_VIDEOINFO);

constexpr ULONG kBitmapAt = offsetof(KS_VIDEOINFOHEADER, bmiHeader);
constexpr ULONG kHeaderInFormat = offsetof(KS_DATAFORMAT_VIDEOINFOHEADER, VideoInfoHeader);
constexpr ULONG kHeaderInRange = offsetof(KS_DATARANGE_VIDEO, VideoInfoHeader);
static_assert(kBitmapAt == 48 && kHeaderInFormat == 64 && kHeaderInRange == 208);
static_assert(sizeof(KS_DATAFORMAT_VIDEOINFOHEADER) == 152);
static_assert(sizeof(KS_DATARANGE_VIDEO) == 296);
static_assert(sizeof(KS_VIDEO_STREAM_CONFIG_CAPS) == 128);

bool IsVideoInfo(const KSDATAFORMAT& format) {
  return IsSameGuid(format.Specifier, kVideoInfoSpecifier);
}

const KS_VIDEOINFOHEADER& HeaderAt(const KSDATAFORMAT& block, ULONG offset) {
  const void* const header = reinterpret_cast<const std::uint8_t*>(&block) + offset;
  return *static_cast<const KS_VIDEOINFOHEADER*>(header);
}

// In 64 bits: a sum that would wrap is larger than any block.
bool IsHeaderInside(ULONG biSize, ULONG headerAt, ULONG blockSize) {
  return std::uint64_t{biSize} + kBitmapAt + headerAt <= blockSize;
}

// Null for a range without a header.
const KS_VIDEOINFOHEADER* HeaderOfRange(const KSDATARANGE& range, const KSDATAFORMAT& format) {
  const bool isFormat = &range == &format || range.FormatSize < sizeof(KS_DATARANGE_VIDEO);
  if (!isFormat) return &HeaderAt(range, kHeaderInRange);
  if (range.FormatSize < sizeof(KS_DATAFORMAT_VIDEOINFOHEADER)) return nullptr;
  return &HeaderAt(range, kHeaderInFormat);
}

bool IsSamePicture(const KS_BITMAPINFOHEADER& a, const KS_BITMAPINFOHEADER& b) {
  return a.biWidth == b.biWidth && a.biHeight == b.biHeight && a.biCompression == b.biCompression;
}

bool IsSameStream(const KS_DATARANGE_VIDEO& a, const KS_DATARANGE_VIDEO& b) {
  return a.bFixedSizeSamples == b.bFixedSizeSamples &&
         a.bTemporalCompression == b.bTemporalCompression &&
         a.StreamDescriptionFlags == b.StreamDescriptionFlags &&
         a.MemoryAllocationFlags == b.MemoryAllocationFlags;
}

bool HasSameConfigCaps(const KS_DATARANGE_VIDEO& a, const KS_DATARANGE_VIDEO& b) {
  return std::memcmp(&a.ConfigCaps, &b.ConfigCaps, sizeof(a.ConfigCaps)) == 0;
}

// A field of a header of the given length; 0 if the header ends before the field does.
template <typename T>
T FieldOf(const std::uint8_t* bitmap, ULONG biSize, std::size_t offset) {
  T value{};
  if (offset + sizeof(T) <= biSize) std::memcpy(&value, bitmap + offset, sizeof(T));
  return value;
}

// Bytes of a picture whose lines are whole 32-bit words. Products beyond 32 bits wrap: the sizes
// that pass the checks are far below.
ULONG ImageSizeOf(LONG width, LONG height, WORD bitCount) {
  const ULONG bits = bitCount * static_cast<ULONG>(width) + 31;
  const ULONG stride = bits / 8 & ~ULONG{3};
  const ULONG image = stride * static_cast<ULONG>(height);
  return height < 0 ? 0 - image : image;
}

// Of the copied header.
void CompleteImageSize(void* data, ULONG biSize) {
  std::uint8_t* const bitmap = static_cast<std::uint8_t*>(data) + kHeaderInFormat + kBitmapAt;
  const ULONG image =
      ImageSizeOf(FieldOf<LONG>(bitmap, biSize, offsetof(KS_BITMAPINFOHEADER, biWidth)),
                  FieldOf<LONG>(bitmap, biSize, offsetof(KS_BITMAPINFOHEADER, biHeight)),
                  FieldOf<WORD>(bitmap, biSize, offsetof(KS_BITMAPINFOHEADER, biBitCount)));
  static_cast<KSDATAFORMAT*>(data)->SampleSize = image;
  constexpr std::size_t kImageSizeAt = offsetof(KS_BITMAPINFOHEADER, biSizeImage);
  if (kImageSizeAt + sizeof(image) > biSize) return;
  std::memcpy(bitmap + kImageSizeAt, &image, sizeof(image));
}

}  // namespace

ULONG VideoHeaderBytes(const KSDATAFORMAT& format) {
  if (format.FormatSize < kHeaderInFormat) return 0;
  const ULONG inside = format.FormatSize - kHeaderInFormat;
  if (inside < kBitmapAt + sizeof(DWORD)) return inside;
  const std::uint64_t told =
      std::uint64_t{HeaderAt(format, kHeaderInFormat).bmiHeader.biSize} + kBitmapAt;
  return told < inside ? static_cast<ULONG>(told) : inside;
}

NTSTATUS CheckVideoFormat(const KSDATAFORMAT& format, const KSDATARANGE& range) {
  if (!IsVideoInfo(format)) return STATUS_NO_MATCH;
  if (format.FormatSize < sizeof(KS_DATAFORMAT_VIDEOINFOHEADER)) return STATUS_NO_MATCH;
  const KS_BITMAPINFOHEADER& bitmap = HeaderAt(format, kHeaderInFormat).bmiHeader;
  if (!IsHeaderInside(bitmap.biSize, kHeaderInFormat, format.FormatSize)) {
    return STATUS_INVALID_PARAMETER;
  }
  const KS_VIDEOINFOHEADER* const offered = HeaderOfRange(range, format);
  const bool isOffered = offered != nullptr && IsSamePicture(bitmap, offered->bmiHeader);
  return isOffered ? STATUS_SUCCESS : STATUS_NO_MATCH;
}

NTSTATUS IntersectVideoFormats(const KSDATARANGE& callerRange, const KSDATARANGE& descriptorRange,
                               ULONG bufferSize, void* data, ULONG& dataSize) {
  if (!IsVideoInfo(callerRange)) return STATUS_NO_MATCH;
  if (callerRange.FormatSize < sizeof(KS_DATARANGE_VIDEO)) return STATUS_NO_MATCH;
  const auto& caller = reinterpret_cast<const KS_DATARANGE_VIDEO&>(callerRange);
  const auto& offered = reinterpret_cast<const KS_DATARANGE_VIDEO&>(descriptorRange);
  if (!IsSameStream(caller, offered)) return STATUS_NO_MATCH;
  if (!HasSameConfigCaps(caller, offered)) return STATUS_NO_MATCH;
  const ULONG biSize = caller.VideoInfoHeader.bmiHeader.biSize;
  if (!IsHeaderInside(biSize, kHeaderInRange, callerRange.FormatSize)) {
    return STATUS_INVALID_PARAMETER;
  }
  const ULONG needed = biSize + kBitmapAt + kHeaderInFormat;
  if (bufferSize == 0) {
    dataSize = needed;
    return STATUS_BUFFER_OVERFLOW;
  }
  if (bufferSize < needed) return STATUS_BUFFER_TOO_SMALL;
  dataSize = needed;
  std::memcpy(data, &descriptorRange, sizeof(KSDATAFORMAT));
  static_cast<KSDATAFORMAT*>(data)->FormatSize = needed;
  std::memcpy(static_cast<std::uint8_t*>(data) + kHeaderInFormat,
              reinterpret_cast<const std::uint8_t*>(&callerRange) + kHeaderInRange,
              std::size_t{biSize} + kBitmapAt);
  CompleteImageSize(data, biSize);
  return STATUS_SUCCESS;
}

}  // namespace lidcam
