#include "platform/host/nt/system/status_words.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "platform/host/nt/declarations/io_declarations.h"

namespace lidcam::host {
namespace {

struct StatusRow {
  NTSTATUS Status;
  std::string_view Words;
};

constexpr std::array kStatuses{
    StatusRow{STATUS_SUCCESS, "done"},
    StatusRow{STATUS_TIMEOUT, "the time to wait is over"},
    StatusRow{STATUS_PENDING, "it is under way"},
    StatusRow{STATUS_BUFFER_OVERFLOW, "the answer is longer than its buffer"},
    StatusRow{STATUS_UNSUCCESSFUL, "it failed, and no more is known"},
    StatusRow{STATUS_NOT_IMPLEMENTED, "it is not implemented"},
    StatusRow{STATUS_INVALID_HANDLE, "the handle is not valid"},
    StatusRow{STATUS_INVALID_PARAMETER, "a parameter is not valid"},
    StatusRow{STATUS_NO_SUCH_DEVICE, "there is no such device"},
    StatusRow{STATUS_INVALID_DEVICE_REQUEST, "the device knows no such request"},
    StatusRow{STATUS_END_OF_FILE, "the file ends there"},
    StatusRow{STATUS_MORE_PROCESSING_REQUIRED, "it is kept for more work"},
    StatusRow{STATUS_ACCESS_DENIED, "access is denied"},
    StatusRow{STATUS_BUFFER_TOO_SMALL, "the buffer is too small"},
    StatusRow{STATUS_OBJECT_TYPE_MISMATCH, "what is there is of another kind, such as a pipe"},
    StatusRow{STATUS_OBJECT_NAME_INVALID, "the name is not valid"},
    StatusRow{STATUS_OBJECT_NAME_NOT_FOUND, "no object has this name"},
    StatusRow{STATUS_OBJECT_NAME_COLLISION, "there is one of this name"},
    StatusRow{STATUS_OBJECT_PATH_NOT_FOUND, "its folder does not exist"},
    StatusRow{STATUS_OBJECT_PATH_SYNTAX_BAD, "the path is not valid"},
    StatusRow{STATUS_SHARING_VIOLATION, "something else uses it"},
    StatusRow{STATUS_DELETE_PENDING, "it is being deleted"},
    StatusRow{STATUS_DISK_FULL, "the disk is full"},
    StatusRow{STATUS_INSUFFICIENT_RESOURCES, "the system is short of memory or bandwidth"},
    StatusRow{STATUS_DEVICE_DATA_ERROR, "the device failed the request"},
    StatusRow{STATUS_DEVICE_NOT_CONNECTED, "the device is gone"},
    StatusRow{STATUS_DEVICE_NOT_READY, "the device is not ready"},
    StatusRow{STATUS_IO_TIMEOUT, "the device did not answer in time"},
    StatusRow{STATUS_FILE_IS_A_DIRECTORY, "it is a folder"},
    StatusRow{STATUS_NOT_SUPPORTED, "it is not supported"},
    StatusRow{STATUS_UNEXPECTED_IO_ERROR, "the system failed in an unexpected way"},
    StatusRow{STATUS_CANCELLED, "it was cancelled"},
    StatusRow{STATUS_REGISTRY_IO_FAILED, "the settings can't be read or written"},
    StatusRow{STATUS_INVALID_DEVICE_STATE, "the device is in no state for it"},
    StatusRow{STATUS_INVALID_BUFFER_SIZE, "the buffer has the wrong size"},
    StatusRow{STATUS_NOT_FOUND, "not found"},
    StatusRow{STATUS_PROPSET_NOT_FOUND, "the device has no such properties"},
    StatusRow{STATUS_CONNECTION_REFUSED, "the connection was refused"},
    StatusRow{STATUS_NO_MATCH, "no format fits"},
    StatusRow{STATUS_DEVICE_REMOVED, "the device was removed"},
};

}  // namespace

std::string_view WordsOf(NTSTATUS status) {
  const auto* const row = std::ranges::find(kStatuses, status, &StatusRow::Status);
  return row == kStatuses.end() ? std::string_view{} : row->Words;
}

std::string StatusText(NTSTATUS status) {
  std::array<char, 20> number{};
  std::snprintf(number.data(), number.size(), "status %08X", static_cast<unsigned>(status));
  const std::string_view words = WordsOf(status);
  std::string text = number.data();
  if (!words.empty()) text.append(" (").append(words).append(")");
  return text;
}

}  // namespace lidcam::host
