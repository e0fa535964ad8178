#include "platform/host/client/client_error.h"

#include "platform/host/nt/system/status_words.h"

namespace lidcam::client {

ClientError::ClientError(const std::string& what, NTSTATUS status)
    : std::runtime_error("the camera's driver can't " + what + ": " + host::StatusText(status)),
      status_(status) {}

void Check(NTSTATUS status, const char* what) {
  if (!NT_SUCCESS(status)) throw ClientError(what, status);
}

}  // namespace lidcam::client
