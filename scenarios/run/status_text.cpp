#include "scenarios/run/status_text.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace lidcam::scenarios {
namespace {

constexpr std::array kBusStatuses{
    STATUS_SUCCESS,    STATUS_UNSUCCESSFUL,      STATUS_INSUFFICIENT_RESOURCES,
    STATUS_IO_TIMEOUT, STATUS_INVALID_PARAMETER, STATUS_DEVICE_NOT_CONNECTED,
    STATUS_CANCELLED,  STATUS_NOT_SUPPORTED,     STATUS_DEVICE_DATA_ERROR,
};

}  // namespace

std::string HexOf(NTSTATUS status) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "0x%08X", static_cast<unsigned>(status));
  return text.data();
}

std::string StepLine(std::string_view name, NTSTATUS status) {
  std::string line = "step ";
  line.append(name).append(" -> ").append(HexOf(status));
  return line;
}

bool IsBusStatus(NTSTATUS status) {
  return std::ranges::find(kBusStatuses, status) != kBusStatuses.end();
}

}  // namespace lidcam::scenarios
