#pragma once

#include <string>
#include <string_view>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {

/// A status in words for users: "the device is gone". Empty for one that the host never returns.
[[nodiscard]] std::string_view WordsOf(NTSTATUS status);

/// "status C000009D (the device is gone)".
[[nodiscard]] std::string StatusText(NTSTATUS status);

}  // namespace lidcam::host
