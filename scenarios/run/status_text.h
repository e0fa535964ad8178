#pragma once

#include <string>
#include <string_view>

#include "platform/kernel.h"

namespace lidcam::scenarios {

/// "0xC0000001"
[[nodiscard]] std::string HexOf(NTSTATUS status);

/// "step <name> -> 0xC0000001": an operation's status, as in the trace.
[[nodiscard]] std::string StepLine(std::string_view name, NTSTATUS status);

/// Success, or a status of the USB stack or of a request that could not be sent, which every
/// operation that uses the bus passes on.
[[nodiscard]] bool IsBusStatus(NTSTATUS status);

}  // namespace lidcam::scenarios
