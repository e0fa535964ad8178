#include "platform/host/client/client_error.h"

#include <array>
#include <cstdio>

namespace lidcam::client {
namespace {

std::string TextOf(const std::string& what, NTSTATUS status) {
  std::array<char, 16> number{};
  std::snprintf(number.data(), number.size(), "0x%08X", static_cast<unsigned>(status));
  return "the camera's driver can't " + what + ": " + number.data();
}

}  // namespace

ClientError::ClientError(const std::string& what, NTSTATUS status)
    : std::runtime_error(TextOf(what, status)), status_(status) {}

void Check(NTSTATUS status, const char* what) {
  if (!NT_SUCCESS(status)) throw ClientError(what, status);
}

}  // namespace lidcam::client
