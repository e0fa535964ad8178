#include "driver/frame/still/still_capture.h"

#include <cstdint>

#include "driver/core/base/camera_trace.h"
#include "driver/frame/raw/raw_sizes.h"
#include "platform/kernel.h"

namespace lidcam {
namespace {

constexpr const WCHAR* kStillFile = KERNEL_TEXT("\\SystemRoot\\system32\\drivers\\SnapFile.dat");

constexpr std::uint32_t kBytesPerPixel = 2;
constexpr std::uint32_t kMarkSize = 2;
constexpr std::uint32_t kMarksSize = 2 * kMarkSize;

struct StillSize {
  std::uint32_t Width;
  std::uint32_t Height;
  std::uint32_t SizeIndex;
};

constexpr StillSize kWorkBufferSize{640, 480, 3};

StillSize SizeOfStill(const CameraContext& context) {
  if (context.WorkBuffersPresent != 0 && context.WorkBuffersReady != 0) return kWorkBufferSize;
  if (const RawPictureSize* const size = FindRawPictureSize(context.RawSizeMode)) {
    return {static_cast<std::uint32_t>(size->Width), static_cast<std::uint32_t>(size->Height),
            size->StillIndex};
  }
  const std::uint32_t value = context.StillRequestValue;
  return {value, value, value};
}

void StoreMark(std::uint8_t* place, std::uint32_t mark) {
  place[0] = static_cast<std::uint8_t>(mark & 0xFF);
  place[1] = static_cast<std::uint8_t>(mark >> 8 & 0xFF);
}

// A mark that would lie in front of the picture is left out.
void MarkPicture(std::uint8_t* pixels, std::uint32_t size, std::uint32_t value,
                 std::uint32_t sizeIndex) {
  if (size >= kMarksSize) StoreMark(pixels + size - kMarksSize, sizeIndex);
  if (size >= kMarkSize) StoreMark(pixels + size - kMarkSize, value);
}

struct DriverModelLevel {
  UCHAR Major;
  UCHAR Minor;
  bool IsOpenGuarded;
};

// In query order.
constexpr DriverModelLevel kDriverModelLevels[] = {
    {1, 0x10, true},
    {1, 0x20, true},
    {1, 0x00, false},
    {1, 0x05, false},
};

const DriverModelLevel* FindDriverModelLevel() {
  for (const DriverModelLevel& level : kDriverModelLevels) {
    if (IoIsWdmVersionAvailable(level.Major, level.Minor) != FALSE) return &level;
  }
  return nullptr;
}

NTSTATUS OpenForReplacing(HANDLE& file) {
  UNICODE_STRING name{};
  RtlInitUnicodeString(&name, kStillFile);
  OBJECT_ATTRIBUTES attributes{};
  InitializeObjectAttributes(&attributes, &name, OBJ_OPENIF, nullptr, nullptr);
  IO_STATUS_BLOCK io{};
  return ZwCreateFile(&file, FILE_WRITE_DATA, &attributes, &io, nullptr, FILE_ATTRIBUTE_NORMAL,
                      FILE_SHARE_WRITE, FILE_OVERWRITE_IF, FILE_SYNCHRONOUS_IO_NONALERT, nullptr,
                      0);
}

NTSTATUS WriteFromStart(HANDLE file, std::uint8_t* bytes, std::uint32_t size) {
  IO_STATUS_BLOCK io{};
  LARGE_INTEGER start{};
  return ZwWriteFile(file, nullptr, nullptr, nullptr, &io, bytes, size, &start, nullptr);
}

}  // namespace

void CaptureStill(CameraContext& context, std::uint8_t* pixels) {
  if (context.StillRequested != 1) return;
  const StillSize size = SizeOfStill(context);
  const std::uint32_t value = context.StillRequestValue;
  DbgPrint("ulWidth = %d, ulHeight = %d", size.Width, size.Height);
  const Status status =
      WriteStillFile(context, pixels, size.Width, size.Height, value, size.SizeIndex);
  if (status == 0) DbgPrint("Write file true");
  DbgPrint("ulWidth = %d", size.Width);
  DbgPrint("ulHeight = %d", size.Height);
  DbgPrint("srcIndex = %d", size.SizeIndex);
  TraceCamera(&context, "still %ux%u index=%u value=%u status=%08X", size.Width, size.Height,
              size.SizeIndex, value, static_cast<std::uint32_t>(status));
  context.StillRequested = 0;
}

Status WriteStillFile(CameraContext&, std::uint8_t* pixels, std::uint32_t width,
                      std::uint32_t height, std::uint32_t value, std::uint32_t sizeIndex) {
  const std::uint32_t size = width * height * kBytesPerPixel;
  MarkPicture(pixels, size, value, sizeIndex);
  const DriverModelLevel* const level = FindDriverModelLevel();
  if (level == nullptr) return 0;

  // Null rather than undefined: a failed open that is ignored leaves it, and the write fails.
  HANDLE file = nullptr;
  const NTSTATUS opened = OpenForReplacing(file);
  if (level->IsOpenGuarded && opened != STATUS_SUCCESS) return opened;
  const NTSTATUS written = WriteFromStart(file, pixels, size);
  ZwClose(file);
  return written;
}

}  // namespace lidcam
