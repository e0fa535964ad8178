#pragma once

#include <filesystem>
#include <vector>

namespace lidcam::base {

/// The entries of a folder, in the order of their paths; none if it can't be read, and those before if it
/// vanishes meanwhile, as folders of the kernel do.
[[nodiscard]] std::vector<std::filesystem::path> EntriesOf(const std::filesystem::path& folder);

}  // namespace lidcam::base
