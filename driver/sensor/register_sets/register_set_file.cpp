#include "driver/sensor/register_sets/register_set_file.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "driver/core/base/camera_memory.h"

namespace lidcam {
namespace {

constexpr std::size_t kLengthSize = 4;
constexpr std::size_t kSectionHeaderSize = 8;

// A body is read up to the first limit and its length counts up to the second. A section across the
// second is still taken in full.
constexpr std::uint32_t kReadBufferSize = 2000;
constexpr std::uint32_t kLongestBody = 1980;

// The result of a read: the first `Size` bytes at `Bytes` are valid.
struct SetBody {
  const std::uint8_t* Bytes;
  std::size_t Size;
};

std::uint32_t LittleEndian32(const std::uint8_t* bytes) {
  return bytes[0] | static_cast<std::uint32_t>(bytes[1]) << 8 |
         static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

NTSTATUS OpenForReading(const WCHAR* path, HANDLE& file) {
  UNICODE_STRING name{};
  RtlInitUnicodeString(&name, path);
  OBJECT_ATTRIBUTES attributes{};
  InitializeObjectAttributes(&attributes, &name, OBJ_OPENIF, nullptr, nullptr);
  IO_STATUS_BLOCK io{};
  return ZwCreateFile(&file, FILE_READ_DATA, &attributes, &io, nullptr, FILE_ATTRIBUTE_NORMAL,
                      FILE_SHARE_READ, FILE_OPEN, FILE_SYNCHRONOUS_IO_NONALERT, nullptr, 0);
}

// Continues at the end of the previous read. `received` is set on success only.
NTSTATUS ReadNext(HANDLE file, std::uint8_t* buffer, std::uint32_t length, std::size_t& received) {
  IO_STATUS_BLOCK io{};
  const NTSTATUS status =
      ZwReadFile(file, nullptr, nullptr, nullptr, &io, buffer, length, nullptr, nullptr);
  if (NT_SUCCESS(status)) received = io.Information;
  return status;
}

// A length that can't be read, or not in full, counts as 0.
NTSTATUS ReadBodyLength(HANDLE file, std::uint32_t& length) {
  std::uint8_t bytes[kLengthSize] = {};
  std::size_t received = 0;
  const NTSTATUS status = ReadNext(file, bytes, sizeof(bytes), received);
  length = received == sizeof(bytes) ? LittleEndian32(bytes) : 0;
  return status;
}

// Reads the body by the length in the file, as far as the buffer goes. A failed read may have
// filled the buffer all the same, and is walked like any other.
NTSTATUS ReadBody(HANDLE file, std::uint8_t* buffer, std::uint32_t length, SetBody& body) {
  const std::uint32_t asked = length < kReadBufferSize ? length : kReadBufferSize;
  ZeroCameraMemory(buffer, kReadBufferSize);
  body = {buffer, asked};
  return ReadNext(file, buffer, asked, body.Size);
}

RegisterSetTable* TableOfSection(CameraContext& context, std::uint32_t sectionType) {
  switch (sectionType) {
    case 1:
      return &context.SetupRegisters;
    case 2:
      return &context.LowLightRegisters;
    case 3:
      return &context.NormalRegisters;
    default:
      return nullptr;
  }
}

// `Count` is that of the section; entries beyond the end of the table are not stored.
void StoreSection(RegisterSetTable& table, const std::uint8_t* payload, std::uint32_t size) {
  table.Present = size != 0 ? 1 : 0;
  table.Count = static_cast<std::uint32_t>(size / sizeof(RegisterSetEntry));
  std::memcpy(table.Entries, payload, size < sizeof(table.Entries) ? size : sizeof(table.Entries));
}

// Takes the section at `offset` and steps past it. False ends the walk: at a type without a table,
// which prints a message, or at a section that is not whole within the body. A length below the
// header's own wraps to a payload larger than any body.
bool TakeSection(CameraContext& context, const SetBody& body, std::size_t& offset,
                 std::uint32_t& remaining, NTSTATUS& status) {
  if (body.Size - offset < kSectionHeaderSize) return false;
  const std::uint8_t* const section = body.Bytes + offset;
  const std::uint32_t length = LittleEndian32(section);
  RegisterSetTable* const table = TableOfSection(context, LittleEndian32(section + 4));
  if (table == nullptr) {
    DbgPrint(" This is error type\n");
    return false;
  }
  const auto payload = static_cast<std::uint32_t>(length - kSectionHeaderSize);
  if (payload > body.Size - offset - kSectionHeaderSize) return false;

  StoreSection(*table, section + kSectionHeaderSize, payload);
  if (table == &context.NormalRegisters) status = STATUS_SUCCESS;
  remaining -= length;
  offset += length;
  return true;
}

// Ends only at a remainder of exactly 0: a longer section wraps it, and the walk continues.
void WalkSections(CameraContext& context, const SetBody& body, std::uint32_t bodyLength,
                  NTSTATUS& status) {
  std::size_t offset = 0;
  std::uint32_t remaining = bodyLength < kLongestBody ? bodyLength : kLongestBody;
  while (remaining != 0 && TakeSection(context, body, offset, remaining, status)) {
  }
}

NTSTATUS LoadBody(CameraContext& context, HANDLE file, std::uint8_t* buffer) {
  std::uint32_t bodyLength = 0;
  SetBody body{buffer, 0};
  NTSTATUS status = ReadBodyLength(file, bodyLength);
  if (NT_SUCCESS(status)) status = ReadBody(file, buffer, bodyLength, body);
  WalkSections(context, body, bodyLength, status);
  return status;
}

struct SetFile {
  SensorType Type;
  const WCHAR* Path;
};

// In loading order.
constexpr SetFile kSetFiles[] = {
    {SensorTypeK82, KERNEL_TEXT("\\SystemRoot\\system32\\drivers\\S000.set")},
    {SensorTypeVGA0708, KERNEL_TEXT("\\SystemRoot\\system32\\drivers\\S001.set")},
    {SensorTypeOV7660, KERNEL_TEXT("\\SystemRoot\\system32\\drivers\\S002.set")},
    {SensorTypeOV7663, KERNEL_TEXT("\\SystemRoot\\system32\\drivers\\S003.set")},
    {SensorTypeMi1318, KERNEL_TEXT("\\SystemRoot\\system32\\drivers\\S004.set")},
    {SensorTypeMi1318, KERNEL_TEXT("\\SystemRoot\\system32\\drivers\\S005.set")},
    {SensorTypeVGA7648, KERNEL_TEXT("\\SystemRoot\\system32\\drivers\\S006.set")},
    {SensorTypeOV7670, KERNEL_TEXT("\\SystemRoot\\system32\\drivers\\S007.set")},
};

}  // namespace

Status LoadRegisterFile(CameraContext& context, const WCHAR* path) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  HANDLE file = nullptr;
  const NTSTATUS opened = OpenForReading(path, file);
  if (!NT_SUCCESS(opened)) return opened;
  // From the pool: the body is too large for a kernel stack.
  auto* const buffer = static_cast<std::uint8_t*>(AllocateCameraMemory(kReadBufferSize));
  const NTSTATUS status =
      buffer != nullptr ? LoadBody(context, file, buffer) : STATUS_INSUFFICIENT_RESOURCES;
  FreeCameraMemory(buffer);
  ZwClose(file);
  return status;
}

void LoadRegisterSets(CameraContext& context) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  const std::int32_t type = context.SensorType;
  for (const SetFile& file : kSetFiles) {
    if (file.Type == type) LoadRegisterFile(context, file.Path);
  }
}

}  // namespace lidcam
