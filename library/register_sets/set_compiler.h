#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace lidcam::app {

// A source is lines; "#" begins a comment. Sections begin with their name in brackets and stand in
// the file in the order of the source: [setup], [low light], [normal], each at most once. A section
// without entries clears its table. Numbers are hexadecimal.
//
//   bridge FF0A = 01     one write of a bridge register
//   sensor FF0C = 60     one write of a sensor register
//   wide FF09 = 01DD     16-bit sensor register: low byte to bridge FF7F, high byte to the sensor
//   raw 22 0A 01         the three bytes of an entry as they stand

struct SourceError {
  std::size_t Line;  ///< from 1
  std::string Reason;
};

struct CompiledSet {
  std::vector<std::uint8_t> Bytes;  ///< the whole file; empty if there are errors
  std::vector<SourceError> Errors;  ///< all of them, in the order of the lines
};

[[nodiscard]] CompiledSet CompileRegisterSet(std::string_view source);

/// "S001.txt:12: value '1G' is not two hexadecimal digits".
[[nodiscard]] std::string ErrorText(std::string_view fileName, const SourceError& error);

}  // namespace lidcam::app
