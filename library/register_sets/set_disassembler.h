#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace lidcam::app {

/// Writes a set file as a source that CompileRegisterSet() takes.
///
/// A sound file compiles back to its own bytes. What has no place in a source stands in comments:
/// the findings of CheckRegisterSet() at the head, sections of unknown type, bytes left over.
[[nodiscard]] std::string DisassembleRegisterSet(std::span<const std::uint8_t> file);

}  // namespace lidcam::app
