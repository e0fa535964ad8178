#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace lidcam::app {

/// Bytes as text of RFC 4648, with padding.
[[nodiscard]] std::string ToBase64(std::span<const std::uint8_t> bytes);

/// The opposite way; nothing for other text.
[[nodiscard]] std::optional<std::vector<std::uint8_t>> FromBase64(std::string_view text);

}  // namespace lidcam::app
