#pragma once

#include <stdexcept>
#include <string>

#include "platform/kernel.h"

namespace lidcam::client {

/// A request that a driver refused; the text names the request and the status.
class ClientError : public std::runtime_error {
 public:
  ClientError(const std::string& what, NTSTATUS status);

  [[nodiscard]] NTSTATUS Status() const { return status_; }

 private:
  NTSTATUS status_;
};

/// Throws ClientError for a status that isn't success.
void Check(NTSTATUS status, const char* what);

}  // namespace lidcam::client
