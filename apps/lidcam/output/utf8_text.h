#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace lidcam::app {

/// A name as text. Names of files are any bytes: each byte that is not valid UTF-8, or that belongs to a
/// character no document may have (U+FFFE, U+FFFF), stands as "\xFF".
[[nodiscard]] std::string Utf8Text(std::string_view bytes);

/// The value as JSON, with all its strings as Utf8Text().
///
/// @param indent  of each level; -1 for a single line
[[nodiscard]] std::string JsonText(const nlohmann::json& value, int indent = 2);

}  // namespace lidcam::app
