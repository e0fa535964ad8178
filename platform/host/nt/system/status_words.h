#pragma once

#include <string>
#include <string_view>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {

/// What a status means, for people: "the device is gone". Empty for one that nothing here gives.
[[nodiscard]] std::string_view WordsOf(NTSTATUS status);

/// "status C000009D (the device is gone)".
[[nodiscard]] std::string StatusText(NTSTATUS status);

}  // namespace lidcam::host
