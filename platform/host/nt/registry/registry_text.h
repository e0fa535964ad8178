#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/host/nt/registry/registry_tree.h"

namespace lidcam::host {

/// Where and why a text is not in the exchange format.
struct RegistryTextError {
  std::size_t Line = 0;  ///< from 1; 0 if it concerns the text's encoding
  std::string What;      ///< for users, without the line number
};

/// Reads a text of the platform's exchange format, "Windows Registry Editor Version 5.00".
///
/// UTF-16LE with a byte order mark, as the platform writes it, or UTF-8 with or without one. Lines
/// may end in CR LF, LF or CR, and the last one must have an end too: this detects a text that was
/// cut inside a line. A deleting line ("[-key]", "name"=-) removes what earlier lines added.
///
/// @param tree   replaced; on failure its content is unspecified
/// @param error  filled on failure
[[nodiscard]] bool ParseRegistryText(std::string_view bytes, RegistryTree& tree,
                                     RegistryTextError& error);

/// Writes the text of a tree: UTF-16LE with a byte order mark and CR LF, keys and values sorted by
/// name, a key without values only if it has no subkeys. The platform can import it.
///
/// @param tree  names without the characters that IsRegistryTextName() refuses
[[nodiscard]] std::string WriteRegistryText(const RegistryTree& tree);

/// Whether the exchange format can hold this name: it has no way to write a line end or a zero
/// character.
[[nodiscard]] bool IsRegistryTextName(std::u16string_view name);

}  // namespace lidcam::host
