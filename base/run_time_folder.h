#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace lidcam::base {

/// A file in lidcam/ of the user's run-time folder, $XDG_RUNTIME_DIR, which processes of one login meet by. Nothing
/// without that folder, as in a login without a session.
[[nodiscard]] std::optional<std::filesystem::path> RunTimeFile(const std::string& name);

}  // namespace lidcam::base
